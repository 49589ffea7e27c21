/// Facts about a source that has just opened a file. One thread at a time.
#pragma once

#include "base/FileState.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Facts that differ when the header of a file was read differently.
struct OpeningFacts {
    std::optional<std::int64_t> frames; ///< missing when the source does not know them
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;               ///< frames per second
    std::vector<std::uint64_t> positions; ///< of the source's descriptors, in bytes

    bool operator==(const OpeningFacts& other) const {
        return frames == other.frames && channels == other.channels && rate == other.rate &&
               positions == other.positions;
    }
};

/// Returns the facts in words: "100 frames, 2 channels and 48000 Hz from byte 44".
std::string Describe(const OpeningFacts& facts);

/// Finds the positions at which a source reads a file. A source positions its descriptor at the
/// first sample, so that the position shows where it looks for samples. Descriptors that exist
/// before are not its own.
class OpenPositions {
public:
    /// Notes which descriptors the source may open: the system assigns the lowest free numbers.
    explicit OpenPositions(const FileState& file);

    /// Size of the file in bytes, before it was opened.
    std::uint64_t FileBytes() const { return m_file.Bytes(); }

    /// Returns the positions of the descriptors of the file that exist since then.
    std::vector<std::uint64_t> New() const;

private:
    FileState m_file;
    std::vector<int> m_free; // numbers that new descriptors may get
};

} // namespace kel::host
