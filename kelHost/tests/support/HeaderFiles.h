/// Mono 16-bit files at 8000 Hz with the sizes that a test chooses.
#pragma once

#include "AudioFiles.h"
#include "DamagedFiles.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kel::test {

/// A size to write instead of the right one.
using WrongSize = std::optional<std::uint64_t>;

/// Samples whose bytes are not those of chunk names.
inline std::string MakeSamples(std::size_t frames = 100, bool bigEndian = false) {
    std::string samples;
    for (std::size_t i = 0; i < frames; ++i) {
        const std::uint64_t value = (0x81F3 + 7 * i) & 0xFFFFU;
        samples += bigEndian ? BigEndian(value, 2) : LittleEndian(value, 2);
    }
    return samples;
}

/// The chunk "fmt " of the files.
inline std::string FormatOfSamples(bool bigEndian = false) {
    const auto number = [&](std::uint64_t value, std::size_t bytes) {
        return bigEndian ? BigEndian(value, bytes) : LittleEndian(value, bytes);
    };
    return "fmt " + number(16, 4) + number(1, 2) + number(1, 2) + number(8000, 4) +
           number(16000, 4) + number(2, 2) + number(16, 2);
}

/// A list of texts, which programs write after the samples.
inline std::string TitleChunk() {
    return Chunk("LIST", "INFO" + Chunk("INAM", "take"));
}

/// A WAVE file; "RIFX" has big-endian numbers.
/// @param after chunks after the samples
inline std::string MakeWave(WrongSize file, WrongSize data, const std::string& after = "",
                            const std::string& form = "RIFF") {
    const bool big = form == "RIFX";
    const auto size = [&](std::uint64_t number) {
        return big ? BigEndian(number, 4) : LittleEndian(number, 4);
    };
    const std::string samples = MakeSamples(100, big);
    const std::string content = "WAVE" + FormatOfSamples(big) + "data" +
                                size(data.value_or(samples.size())) + samples + after;
    return form + size(file.value_or(content.size())) + content;
}

/// An RF64 or BW64 file.
/// @param tableBytes of the chunk "ds64"
inline std::string MakeRF64(WrongSize file, WrongSize data, const std::string& form = "RF64",
                            std::size_t tableBytes = 28, const std::string& after = "") {
    constexpr std::uint64_t kInTable = 0xFFFFFFFF;
    const std::string samples = MakeSamples();
    const std::string chunks =
        FormatOfSamples() + "data" + LittleEndian(kInTable, 4) + samples + after;
    const std::uint64_t bytes = 4 + 8 + tableBytes + chunks.size();
    const std::string sizes = LittleEndian(file.value_or(bytes), 8) +
                              LittleEndian(data.value_or(samples.size()), 8) +
                              LittleEndian(samples.size() / 2, 8) + LittleEndian(0, 4);
    return form + LittleEndian(kInTable, 4) + "WAVE" + Chunk("ds64", sizes.substr(0, tableBytes)) +
           chunks;
}

/// A W64 file. Its sizes include the headers of their chunks.
inline std::string MakeW64(WrongSize file, WrongSize data) {
    const auto hex = [](std::string_view digits) {
        std::string bytes;
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            bytes.push_back(
                static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16)));
        }
        return bytes;
    };
    const std::string guid = hex("f3acd3118cd100c04f8edb8a");
    const std::string samples = MakeSamples();
    const std::string chunks = "fmt " + guid + LittleEndian(24 + 16, 8) +
                               FormatOfSamples().substr(8) + "data" + guid +
                               LittleEndian(data.value_or(24 + samples.size()), 8) + samples;
    return "riff" + hex("2e91cf11a5d628db04c10000") +
           LittleEndian(file.value_or(40 + chunks.size()), 8) + "wave" + guid + chunks;
}

/// An AIFF file.
/// @param frames in the chunk "COMM"
inline std::string MakeAIFF(WrongSize file, WrongSize data, WrongSize frames = std::nullopt,
                            const std::string& after = "") {
    const std::string samples = MakeSamples(100, true);
    const std::string rate("\x40\x0b\xfa\0\0\0\0\0\0\0", 10);
    const std::string content =
        "AIFFCOMM" + BigEndian(18, 4) + BigEndian(1, 2) +
        BigEndian(frames.value_or(samples.size() / 2), 4) + BigEndian(16, 2) + rate + "SSND" +
        BigEndian(data.value_or(8 + samples.size()), 4) + std::string(8, '\0') + samples + after;
    return "FORM" + BigEndian(file.value_or(content.size()), 4) + content;
}

/// An AU file.
inline std::string MakeAU(WrongSize data) {
    const std::string samples = MakeSamples(100, true);
    return ".snd" + BigEndian(24, 4) + BigEndian(data.value_or(samples.size()), 4) +
           BigEndian(3, 4) + BigEndian(8000, 4) + BigEndian(1, 4) + samples;
}

/// A CAF file of 100 frames.
/// @param size of the chunk "data", with the four bytes before the samples
/// @param bits per value, in four bytes
inline std::string MakeSizedCAF(std::uint64_t size, const std::string& bits = BigEndian(16, 4)) {
    const std::string rate("\x40\xBF\x40\0\0\0\0\0", 8);
    return "caff" + BigEndian(1, 2) + BigEndian(0, 2) + "desc" + BigEndian(32, 8) + rate + "lpcm" +
           BigEndian(0, 4) + BigEndian(2, 4) + BigEndian(1, 4) + BigEndian(1, 4) + bits + "data" +
           BigEndian(size, 8) + std::string(4, '\0') + MakeSamples(100, true);
}

/// A block of a VOC file.
/// @param size to declare
inline std::string VOCBlock(unsigned type, const std::string& content,
                            WrongSize size = std::nullopt) {
    return static_cast<char>(type) + LittleEndian(size.value_or(content.size()), 3) + content;
}

/// A block of sound in VOC files of version 1.20.
inline std::string VOCSound(const std::string& samples, WrongSize size = std::nullopt,
                            std::uint64_t bits = 16, std::uint64_t codec = 4,
                            std::uint64_t rate = 8000) {
    return VOCBlock(9,
                    LittleEndian(rate, 4) + LittleEndian(bits, 1) + LittleEndian(1, 1) +
                        LittleEndian(codec, 2) + LittleEndian(0, 4) + samples,
                    size);
}

/// A block of sound in VOC files of older versions, at 8000 Hz.
inline std::string OldVOCSound(const std::string& samples, std::uint64_t codec = 4) {
    constexpr std::uint64_t k8000Hz = 256 - 125; // microseconds
    return VOCBlock(1, LittleEndian(k8000Hz, 1) + LittleEndian(codec, 1) + samples);
}

/// A block of silence at 8000 Hz.
inline std::string VOCSilence(std::uint64_t frames) {
    constexpr std::uint64_t k8000Hz = 256 - 125;
    return VOCBlock(3, LittleEndian(frames - 1, 2) + LittleEndian(k8000Hz, 1));
}

/// The block that ends a VOC file.
inline const std::string kVOCEnd(1, '\0');

/// A VOC file.
inline std::string MakeVOC(const std::string& blocks) {
    return "Creative Voice File\x1A" + LittleEndian(26, 2) + LittleEndian(0x0114, 2) +
           LittleEndian(0x111F, 2) + blocks;
}

} // namespace kel::test
