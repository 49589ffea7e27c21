// What one sample costs on its way from a source to a sink.

#include "AudioFiles.h"
#include "HeapCounts.h"

#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

// What GetSample makes anew at each call, each together with its shared handle's control block:
// - the IBuffer of CreateBuffer,
// - the IAudioSample of CreateAudioSample,
// - the ISampleContainer of CreateSampleContainer.
// The bytes, their IMemoryBlock and its control block lie in one piece of memory, which the pool
// gives out again.
constexpr std::size_t kObjectsOfOneSample = 3;

// What PushSample makes: the vector of samples that GetAudioSamples returns.
constexpr std::size_t kObjectsOfOnePush = 1;

constexpr int kChannels = 2;
constexpr int kHertz = 48000;

// A file of so many whole samples.
void WriteSamples(const std::string& path, int samples, int framesPerSample) {
    const auto values = static_cast<std::size_t>(samples) *
                        static_cast<std::size_t>(framesPerSample) *
                        static_cast<std::size_t>(kChannels);
    WriteAudioFile(path, MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_PCM_16, kChannels, kHertz),
                   std::vector<float>(values, 0.25F));
}

class SampleAllocations : public testing::TestWithParam<int> {
protected:
    static constexpr int kSamples = 10;

    // The first samples fill the pool.
    std::shared_ptr<IAudioSource> OpenWarmSource() {
        const std::string path = m_directory / "in.wav";
        WriteSamples(path, kSamples, GetParam());
        auto source = OpenSource(path, GetParam());
        for (int i = 0; i < 2; ++i) {
            EXPECT_NE(source->GetSample(), nullptr);
        }
        return source;
    }

    std::shared_ptr<IAudioSink> OpenWarmSink(IAudioSource& source) {
        auto settings = MakeSinkSettings();
        settings->SetStringValue("FilePath", m_directory / "out.wav");
        auto sink = MakeSink();
        sink->SetInitConfig(settings);
        sink->DefineInput(source.GetDefinedOutput(""), "");
        sink->PushSample(source.GetSample());
        return sink;
    }

private:
    TemporaryDirectory m_directory;
};

TEST_P(SampleAllocations, OfGetSampleAreItsThreeObjectsAndNoBlock) {
    const auto source = OpenWarmSource();
    for (int i = 2; i < kSamples; ++i) {
        std::shared_ptr<const ISampleContainer> container;
        EXPECT_EQ(CountHeapUse([&] { container = source->GetSample(); }),
                  (HeapCounts{kObjectsOfOneSample, 0}));
        ASSERT_NE(container, nullptr);
    }
}

TEST_P(SampleAllocations, OfGetSampleAtTheEndAreTheBufferAlone) {
    const auto source = OpenWarmSource();
    for (int i = 2; i < kSamples; ++i) {
        ASSERT_NE(source->GetSample(), nullptr);
    }
    for (int i = 0; i < 2; ++i) {
        std::shared_ptr<const ISampleContainer> container;
        EXPECT_EQ(CountHeapUse([&] { container = source->GetSample(); }), (HeapCounts{1, 0}));
        EXPECT_EQ(container, nullptr);
    }
}

TEST_P(SampleAllocations, OfGetSampleAndPushSampleAreThoseAndTheVectorOfSamples) {
    const auto source = OpenWarmSource();
    const auto sink = OpenWarmSink(*source);
    for (int i = 3; i < kSamples; ++i) {
        EXPECT_EQ(CountHeapUse([&] { sink->PushSample(source->GetSample()); }),
                  (HeapCounts{kObjectsOfOneSample + kObjectsOfOnePush, 0}));
    }
    EXPECT_EQ(source->GetSample(), nullptr);
    sink->Close(false);
}

INSTANTIATE_TEST_SUITE_P(Frames, SampleAllocations, testing::Values(256, 1024, 16384),
                         testing::PrintToStringParamName());

// Reads a whole file, and holds so many samples back, as a queue between two threads does.
std::size_t BlocksOfReading(int samples, std::size_t heldSamples) {
    constexpr int kFramesPerSample = 256;
    const TemporaryDirectory directory;
    const std::string path = directory / "in.wav";
    WriteSamples(path, samples, kFramesPerSample);
    const auto source = OpenSource(path, kFramesPerSample);
    std::deque<std::shared_ptr<const ISampleContainer>> held;
    int delivered = 0;
    const HeapCounts counts = CountHeapUse([&] {
        while (auto container = source->GetSample()) {
            ++delivered;
            held.push_back(std::move(container));
            if (held.size() > heldSamples) {
                held.pop_front();
            }
        }
    });
    EXPECT_EQ(delivered, samples);
    return counts.aligned;
}

class FileAllocations : public testing::TestWithParam<int> {};

TEST_P(FileAllocations, AreOneBlockWhenEachSampleIsDroppedBeforeTheNext) {
    EXPECT_EQ(BlocksOfReading(GetParam(), 0), 1U);
}

TEST_P(FileAllocations, AreOneBlockForEachSampleHeldAndOneForTheNext) {
    EXPECT_EQ(BlocksOfReading(GetParam(), 1), 2U);
    EXPECT_EQ(BlocksOfReading(GetParam(), 7), 8U);
}

INSTANTIATE_TEST_SUITE_P(Samples, FileAllocations, testing::Values(10, 1000),
                         testing::PrintToStringParamName());

// The numbers above are worth something only if nothing goes past the counters.
TEST(HeapCounting, SeesBothKindsInTheFrameworkAndThePlugin) {
    std::shared_ptr<IBuffer> buffer;
    EXPECT_EQ(CountHeapUse([&] { buffer = CreateBuffer(nullptr, nullptr); }), (HeapCounts{1, 0}));
    EXPECT_EQ(CountHeapUse([&] { buffer->Reserve(1); }), (HeapCounts{0, 1}));

    LoadPlugin();
    const auto factory = std::dynamic_pointer_cast<ElementFactory<ElementFactoryType::AudioSource>>(
        GetFactory(ElementFactoryType::AudioSource, "kel.LibsndfileSource", "WAVE"));
    ASSERT_NE(factory, nullptr);
    std::shared_ptr<IAudioSource> source;
    EXPECT_EQ(CountHeapUse([&] { source = factory->creator(nullptr); }), (HeapCounts{1, 0}));
}

} // namespace
} // namespace kel::test
