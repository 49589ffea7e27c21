/// The chunks of RIFF, RF64, W64 and AIFF files, as they are stored. One thread at a time.
#pragma once

#include "container/HeaderReader.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Files that consist of chunks.
enum class ChunkForm {
    RIFF, ///< WAVE
    RIFX, ///< WAVE with big-endian numbers
    RF64, ///< WAVE with the 64-bit sizes of a chunk "ds64"
    BW64, ///< RF64 under the name of ITU-R BS.2088
    W64,  ///< GUIDs instead of names, 64-bit sizes
    AIFF,
    AIFC,
};

/// Returns the usual name: "WAVE", "RIFX", "RF64", "BW64", "W64", "AIFF", "AIFF-C".
std::string_view FormName(ChunkForm form);

/// True for AIFF and AIFF-C.
bool IsAIFF(ChunkForm form);

/// True for four bytes that can be the name of a chunk: they are printable, but for the zeros at
/// the end of a few.
bool IsChunkName(std::string_view name);

/// One chunk. In W64 the name is the first four bytes of the GUID.
struct Chunk {
    std::string name;         ///< four bytes
    std::uint64_t offset = 0; ///< of the content, in bytes
    std::uint64_t bytes = 0;  ///< of the content, as declared; may reach beyond the end of the file
};

/// The chunks of a file, in their order. The sizes are those that the file declares; the content of
/// the last one may be missing in part.
struct ChunkList {
    ChunkForm form = ChunkForm::RIFF;
    std::uint64_t fileBytes = 0;     ///< length of the file
    std::uint64_t declaredBytes = 0; ///< length of the file as its first header declares it
    std::vector<Chunk> chunks;
    std::uint64_t end = 0;   ///< offset after the last chunk and its padding
    bool isComplete = false; ///< false when there are more than kMaxChunks

    /// Returns the first chunk of a name; null when there is none.
    const Chunk* Find(std::string_view name) const;

    /// Bytes of a chunk's content that the file has.
    std::uint64_t Present(const Chunk& chunk) const;
};

/// More chunks than any useful file has. A damaged file may have any number of empty ones.
inline constexpr std::size_t kMaxChunks = 65536;

/// Reads the names and sizes of all chunks. Reading ends at the end of the file, at a chunk that
/// reaches beyond it, and where no name of a chunk follows. A chunk of odd size is followed by a
/// byte of padding; some programs omit it, which is noticed by the name that follows.
///
/// Sources of the layouts: RIFF (IBM and Microsoft, "Multimedia Programming Interface and Data
/// Specifications 1.0", 1991), RF64 and "ds64" (EBU Tech 3306), BW64 (ITU-R BS.2088), W64 (Sonic
/// Foundry, "Sony Wave64 File Format"), FORM (Apple, "Audio Interchange File Format AIFF-C", 1991).
/// @param header receives the byte order of the file
/// @return none for other files
/// @throws JobError when a header cannot be read
std::optional<ChunkList> ReadChunkList(HeaderReader& header, std::uint64_t fileBytes);

} // namespace kel::host
