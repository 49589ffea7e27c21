#include "analysis/Meter.h"

#include <IAudioSample.h>
#include <IBuffer.h>
#include <IMemoryBlockAllocator.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kel::host {

namespace {

SampleHandle MakeSample(float value) {
    const auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(sizeof(value));
    std::memcpy(buffer->GetData(), &value, sizeof(value));
    buffer->SetSize(sizeof(value));
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, buffer, TimeLimits(), {}),
                                 nullptr);
}

// Keeps all values, and fails at one.
class Recorder final : public Meter {
public:
    explicit Recorder(float refused = -1) : m_refused(refused) {}

    void Add(const FloatView& floats) override {
        for (std::size_t i = 0; i < floats.count; ++i) {
            if (floats.values[i] == m_refused) {
                throw std::runtime_error("refused");
            }
            values.push_back(floats.values[i]);
        }
    }

    std::vector<float> values;

private:
    float m_refused;
};

constexpr int kSamples = 1000;

void AddAll(MeterThreads& threads) {
    for (int i = 0; i < kSamples; ++i) {
        threads.Add(MakeSample(static_cast<float>(i)));
    }
    threads.Finish();
}

} // namespace

class MetersWithAndWithoutThreads : public testing::TestWithParam<bool> {};

TEST_P(MetersWithAndWithoutThreads, ReceiveAllSamplesInTheirOrder) {
    Recorder first;
    Recorder second;
    MeterThreads threads({&first, &second}, GetParam());
    AddAll(threads);
    std::vector<float> expected;
    for (int i = 0; i < kSamples; ++i) {
        expected.push_back(static_cast<float>(i));
    }
    EXPECT_EQ(first.values, expected);
    EXPECT_EQ(second.values, expected);
}

// At the first sample, one amid others, and the last one.
TEST_P(MetersWithAndWithoutThreads, PassOnTheExceptionOfOne) {
    for (const int refused : {0, kSamples / 2, kSamples - 1}) {
        Recorder first;
        Recorder second(static_cast<float>(refused));
        MeterThreads threads({&first, &second}, GetParam());
        try {
            AddAll(threads);
            ADD_FAILURE() << "goes on after " << refused;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "refused");
        }
        EXPECT_EQ(second.values.size(), static_cast<std::size_t>(refused));
    }
}

TEST_P(MetersWithAndWithoutThreads, EndWithoutFinishing) {
    Recorder meter;
    {
        MeterThreads threads({&meter}, GetParam());
        threads.Add(MakeSample(1));
    }
    EXPECT_LE(meter.values.size(), 1U);
}

TEST_P(MetersWithAndWithoutThreads, MeasureWhatIsLeftWhenTheyFinish) {
    class SlowMeter final : public Meter {
    public:
        void Add(const FloatView& /*floats*/) override {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ++samples;
        }
        int samples = 0;
    };
    SlowMeter meter;
    MeterThreads threads({&meter}, GetParam());
    for (int i = 0; i < 4; ++i) {
        threads.Add(MakeSample(1));
    }
    threads.Finish();
    EXPECT_EQ(meter.samples, 4);
}

INSTANTIATE_TEST_SUITE_P(Meters, MetersWithAndWithoutThreads, testing::Bool(),
                         [](const auto& test) { return test.param ? "With" : "Without"; });

} // namespace kel::host
