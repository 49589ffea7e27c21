/// Files with known samples, sources that have their settings, and the parts of a sample.
#pragma once

#include "Records.h"

#include <Plugin.h>
#include <TemporaryDirectory.h>
#include <kelCore.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::test {

inline const std::string kSourceNotConfigured =
    "[LibsndfileSource needs SetInitConfig first] [ Pointer is null ]";

inline const std::string kOpenedTwice = "[Cannot open a file twice.] [ Condition is not true ]";

/// Runs an operation that the source must refuse.
template <typename Operation>
void ExpectSourceRefusal(const std::string& message, Operation operation,
                         const Lines& before = {}) {
    ExpectRefusal(message, kSourceFile, operation, before);
}

/// The wide form of a path.
inline std::wstring Wide(const std::string& path) {
    return ConvertPlatformStringToWideString(path);
}

/// The record of an opened file.
inline Line OpenedLine(const std::string& name, std::int64_t channels, std::int64_t frames,
                       std::int64_t format) {
    return {LogLevel::Info,
            "Successfully opened \"" + name + "\" -- nb channels: " + std::to_string(channels) +
                " nb samples (in each channel): " + std::to_string(frames) +
                " format: " + std::to_string(format),
            kSourceFile};
}

/// The record of the allocator that a source makes.
inline Line AllocatorLine() {
    return {LogLevel::Milestone,
            "[MILESTONE][ImplementElement " + GetLabel(ElementFactoryType::MemoryBlockAllocator) +
                ".kel.Recycler]",
            "kelCore/include/WorkflowStepImplementation.h"};
}

/// The shape of a file.
struct Shape {
    std::uint32_t channels = 2;
    std::uint32_t rate = 44100;
    std::uint32_t frames = 2500;
};

/// The format of the files that WaveBytes makes.
constexpr int kWaveFormat = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

/// The 16-bit sample at a place in a file: all values of the first 65536 are different.
inline std::int16_t SampleAt(std::uint32_t index) {
    const auto bits = static_cast<std::uint16_t>(index);
    std::int16_t value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// The bytes of a WAVE file of 16-bit samples.
inline std::string WaveBytes(const Shape& shape) {
    std::string bytes;
    const auto append = [&bytes](std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i) {
            bytes.push_back(static_cast<char>(value >> (8 * i)));
        }
    };
    const std::uint32_t frameBytes = shape.channels * 2;
    const std::uint32_t dataBytes = frameBytes * shape.frames;
    bytes += "RIFF";
    append(36 + dataBytes, 4);
    bytes += "WAVEfmt ";
    append(16, 4);
    append(1, 2); // integer samples
    append(shape.channels, 2);
    append(shape.rate, 4);
    append(shape.rate * frameBytes, 4);
    append(frameBytes, 2);
    append(16, 2);
    bytes += "data";
    append(dataBytes, 4);
    for (std::uint32_t i = 0; i < shape.frames * shape.channels; ++i) {
        append(static_cast<std::uint16_t>(SampleAt(i)), 2);
    }
    return bytes;
}

/// Writes a WAVE file into a directory.
/// @returns its path
inline std::string WriteWave(const TemporaryDirectory& directory, const Shape& shape = {},
                             const std::string& name = "audio.wav") {
    const std::string path = directory / name;
    WriteFile(path, WaveBytes(shape));
    return path;
}

/// The values that a source delivers of such a file, from a frame on.
inline std::vector<float> ExpectedValues(const Shape& shape, std::uint32_t first,
                                         std::uint32_t frames) {
    std::vector<float> values;
    for (std::uint32_t i = 0; i < frames * shape.channels; ++i) {
        values.push_back(static_cast<float>(SampleAt(first * shape.channels + i)) / 32768.0F);
    }
    return values;
}

/// Settings that name no file.
inline std::shared_ptr<IParametersCollectionInstance> MakeReadSettings(std::int32_t maxFrames) {
    auto settings = MakeSourceSettings();
    settings->SetIntegerValue("MaxSamplesPerBuffer", maxFrames);
    return settings;
}

/// A source that has its settings and no file.
inline std::shared_ptr<IAudioSource> MakeConfiguredSource(std::int32_t maxFrames = 1024) {
    auto source = MakeSource();
    source->SetInitConfig(MakeReadSettings(maxFrames));
    return source;
}

/// A media time in frames of a rate.
inline MediaTime Frames(std::int64_t number, const EditRate& rate) {
    return {rate, number, nullptr};
}

/// The one audio sample of a container.
inline std::shared_ptr<const IAudioSample>
OnlySample(const std::shared_ptr<const ISampleContainer>& container) {
    if (container == nullptr) {
        ADD_FAILURE() << "nothing was delivered";
        return nullptr;
    }
    const auto samples = container->GetAudioSamples(nullptr, nullptr);
    EXPECT_EQ(samples.size(), 1U);
    return samples.empty() ? nullptr : samples[0];
}

/// The time of a sample, and the size of its buffer.
struct Stamp {
    std::int64_t start = 0;
    std::int64_t duration = 0;
    std::uint32_t bytes = 0;
};

inline bool operator==(const Stamp& left, const Stamp& right) {
    return left.start == right.start && left.duration == right.duration &&
           left.bytes == right.bytes;
}

inline void PrintTo(const Stamp& stamp, std::ostream* stream) {
    *stream << stamp.duration << " frames from " << stamp.start << " in " << stamp.bytes
            << " bytes";
}

inline Stamp StampOf(const std::shared_ptr<const ISampleContainer>& container) {
    const auto sample = OnlySample(container);
    if (sample == nullptr) {
        return {};
    }
    const TimeLimits& limits = sample->GetTimeLimits();
    return {limits.start.GetTimeNumber(), limits.duration, sample->GetBuffer()->GetSize()};
}

inline std::vector<float> ValuesOf(const std::shared_ptr<const ISampleContainer>& container) {
    const auto sample = OnlySample(container);
    if (sample == nullptr) {
        return {};
    }
    const auto buffer = sample->GetBuffer();
    std::vector<float> values(buffer->GetSize() / sizeof(float));
    std::memcpy(values.data(), buffer->GetData(), values.size() * sizeof(float));
    return values;
}

} // namespace kel::test
