/// Numbers and names in the headers of audio files. One thread at a time.
#pragma once

#include "base/Descriptor.h"
#include "base/FileName.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The chunk header: a name and a size, each of four bytes.
inline constexpr std::uint64_t kChunkHeader = 8;

/// The first chunk follows the name, the size and the kind of the file.
inline constexpr std::uint64_t kFirstChunk = 12;

/// The 32-bit size of an RF64 file that means: the size is in the chunk "ds64".
inline constexpr std::uint64_t kSizeInDs64 = 0xFFFFFFFF;

/// A regular file, open for reading.
struct InputFile {
    Descriptor descriptor;
    std::uint64_t bytes = 0; ///< its length
};

/// Opens a file, unless it is missing, cannot be opened, or is not a regular file: opening a pipe
/// would take the place of its reader. If there is none, errno has the reason.
std::optional<InputFile> OpenRegularFile(const std::string& path);

/// Reads an open file at any offset. Bytes beyond its end read as 0. The part of the file that was
/// read last is kept, so that a header of many numbers needs few reads.
class HeaderReader {
public:
    /// @param file the file, for errors; outlives the reader
    /// @param failure the beginning of an error: "cannot read the file back"
    HeaderReader(const FileName& file, Descriptor descriptor, std::string failure);

    /// Sets the byte order of the numbers, which is little-endian at first.
    void SetBigEndian(bool bigEndian) { m_bigEndian = bigEndian; }

    /// Returns the four characters at an offset.
    /// @throws JobError when they cannot be read
    std::string Name(std::uint64_t offset) const;

    /// Returns an unsigned number.
    /// @param bytes 1 to 8
    /// @throws JobError when it cannot be read
    std::uint64_t Number(std::uint64_t offset, std::size_t bytes) const;

    /// Returns the bytes at an offset; fewer at the end of the file.
    /// @throws JobError when they cannot be read
    std::string Bytes(std::uint64_t offset, std::size_t count) const;

    /// Reads bytes, to find out whether that is possible.
    /// @throws JobError when one cannot be read
    void Skim(std::uint64_t offset, std::uint64_t bytes) const;

private:
    void Read(std::uint64_t offset, char* bytes, std::size_t count) const;
    bool IsKept(std::uint64_t offset, std::size_t count) const;
    bool Fill(std::uint64_t offset, std::size_t count) const;
    [[noreturn]] void Fail() const;

    const FileName& m_file;
    Descriptor m_descriptor;
    std::string m_failure;
    bool m_bigEndian = false;
    mutable std::vector<char> m_kept; // zeros follow the end of the file
    mutable std::uint64_t m_keptOffset = 0;
    mutable std::size_t m_keptBytes = 0; // of them, those that the file has
};

} // namespace kel::host
