/// The samples of a file as bytes, for checksums. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "container/SoundFile.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kel::host {

/// Reads the samples of a file, interleaved, as little-endian numbers that do not depend on the
/// container:
/// - Integers of n bits, packed or not, have as many whole bytes as n bits need and are
///   sign-extended. This is the definition of the MD5 in FLAC files (RFC 9639, section 8.2). 8-bit
///   values are unsigned where the file has them so, as in WAVE.
/// - Floating-point values have their 4 or 8 bytes.
/// - Values of lossy encodings are 32-bit floats, as the decoder delivers them.
class StoredSamples {
public:
    /// Opens a file.
    /// @throws JobError when it is not a regular file, cannot be opened, or has an unknown format
    explicit StoredSamples(const FileName& file);

    /// Number of channels.
    std::uint32_t Channels() const;

    /// Frames per second.
    std::uint32_t Rate() const;

    /// Number of frames that the file declares; missing when it does not.
    std::optional<std::int64_t> Frames() const;

    /// Frames that have been read.
    std::int64_t FramesRead() const { return m_framesRead; }

    /// Reads the next frames.
    /// @return their bytes, valid until the next call; empty at the end
    /// @throws JobError when the system fails to read the file, or a file that declares no number
    /// of frames is damaged
    const std::vector<unsigned char>& Read();

private:
    template <typename Value>
    void ReadWith(sf_count_t (*read)(SNDFILE*, Value*, sf_count_t));
    void ReadIntegers();

    SoundFile m_file;
    int m_encoding = 0; // as libsndfile numbers it
    std::int64_t m_framesRead = 0;
    std::vector<unsigned char> m_bytes;
};

} // namespace kel::host
