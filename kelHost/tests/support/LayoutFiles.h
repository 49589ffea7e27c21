/// CAF and AIFF files with chunks that declare speakers.
#pragma once

#include "AudioFiles.h"
#include "DamagedFiles.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::test {

/// The content of such a chunk.
/// @param labels of the descriptions
inline std::string LayoutContent(std::uint32_t tag, std::uint32_t bitmap = 0,
                                 const std::vector<std::uint32_t>& labels = {}) {
    std::string content = BigEndian(tag, 4) + BigEndian(bitmap, 4) + BigEndian(labels.size(), 4);
    for (const std::uint32_t label : labels) {
        content += BigEndian(label, 4) + std::string(16, '\0');
    }
    return content;
}

/// A CAF file of 10 frames at 48000 Hz; the samples of each channel are its number.
/// @param layout content of the chunk "chan"; empty for no chunk
inline std::string MakeCAF(std::uint32_t channels, const std::string& layout) {
    constexpr std::size_t kFrames = 10;
    std::string samples;
    for (std::size_t i = 0; i < kFrames * channels; ++i) {
        samples += BigEndian(i % channels + 1, 2);
    }
    const std::string rate("\x40\xE7\x70\0\0\0\0\0", 8);
    const auto chunk = [](const std::string& name, const std::string& content) {
        return name + BigEndian(content.size(), 8) + content;
    };
    return "caff" + BigEndian(1, 2) + BigEndian(0, 2) +
           chunk("desc", rate + "lpcm" + BigEndian(0, 4) +
                             BigEndian(2 * std::uint64_t{channels}, 4) + BigEndian(1, 4) +
                             BigEndian(channels, 4) + BigEndian(16, 4)) +
           (layout.empty() ? "" : chunk("chan", layout)) +
           chunk("data", std::string(4, '\0') + samples);
}

} // namespace kel::test
