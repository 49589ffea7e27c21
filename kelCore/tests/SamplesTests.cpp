#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kThisModule = "kelCore/Samples.cpp";

class OtherSample final : public ISample {};
/// An audio sample that the framework did not make.
class OwnAudioSample final : public IAudioSample {
public:
    explicit OwnAudioSample(std::shared_ptr<const IAudioInfo> info) : m_info(std::move(info)) {}

    std::shared_ptr<const IBuffer> GetBuffer() const override { return nullptr; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override { return nullptr; }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return m_info; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

private:
    std::shared_ptr<const IAudioInfo> m_info;
    TimeLimits m_limits;
};

class Packaging final : public IPackagingInfo {};
class Metadata final : public IMetadata {};
class Clock final : public IClockInfo {};

using SampleHandle = std::shared_ptr<const IAudioSample>;
using Samples = std::vector<std::shared_ptr<const ISample>>;

std::shared_ptr<const ITrack> MakeTrack() {
    return CreateTrack(ContentType::Audio, 2, nullptr, TrackLayout::Default);
}

std::shared_ptr<const IAudioInfo> MakeInfo(const std::shared_ptr<const ITrack>& track) {
    return CreateAudioInfo(nullptr, CreateChannelInfo(track), {}, {});
}

SampleHandle MakeSample(const std::shared_ptr<const IAudioInfo>& info) {
    return CreateAudioSample(nullptr, info, CreateBuffer(nullptr, nullptr), TimeLimits(), {});
}

TEST(AnAudioSample, HasWhatItWasMadeWith) {
    const std::shared_ptr<const IAudioParameters> parameters =
        CreateAudioParameters(ACodecFamily::PCM);
    const std::shared_ptr<const IAudioInfo> info = MakeInfo(MakeTrack());
    const std::shared_ptr<const IBuffer> buffer = CreateBuffer(nullptr, nullptr);
    const auto clock = std::make_shared<const Clock>();
    const auto attachment = std::make_shared<const int>(1);
    const TimeLimits limits(MediaTime(EditRate{48000, 1}, 1024, clock), 512, attachment);
    const std::vector<std::shared_ptr<const IMetadata>> metadata = {
        std::make_shared<const Metadata>()};

    const auto sample = CreateAudioSample(parameters, info, buffer, limits, metadata);
    EXPECT_EQ(sample->GetAudioParameters(), parameters);
    EXPECT_EQ(sample->GetAudioInfo(), info);
    EXPECT_EQ(sample->GetBuffer(), buffer);
    EXPECT_EQ(sample->GetTimeLimits().start.GetEditRate(), (EditRate{48000, 1}));
    EXPECT_EQ(sample->GetTimeLimits().start.GetTimeNumber(), 1024);
    EXPECT_EQ(sample->GetTimeLimits().start.GetClockInfo(), clock);
    EXPECT_EQ(sample->GetTimeLimits().duration, 512);
    EXPECT_EQ(sample->GetTimeLimits().attachment, attachment);
    EXPECT_EQ(sample->GetMetadatas(), metadata);
}

TEST(AnAudioSample, NeedsABuffer) {
    test::ExpectFailure("[an audio sample needs a buffer] [ Pointer is null ]", kThisModule,
                        [] { CreateAudioSample(nullptr, nullptr, nullptr, TimeLimits(), {}); });
}

// The two ways to make a container of one sample.
std::vector<std::shared_ptr<ISampleContainer>>
ContainersOf(const std::shared_ptr<const ISample>& sample) {
    return {CreateSampleContainer(sample, nullptr),
            CreateSampleContainer(Samples{sample}, nullptr)};
}

TEST(ASampleContainer, WithoutAudioHasNoAudioSamples) {
    for (const auto& container : ContainersOf(std::make_shared<const OtherSample>())) {
        EXPECT_THAT(container->GetAudioSamples(nullptr, nullptr), IsEmpty());
        EXPECT_THAT(container->GetAudioSamples(MakeInfo(MakeTrack()), MakeTrack()), IsEmpty());
    }
}

TEST(ASampleContainer, KeepsTheOrderOfItsSamplesAndSelectsTheAudioOnes) {
    const SampleHandle first = MakeSample(nullptr);
    const SampleHandle second = MakeSample(nullptr);
    const auto container = CreateSampleContainer(
        Samples{second, std::make_shared<const OtherSample>(), first, second}, nullptr);
    EXPECT_THAT(container->GetAudioSamples(nullptr, nullptr), ElementsAre(second, first, second));
}

TEST(ASampleContainer, HasItsPackaging) {
    const std::shared_ptr<const IPackagingInfo> packaging = std::make_shared<const Packaging>();
    const SampleHandle sample = MakeSample(nullptr);
    EXPECT_EQ(CreateSampleContainer(sample, packaging)->GetPackagingInfo(), packaging);
    EXPECT_EQ(CreateSampleContainer(Samples{sample}, packaging)->GetPackagingInfo(), packaging);
}

TEST(ASampleContainer, RefusesAnEmptySample) {
    constexpr const char* kRefusal =
        "[a sample container cannot hold an empty sample] [ Pointer is null ]";
    test::ExpectFailure(kRefusal, kThisModule,
                        [] { CreateSampleContainer(std::shared_ptr<const ISample>(), nullptr); });
    test::ExpectFailure(kRefusal, kThisModule, [] {
        CreateSampleContainer(Samples{MakeSample(nullptr), nullptr}, nullptr);
    });
}

TEST(FilteringASampleContainer, ByInfoReturnsTheSamplesOfThatObject) {
    const auto track = MakeTrack();
    const auto info = MakeInfo(track);
    const auto twin = MakeInfo(track);
    const SampleHandle wanted = MakeSample(info);
    const SampleHandle other = MakeSample(twin);
    const SampleHandle without = MakeSample(nullptr);
    const auto container = CreateSampleContainer(Samples{wanted, other, without, wanted}, nullptr);
    EXPECT_THAT(container->GetAudioSamples(info, nullptr), ElementsAre(wanted, wanted));
    EXPECT_THAT(container->GetAudioSamples(twin, nullptr), ElementsAre(other));
    EXPECT_THAT(container->GetAudioSamples(MakeInfo(track), nullptr), IsEmpty());
}

TEST(FilteringASampleContainer, ByTrackReturnsTheSamplesOfThatObject) {
    const auto track = MakeTrack();
    const auto twin = MakeTrack();
    const SampleHandle wanted = MakeSample(MakeInfo(track));
    const SampleHandle alsoWanted = MakeSample(MakeInfo(track));
    const SampleHandle other = MakeSample(MakeInfo(twin));
    const SampleHandle withoutInfo = MakeSample(nullptr);
    const SampleHandle withoutChannels = MakeSample(CreateAudioInfo(nullptr, nullptr, {}, {}));
    const auto container = CreateSampleContainer(
        Samples{wanted, other, withoutInfo, withoutChannels, alsoWanted}, nullptr);
    EXPECT_THAT(container->GetAudioSamples(nullptr, track), ElementsAre(wanted, alsoWanted));
    EXPECT_THAT(container->GetAudioSamples(nullptr, twin), ElementsAre(other));
    EXPECT_THAT(container->GetAudioSamples(nullptr, MakeTrack()), IsEmpty());
}

TEST(FilteringASampleContainer, OfOneSampleReturnsItUnlessAFilterExcludesIt) {
    const auto track = MakeTrack();
    const auto info = MakeInfo(track);
    for (const SampleHandle& sample :
         {MakeSample(info), SampleHandle(std::make_shared<const OwnAudioSample>(info))}) {
        for (const auto& container : ContainersOf(sample)) {
            EXPECT_THAT(container->GetAudioSamples(nullptr, nullptr), ElementsAre(sample));
            EXPECT_THAT(container->GetAudioSamples(info, nullptr), ElementsAre(sample));
            EXPECT_THAT(container->GetAudioSamples(nullptr, track), ElementsAre(sample));
            EXPECT_THAT(container->GetAudioSamples(info, track), ElementsAre(sample));
            EXPECT_THAT(container->GetAudioSamples(MakeInfo(track), nullptr), IsEmpty());
            EXPECT_THAT(container->GetAudioSamples(nullptr, MakeTrack()), IsEmpty());
            EXPECT_THAT(container->GetAudioSamples(info, MakeTrack()), IsEmpty());
            EXPECT_EQ(container->GetPackagingInfo(), nullptr);
        }
    }
}

} // namespace
} // namespace kel
