#include "transfer/FittingReader.h"

#include "audio/Formats.h"
#include "base/Errors.h"

#include <IAudioSample.h>
#include <IBuffer.h>
#include <MediaTime.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

namespace kel::host {

namespace {

constexpr std::int64_t kManyFrames = std::int64_t{1} << 28U;

// Delivers samples without content that have many frames.
class LongSamples final : public SampleReader {
public:
    SampleHandle Pull() override {
        const TimeLimits limits(MediaTime(EditRate(48000, 1), 0, nullptr), kManyFrames);
        return m_left-- > 0 ? CreateSampleContainer(
                                  CreateAudioSample(nullptr, nullptr,
                                                    CreateBuffer(nullptr, nullptr), limits, {}),
                                  nullptr)
                            : nullptr;
    }

private:
    int m_left = 3;
};

// Pulls all samples; returns their number.
int PullAll(WrapperFormat format, std::uint64_t valueBytes, std::uint64_t metadataBytes = 0) {
    FittingReader reader(std::make_unique<LongSamples>(), *FindContainer(format), "a\nb.wav", 2,
                         valueBytes, "the other", metadataBytes);
    int count = 0;
    while (reader.Pull() != nullptr) {
        ++count;
    }
    return count;
}

} // namespace

TEST(FittingReader, PassesOnWhatFits) {
    EXPECT_EQ(PullAll(WrapperFormat::WAVE, 2), 3);
    EXPECT_EQ(PullAll(WrapperFormat::BWAVE, 8), 3);
}

TEST(FittingReader, StopsBeforeTheSizesWrap) {
    try {
        PullAll(WrapperFormat::WAVE, 3);
        FAIL() << "goes on";
    } catch (const JobError& error) {
        EXPECT_EQ(DescribeError(error).message,
                  "a\\nb.wav: would have 4831838208 bytes of samples, and extensible WAVE holds at "
                  "most 4 GiB; use the other");
    }
}

TEST(FittingReader, CountsTheMetadata) {
    constexpr std::uint64_t kGiB = std::uint64_t{1} << 30U;
    EXPECT_EQ(PullAll(WrapperFormat::WAVE, 2, kGiB - 1000), 3);
    EXPECT_THROW(PullAll(WrapperFormat::WAVE, 2, kGiB), JobError);
}

} // namespace kel::host
