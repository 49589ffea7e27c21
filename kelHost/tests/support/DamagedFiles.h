/// Audio files that are damaged in ways that libraries do not expect.
#pragma once

#include "AudioFiles.h"

#include <TemporaryDirectory.h>

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

} // namespace kel::test
