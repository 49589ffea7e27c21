/// Chunks after the samples of a finished file. One thread at a time for one file.
#pragma once

#include "audio/FloatHash.h"
#include "base/Descriptor.h"
#include "base/FileName.h"
#include "container/NewChunk.h"
#include "container/StoredBytes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kel::host {

/// Returns bytes of a file: those from an offset, of a number.
using ByteReader = std::function<std::string(std::uint64_t offset, std::size_t count)>;

/// A part of a file, as content of a chunk.
struct ByteRange {
    std::uint64_t offset = 0; ///< in bytes
    std::uint64_t bytes = 0;
};

/// Returns the number of bytes of a chunk in a file, its header and padding included.
/// @param bytes of its content
std::uint64_t ChunkFileBytes(std::uint64_t bytes);

/// The largest content of a chunk, in bytes. In RF64 larger sizes mean that the size is elsewhere.
inline constexpr std::uint64_t kMaxChunkBytes = 0xFFFFFFFE;

/// The bytes that were appended to a file.
struct AppendedBytes {
    ByteRange range;
    std::uint64_t hash = 0; ///< see FloatHash
};

/// Reads appended bytes back.
/// @throws JobError when they differ, or cannot be read
void VerifyAppended(const FileName& file, const AppendedBytes& appended);

/// Appends chunks to a WAVE, RF64 or AIFF file whose writer has closed it. An object that fails
/// leaves a file that is not usable.
///
/// Sources of the layouts: see HeaderSizes.h.
class ChunkWriter {
public:
    /// Opens a file.
    /// @param file outlives the writer
    /// @throws JobError when it cannot be opened or read, or is of another kind
    explicit ChunkWriter(const FileName& file);

    /// Appends a chunk.
    /// @throws JobError when it cannot be written
    void Append(const NewChunk& chunk);

    /// Appends a chunk whose content is a part of another file. Only a small piece of it is in
    /// memory at a time.
    /// @param range at most kMaxChunkBytes
    /// @param read reads the other file
    /// @throws JobError when it cannot be read or written
    void Append(const std::string& name, const ByteRange& range, const ByteReader& read);

    /// Corrects the size of the whole file in its header. Called once, after the last chunk.
    /// @throws JobError when it cannot be written, or has too many digits for the container
    AppendedBytes Finish();

private:
    void AppendHeader(const std::string& name, std::uint64_t bytes);
    void AppendBytes(const std::string& bytes);
    void Pad();

    const FileName& m_file;
    Descriptor m_descriptor;
    std::string m_form; // the first four bytes
    StoredOrder m_order = StoredOrder::Little;
    std::uint64_t m_start = 0; // of the first chunk
    std::uint64_t m_end = 0;   // of the file, in bytes
    FloatHash m_hash;          // of the bytes in between
};

} // namespace kel::host
