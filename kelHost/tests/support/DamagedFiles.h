/// Audio files that are damaged in ways that libraries do not expect.
#pragma once

#include "AudioFiles.h"

#include <TemporaryDirectory.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::test {

/// A chunk of a WAVE file whose size is right.
inline std::string Chunk(const std::string& name, const std::string& content) {
    return name + LittleEndian(content.size(), 4) + content;
}

/// Writes a mono WAVE file of some hundred bytes with a list of texts, the size of one of which is
/// so near to 2^32 that libsndfile 1.2.0 looks for its end forever.
inline void WriteEndlessList(const std::string& path, std::uint32_t size = 0xFFFFFFF4) {
    const std::string format = LittleEndian(1, 2) + LittleEndian(1, 2) + LittleEndian(48000, 4) +
                               LittleEndian(96000, 4) + LittleEndian(2, 2) + LittleEndian(16, 2);
    const std::string list = "INFOabcd" + LittleEndian(size, 4) + std::string(16, '\0');
    WriteFile(path, Chunk("RIFF", "WAVE" + Chunk("fmt ", format) + Chunk("LIST", list) +
                                      Chunk("data", std::string(16, '\0'))));
}

/// Has a FLAC file declare no number of frames, as a recorder does that does not go back to its
/// header. The number has 36 bits in the first metadata block.
inline void ForgetLength(const std::string& path) {
    constexpr std::size_t kNumber = 21;
    std::string bytes = ReadFile(path);
    bytes.at(kNumber) = static_cast<char>(static_cast<unsigned char>(bytes.at(kNumber)) & 0xF0U);
    WriteFile(path, bytes.replace(kNumber + 1, 4, 4, '\0'));
}

/// A FLAC file with the samples of WriteTake that declares no number of frames.
inline void WriteEndlessTake(const std::string& path, std::size_t frames = 1000) {
    WriteAudio(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2 * frames));
    ForgetLength(path);
}

} // namespace kel::test
