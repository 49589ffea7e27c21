// Writes a file of any size through the sink, as RF64, reads it back through the source and
// compares every value. No two neighbours of a value, near or far, have its number, so that
// each lost, repeated or moved value is found.
//
// usage: kelBigFile FILE int16|float32 CHANNELS HERTZ FRAMES

#include <Plugin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

constexpr std::uint32_t kFramesPerSample = 16384;

// The file that is written.
struct BigFile {
    std::string path;
    bool isFloat;
    std::uint32_t channels;
    std::uint32_t hertz;
    std::int64_t frames;
};

// The 16-bit value at a place, counted in values from the start of the file.
std::int16_t ValueAt(std::uint64_t place) {
    const auto bits = static_cast<std::uint16_t>(place * 0x9E3779B97F4A7C15U >> 48U);
    std::int16_t value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

float AsFloat(std::int16_t value) {
    return static_cast<float>(value) / 32768.0F; // exact
}

template <typename Value>
void Fill(IBuffer& buffer, std::uint64_t firstPlace, std::size_t count) {
    auto* values = reinterpret_cast<Value*>(buffer.GetData());
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (std::is_same_v<Value, float>) {
            values[i] = AsFloat(ValueAt(firstPlace + i));
        } else {
            values[i] = ValueAt(firstPlace + i);
        }
    }
}

// Keeps the first record of an error.
class FirstError final : public ILoggerWriter {
public:
    void Write(LogLevel level, const char* message, const char* /*context*/, const char* /*file*/,
               const char* /*line*/, const char* /*reserved*/, const char* /*threadId*/,
               const char* /*time*/) override {
        if (level == LogLevel::Error && m_message.empty()) {
            m_message = message;
        }
    }

    const std::string& Message() const { return m_message; }

private:
    std::string m_message;
};

void Write(const BigFile& file) {
    const auto bytes = static_cast<std::uint8_t>(file.isFloat ? 4 : 2);
    const Layout layout{file.isFloat ? AudioPCMType::Float : AudioPCMType::Integer,
                        bytes,
                        static_cast<std::uint8_t>(8 * bytes),
                        PCMEndianness::Little,
                        PCMMuxing::Multi,
                        file.hertz,
                        file.channels};
    const auto sink = MakeSink("BWAVE");
    auto settings = MakeSinkSettings();
    settings->SetStringValue("FilePath", file.path);
    sink->SetInitConfig(settings);
    sink->DefineInput(MakeInput(layout), "");
    const auto allocator =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
    for (std::int64_t frame = 0; frame < file.frames; frame += kFramesPerSample) {
        const auto count = static_cast<std::size_t>(
                               std::min<std::int64_t>(kFramesPerSample, file.frames - frame)) *
                           file.channels;
        const auto size = static_cast<std::uint32_t>(count * bytes);
        auto buffer = CreateBuffer(allocator, nullptr);
        buffer->Reserve(size);
        const std::uint64_t firstPlace = static_cast<std::uint64_t>(frame) * file.channels;
        if (file.isFloat) {
            Fill<float>(*buffer, firstPlace, count);
        } else {
            Fill<std::int16_t>(*buffer, firstPlace, count);
        }
        buffer->SetSize(size);
        sink->PushSample(CreateSampleContainer(
            CreateAudioSample(nullptr, nullptr, std::move(buffer), TimeLimits(), {}), nullptr));
    }
    sink->Close(false);
}

void Require(bool condition, const std::string& text) {
    if (!condition) {
        throw std::runtime_error(text);
    }
}

void Compare(const float* values, std::uint64_t firstPlace, std::size_t count,
             std::uint32_t channels) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t place = firstPlace + i;
        if (values[i] != AsFloat(ValueAt(place))) {
            throw std::runtime_error("frame " + std::to_string(place / channels) + ", channel " +
                                     std::to_string(place % channels) + " is not what was written");
        }
    }
}

void ReadBack(const BigFile& file) {
    const auto source = OpenSource(file.path, kFramesPerSample);
    const TimeLimits limits = source->GetTimeLimits("");
    Require(limits.duration == file.frames,
            "the file has " + std::to_string(limits.duration) + " frames");
    Require(limits.start.GetEditRate().numerator == file.hertz, "the file has another rate");
    std::int64_t frame = 0;
    while (const auto container = source->GetSample()) {
        const auto sample = container->GetAudioSamples(nullptr, nullptr).front();
        const std::int64_t frames = sample->GetTimeLimits().duration;
        Require(sample->GetTimeLimits().start.GetTimeNumber() == frame, "a stamp is wrong");
        const auto buffer = sample->GetBuffer();
        const auto count = static_cast<std::size_t>(frames) * file.channels;
        Require(buffer->GetSize() == count * sizeof(float), "a sample has another size");
        Compare(reinterpret_cast<const float*>(buffer->GetData()),
                static_cast<std::uint64_t>(frame) * file.channels, count, file.channels);
        frame += frames;
    }
    Require(frame == file.frames, "only " + std::to_string(frame) + " frames can be read");

    // Its last frames, by a seek over all the others.
    const std::int64_t tail = std::min<std::int64_t>(file.frames, 1000);
    MediaTime time = limits.start;
    time.SetTimeNumber(file.frames - tail);
    source->GotoTimeOffset(time, "");
    const auto sample = source->GetSample()->GetAudioSamples(nullptr, nullptr).front();
    Require(sample->GetTimeLimits().duration == tail, "the seek went elsewhere");
    Compare(reinterpret_cast<const float*>(sample->GetBuffer()->GetData()),
            static_cast<std::uint64_t>(file.frames - tail) * file.channels,
            static_cast<std::size_t>(tail) * file.channels, file.channels);
}

BigFile Parse(const std::vector<std::string>& arguments) {
    Require(arguments.size() == 5 && (arguments[1] == "int16" || arguments[1] == "float32"),
            "usage: kelBigFile FILE int16|float32 CHANNELS HERTZ FRAMES");
    return {arguments[0], arguments[1] == "float32",
            static_cast<std::uint32_t>(std::stoul(arguments[2])),
            static_cast<std::uint32_t>(std::stoul(arguments[3])), std::stoll(arguments[4])};
}

} // namespace
} // namespace kel::test

int main(int argc, char** argv) {
    using namespace kel::test;
    try {
        const BigFile file = Parse(std::vector<std::string>(argv + 1, argv + argc));
        const auto error = std::make_shared<FirstError>();
        kel::SetCurrentLoggerWriter(error);
        Write(file);
        Require(error->Message().empty(), error->Message());
        std::cout << "written: " << file.frames << " frames of " << file.channels << " channels\n"
                  << std::flush;
        ReadBack(file);
        Require(error->Message().empty(), error->Message());
        std::cout << "read back: " << static_cast<std::uint64_t>(file.frames) * file.channels
                  << " values, all as they were written\n";
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "kelBigFile: " << error.what() << "\n";
        return 1;
    }
}
