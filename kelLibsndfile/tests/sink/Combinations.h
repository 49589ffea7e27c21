/// Every container with every encoding and byte order, and audio to write in it.
#pragma once

#include "SinkTestSupport.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

/// A container with a PCM layout.
struct Combination {
    std::string name;
    std::string type; ///< the container, as manifests name it
    Layout layout;
};

/// How test listings show it.
inline void PrintTo(const Combination& combination, std::ostream* stream) {
    *stream << combination.name;
}

inline std::string NameOf(const ::testing::TestParamInfo<Combination>& info) {
    return info.param.name;
}

/// The five encodings in one container and byte order.
inline std::vector<Combination> EncodingsIn(const std::string& type, PCMEndianness endianness) {
    const struct {
        std::string name;
        AudioPCMType pcmType;
        int bits;
    } encodings[] = {{"Integer16", AudioPCMType::Integer, 16},
                     {"Integer24", AudioPCMType::Integer, 24},
                     {"Integer32", AudioPCMType::Integer, 32},
                     {"Float32", AudioPCMType::Float, 32},
                     {"Float64", AudioPCMType::Float, 64}};
    std::vector<Combination> combinations;
    for (const auto& encoding : encodings) {
        Layout layout;
        layout.type = encoding.pcmType;
        layout.bits = static_cast<std::uint8_t>(encoding.bits);
        layout.bytes = static_cast<std::uint8_t>(encoding.bits / 8);
        layout.endianness = endianness;
        combinations.push_back(
            {type + encoding.name + (endianness == PCMEndianness::Little ? "Little" : "Big"), type,
             layout});
    }
    return combinations;
}

/// All thirty.
inline std::vector<Combination> AllCombinations() {
    std::vector<Combination> all;
    for (const std::string type : {"WAVE", "BWAVE", "AIFF"}) {
        for (const auto endianness : {PCMEndianness::Little, PCMEndianness::Big}) {
            for (const Combination& combination : EncodingsIn(type, endianness)) {
                all.push_back(combination);
            }
        }
    }
    return all;
}

/// Whether the format of the container has such samples: WAVE little-endian ones, AIFF integers.
inline bool IsWritable(const Combination& combination) {
    return combination.type == "AIFF" ? combination.layout.type == AudioPCMType::Integer
                                      : combination.layout.endianness == PCMEndianness::Little;
}

/// Those that can be written.
inline std::vector<Combination> WritableCombinations() {
    std::vector<Combination> writable;
    for (const Combination& combination : AllCombinations()) {
        if (IsWritable(combination)) {
            writable.push_back(combination);
        }
    }
    return writable;
}

/// The numbers of channels that files are written with. The rate is another one for each.
inline const std::vector<std::uint32_t> kChannelCounts{1, 2, 6};

inline Layout WithChannels(Layout layout, std::uint32_t channels) {
    layout.channels = channels;
    layout.rate = channels == 1 ? 44100 : channels == 2 ? 48000 : 96000;
    return layout;
}

/// Sample values from -1 to just below 1 that the layout holds exactly: integers of its depth, and
/// for floating point values that 16-bit integers hold as well.
inline std::vector<double> MakeValues(const Layout& layout, std::size_t count) {
    const int bits = layout.type == AudioPCMType::Integer ? layout.bits : 16;
    std::vector<double> values;
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525U + 1013904223U;
        const auto integer = static_cast<std::int64_t>(state >> (32 - bits));
        values.push_back(std::ldexp(static_cast<double>(integer), 1 - bits) - 1.0);
    }
    return values;
}

/// The bytes of sample values in a layout.
inline std::string Encode(const std::vector<double>& values, const Layout& layout) {
    std::string bytes;
    for (const double value : values) {
        std::uint64_t word = 0;
        if (layout.type == AudioPCMType::Integer) {
            word = static_cast<std::uint64_t>(std::llround(std::ldexp(value, layout.bits - 1)));
        } else if (layout.bits == 32) {
            const auto single = static_cast<float>(value);
            std::uint32_t half = 0;
            std::memcpy(&half, &single, sizeof half);
            word = half;
        } else {
            std::memcpy(&word, &value, sizeof word);
        }
        for (int i = 0; i < layout.bytes; ++i) {
            const int index = layout.endianness == PCMEndianness::Little ? i : layout.bytes - 1 - i;
            bytes.push_back(static_cast<char>(word >> (8 * index)));
        }
    }
    return bytes;
}

/// Writes a file of these bytes through a sink, in several samples of whole frames.
inline void WriteThroughSink(const std::string& path, const std::string& type, const Layout& layout,
                             const std::string& bytes) {
    const auto sink = MakeWritingSink(path, layout, type);
    const std::size_t frame = std::size_t{layout.bytes} * layout.channels;
    std::size_t frames = 1;
    for (std::size_t at = 0; at < bytes.size(); ++frames) {
        const std::string part = bytes.substr(at, frames * frame);
        ExpectRecords({}, [&] { sink->PushSample(MakeContainer(part)); });
        at += part.size();
    }
    sink->Close(false);
}

} // namespace kel::test
