#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// A family of an application, whose interface the objects of the framework do not have.
template <>
struct kel::AudioParameters_trait<static_cast<kel::ACodecFamily>(7)> {
    using AudioParametersPtr = std::shared_ptr<kel::IAudioParameters_PCM>;
};

namespace kel {

namespace {

using testing::ElementsAre;

constexpr const char* kThisModule = "kelCore/Descriptions.cpp";

class OtherInfo final : public IInfo {};
class Packaging final : public IPackagingInfo {};
class Metadata final : public IMetadata {};
class Clock final : public IClockInfo {};

static_assert(std::is_same_v<AudioParameters_trait<ACodecFamily::PCM>::AudioParametersPtr,
                             std::shared_ptr<IAudioParameters_PCM>>);
static_assert(
    std::is_same_v<decltype(std::declval<const IAudioInfo&>().GetId()), const std::string&>);
static_assert(
    std::is_same_v<decltype(std::declval<IAudioParameters_PCM&>().GetSampleSize()), std::uint8_t>);

// The results of the six getters.
using Values = std::array<std::int64_t, 6>;

Values Read(const IAudioParameters_PCM& parameters) {
    return {parameters.GetSampleRate(),
            static_cast<std::int64_t>(parameters.GetEndianness()),
            static_cast<std::int64_t>(parameters.GetMuxing()),
            static_cast<std::int64_t>(parameters.GetPCMType()),
            parameters.GetSampleSize(),
            parameters.GetBitsDepth()};
}

using Setter = void (*)(IAudioParameters_PCM&, std::int64_t);

// In the order of Values.
constexpr std::array<Setter, 6> kSetters = {
    [](auto& pcm, auto value) { pcm.SetSampleRate(static_cast<std::uint32_t>(value)); },
    [](auto& pcm, auto value) { pcm.SetEndianness(static_cast<PCMEndianness>(value)); },
    [](auto& pcm, auto value) { pcm.SetMuxing(static_cast<PCMMuxing>(value)); },
    [](auto& pcm, auto value) { pcm.SetPCMType(static_cast<AudioPCMType>(value)); },
    [](auto& pcm, auto value) { pcm.SetSampleSize(static_cast<std::uint8_t>(value)); },
    [](auto& pcm, auto value) { pcm.SetBitsDepth(static_cast<std::uint8_t>(value)); },
};

TEST(PCMParameters, AreMadeForTheirFamily) {
    const std::shared_ptr<IAudioParameters> plain = CreateAudioParameters(ACodecFamily::PCM);
    EXPECT_EQ(plain->GetCodecFamily(), ACodecFamily::PCM);
    EXPECT_NE(std::dynamic_pointer_cast<IAudioParameters_PCM>(plain), nullptr);

    const auto typed = CreateAudioParameters<ACodecFamily::PCM>();
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->GetCodecFamily(), ACodecFamily::PCM);
    EXPECT_EQ(typed.use_count(), 1);
}

TEST(PCMParameters, AreUndefinedAtFirstAndSetOneByOneWithoutAnyCheck) {
    for (const Values& values : {Values{48000, 1, 2, 2, 4, 32}, Values{1, -1, -1, -1, 1, 64},
                                 Values{0xFFFFFFFF, 99, 99, 99, 255, 255}}) {
        const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
        Values expected{};
        EXPECT_EQ(Read(*parameters), expected);
        for (std::size_t place = 0; place < values.size(); ++place) {
            kSetters[place](*parameters, values[place]);
            expected[place] = values[place];
            EXPECT_EQ(Read(*parameters), expected) << "each setter sets only its own value";
        }
    }
}

TEST(ParametersOfAnotherFamily, HaveTheirFamilyAndAreNotPCM) {
    for (const int family : {0, 1, 3, 7, -1}) {
        const auto parameters = CreateAudioParameters(static_cast<ACodecFamily>(family));
        ASSERT_NE(parameters, nullptr);
        EXPECT_EQ(static_cast<int>(parameters->GetCodecFamily()), family);
        EXPECT_EQ(std::dynamic_pointer_cast<IAudioParameters_PCM>(parameters), nullptr);
    }
}

TEST(ParametersOfAnotherFamily, AreAnEmptyHandleWhereTheObjectIsOfAnotherKind) {
    const test::LogCapture log;
    EXPECT_EQ(CreateAudioParameters<static_cast<ACodecFamily>(7)>(), nullptr);
    EXPECT_TRUE(log->Records().empty());
}

TEST(ATrackGroup, HasItsName) {
    for (const char* name : {"take.wav", "", "caf\xE9"}) {
        EXPECT_EQ(CreateTrackGroup(name)->GetName(), name);
    }
}

TEST(ATrack, HasWhatItWasMadeWithEvenUnknownValues) {
    const std::shared_ptr<const ITrackGroup> group = CreateTrackGroup("group");
    const auto track =
        CreateTrack(static_cast<ContentType>(5), 6, group, static_cast<TrackLayout>(9));
    EXPECT_EQ(static_cast<int>(track->GetContentType()), 5);
    EXPECT_EQ(track->GetNumberOfChannels(), 6U);
    EXPECT_EQ(track->GetTrackGroup(), group);
    EXPECT_EQ(static_cast<int>(track->GetLayout()), 9);
}

std::shared_ptr<ITrack> MakeTrack(std::uint32_t channels) {
    return CreateTrack(ContentType::Audio, channels, CreateTrackGroup("group"),
                       TrackLayout::Default);
}

TEST(AChannelInfo, HasTheChannelsOfItsTrack) {
    for (const std::uint32_t channels : {0U, 2U, 0xFFFFFFFFU}) {
        const std::shared_ptr<const ITrack> track = MakeTrack(channels);
        const auto info = CreateChannelInfo(track);
        EXPECT_EQ(info->GetNumberOfChannels(), channels);
        EXPECT_EQ(info->GetTrack(), track);
    }
}

TEST(AChannelInfo, NeedsATrack) {
    test::ExpectFailure("[a channel info needs a track] [ Pointer is null ]", kThisModule,
                        [] { CreateChannelInfo(nullptr); });
}

TEST(AnAudioInfo, HasWhatItWasMadeWith) {
    const std::shared_ptr<const IAudioParameters> parameters =
        CreateAudioParameters(ACodecFamily::PCM);
    const std::shared_ptr<const IChannelInfo> channels = CreateChannelInfo(MakeTrack(2));
    const std::vector<std::shared_ptr<const IMetadata>> metadata = {
        std::make_shared<const Metadata>(), std::make_shared<const Metadata>()};
    const std::vector<std::shared_ptr<const IClockInfo>> clocks = {std::make_shared<const Clock>()};
    const auto info = CreateAudioInfo(parameters, channels, metadata, clocks);
    EXPECT_EQ(info->GetAudioParameters(), parameters);
    EXPECT_EQ(info->GetChannelInfo(), channels);
    EXPECT_EQ(info->GetMetadatas(), metadata);
    EXPECT_EQ(info->GetClockInfos(), clocks);
}

TEST(AnAudioInfo, HasAnIdentifierOfItsOwn) {
    const auto one = CreateAudioInfo(nullptr, nullptr, {}, {});
    const auto other = CreateAudioInfo(nullptr, nullptr, {}, {});
    EXPECT_NE(one->GetId(), "");
    EXPECT_NE(one->GetId(), other->GetId());
    EXPECT_EQ(&one->GetId(), &one->GetId());
}

TEST(AnInfoContainer, HoldsOneInfo) {
    const std::shared_ptr<const IAudioInfo> info = CreateAudioInfo(nullptr, nullptr, {}, {});
    const auto container = CreateInfoContainer(info, nullptr);
    EXPECT_THAT(container->GetInfos(), ElementsAre(info));
    EXPECT_THAT(container->GetAudioInfos(), ElementsAre(info));
    EXPECT_EQ(container->GetPackagingInfo(), nullptr);
}

TEST(AnInfoContainer, KeepsTheOrderOfItsInfosAndSelectsTheAudioOnes) {
    const std::shared_ptr<const IAudioInfo> first = CreateAudioInfo(nullptr, nullptr, {}, {});
    const std::shared_ptr<const IInfo> other = std::make_shared<const OtherInfo>();
    const std::shared_ptr<const IAudioInfo> second = CreateAudioInfo(nullptr, nullptr, {}, {});
    const auto container = CreateInfoContainer(
        std::vector<std::shared_ptr<const IInfo>>{second, other, first, second}, nullptr);
    EXPECT_THAT(container->GetInfos(), ElementsAre(second, other, first, second));
    EXPECT_THAT(container->GetAudioInfos(), ElementsAre(second, first, second));
}

TEST(AnInfoContainer, HasItsPackaging) {
    const std::shared_ptr<const IPackagingInfo> packaging = std::make_shared<const Packaging>();
    const std::shared_ptr<const IInfo> info = std::make_shared<const OtherInfo>();
    EXPECT_EQ(CreateInfoContainer(info, packaging)->GetPackagingInfo(), packaging);
    EXPECT_EQ(CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{info, info}, packaging)
                  ->GetPackagingInfo(),
              packaging);
}

TEST(AnInfoContainer, RefusesAnEmptyInfo) {
    constexpr const char* kRefusal =
        "[an info container cannot hold an empty info] [ Pointer is null ]";
    test::ExpectFailure(kRefusal, kThisModule,
                        [] { CreateInfoContainer(std::shared_ptr<const IInfo>(), nullptr); });
    test::ExpectFailure(kRefusal, kThisModule, [] {
        CreateInfoContainer(
            std::vector<std::shared_ptr<const IInfo>>{std::make_shared<const OtherInfo>(), nullptr},
            nullptr);
    });
}

} // namespace
} // namespace kel
