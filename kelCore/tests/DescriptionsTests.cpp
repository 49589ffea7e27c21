#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// A family of an application's own, whose interface the framework's objects do not have.
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

static_assert(std::is_base_of_v<IInfo, IAudioInfo>);
static_assert(std::is_base_of_v<IAudioParameters, IAudioParameters_PCM>);
static_assert(std::is_convertible_v<std::shared_ptr<IAudioParameters_PCM>,
                                    std::shared_ptr<const IEncodingParameters>>);
static_assert(std::is_same_v<AudioParameters_trait<ACodecFamily::PCM>::AudioParametersPtr,
                             std::shared_ptr<IAudioParameters_PCM>>);
static_assert(
    std::is_same_v<decltype(std::declval<const IAudioInfo&>().GetId()), const std::string&>);
static_assert(std::is_same_v<decltype(std::declval<const IChannelInfo&>().GetNumberOfChannels()),
                             std::uint32_t>);
static_assert(
    std::is_same_v<decltype(std::declval<IAudioParameters_PCM&>().GetSampleSize()), std::uint8_t>);
static_assert(
    std::is_same_v<decltype(std::declval<IAudioParameters_PCM&>().GetBitsDepth()), std::uint8_t>);
static_assert(
    std::is_same_v<decltype(std::declval<IAudioParameters_PCM&>().GetSampleRate()), std::uint32_t>);

// What the six getters answer.
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
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetSampleRate(static_cast<std::uint32_t>(value));
    },
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetEndianness(static_cast<PCMEndianness>(value));
    },
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetMuxing(static_cast<PCMMuxing>(value));
    },
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetPCMType(static_cast<AudioPCMType>(value));
    },
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetSampleSize(static_cast<std::uint8_t>(value));
    },
    [](IAudioParameters_PCM& parameters, std::int64_t value) {
        parameters.SetBitsDepth(static_cast<std::uint8_t>(value));
    },
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

TEST(PCMParameters, AreUndefinedAtFirst) {
    EXPECT_EQ(Read(*CreateAudioParameters<ACodecFamily::PCM>()), Values{});
}

TEST(PCMParameters, AreFilledInAnyOrder) {
    const Values wanted = {48000, 1, 2, 2, 4, 32};
    std::array<std::size_t, 6> order = {0, 1, 2, 3, 4, 5};
    do {
        const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
        Values expected{};
        for (const std::size_t place : order) {
            kSetters[place](*parameters, wanted[place]);
            expected[place] = wanted[place];
            ASSERT_EQ(Read(*parameters), expected) << "each setter sets its own value alone";
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(PCMParameters, AreNotCheckedAgainstEachOtherOrAtAll) {
    const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    for (const Values& values : {Values{0, 0, 0, 0, 0, 0}, Values{0xFFFFFFFF, 99, 99, 99, 255, 255},
                                 Values{1, -1, -1, -1, 1, 64}, Values{44100, 2, 3, 1, 2, 24},
                                 Values{8000, 1, 1, 2, 8, 16}}) {
        for (std::size_t place = 0; place < values.size(); ++place) {
            kSetters[place](*parameters, values[place]);
        }
        EXPECT_EQ(Read(*parameters), values);
    }
}

TEST(ParametersOfAnotherFamily, KnowTheirFamilyAndAreNotPCM) {
    for (const int family : {0, 1, 3, 7, -1}) {
        const auto parameters = CreateAudioParameters(static_cast<ACodecFamily>(family));
        ASSERT_NE(parameters, nullptr);
        EXPECT_EQ(static_cast<int>(parameters->GetCodecFamily()), family);
        EXPECT_EQ(std::dynamic_pointer_cast<IAudioParameters_PCM>(parameters), nullptr);
    }
}

TEST(ParametersOfAnotherFamily, AreAnEmptyHandleWhereTheFrameworksObjectIsOfAnotherKind) {
    const test::LogCapture log;
    EXPECT_EQ(CreateAudioParameters<static_cast<ACodecFamily>(7)>(), nullptr);
    EXPECT_TRUE(log->Records().empty());
}

TEST(ATrackGroup, HasItsName) {
    for (const char* name : {"take.wav", "", "caf\xE9"}) {
        EXPECT_EQ(CreateTrackGroup(name)->GetName(), name);
    }
}

TEST(ATrack, HasWhatItWasMadeWith) {
    const std::shared_ptr<const ITrackGroup> group = CreateTrackGroup("group");
    const auto track = CreateTrack(ContentType::Audio, 6, group, TrackLayout::Default);
    EXPECT_EQ(track->GetContentType(), ContentType::Audio);
    EXPECT_EQ(track->GetNumberOfChannels(), 6U);
    EXPECT_EQ(track->GetTrackGroup(), group);
    EXPECT_EQ(track->GetLayout(), TrackLayout::Default);
}

TEST(ATrack, TakesValuesOfAnApplicationsOwn) {
    const auto track =
        CreateTrack(static_cast<ContentType>(5), 0, nullptr, static_cast<TrackLayout>(9));
    EXPECT_EQ(static_cast<int>(track->GetContentType()), 5);
    EXPECT_EQ(track->GetNumberOfChannels(), 0U);
    EXPECT_EQ(track->GetTrackGroup(), nullptr);
    EXPECT_EQ(static_cast<int>(track->GetLayout()), 9);
}

std::shared_ptr<ITrack> MakeTrack(std::uint32_t channels) {
    return CreateTrack(ContentType::Audio, channels, CreateTrackGroup("group"),
                       TrackLayout::Default);
}

TEST(AChannelInfo, HasTheChannelsOfItsTrack) {
    for (const std::uint32_t channels : {0U, 1U, 2U, 1024U, 0xFFFFFFFFU}) {
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

TEST(AnAudioInfo, MayHaveNothing) {
    const auto info = CreateAudioInfo(nullptr, nullptr, {}, {});
    EXPECT_EQ(info->GetAudioParameters(), nullptr);
    EXPECT_EQ(info->GetChannelInfo(), nullptr);
    EXPECT_TRUE(info->GetMetadatas().empty());
    EXPECT_TRUE(info->GetClockInfos().empty());
}

TEST(AnAudioInfo, HasAnIdentifierOfItsOwn) {
    std::set<std::string> ids;
    for (int i = 0; i < 1000; ++i) {
        const auto info = CreateAudioInfo(nullptr, nullptr, {}, {});
        EXPECT_NE(info->GetId(), "");
        EXPECT_EQ(&info->GetId(), &info->GetId());
        ids.insert(info->GetId());
    }
    EXPECT_EQ(ids.size(), 1000U);
}

TEST(AnInfoContainer, HoldsOneAudioInfo) {
    const std::shared_ptr<const IAudioInfo> info = CreateAudioInfo(nullptr, nullptr, {}, {});
    const auto container = CreateInfoContainer(info, nullptr);
    EXPECT_THAT(container->GetInfos(), ElementsAre(info));
    EXPECT_THAT(container->GetAudioInfos(), ElementsAre(info));
    EXPECT_EQ(container->GetPackagingInfo(), nullptr);
}

TEST(AnInfoContainer, WithoutAudioHasNoAudioInfos) {
    const std::shared_ptr<const IInfo> info = std::make_shared<const OtherInfo>();
    const auto container = CreateInfoContainer(info, nullptr);
    EXPECT_THAT(container->GetInfos(), ElementsAre(info));
    EXPECT_TRUE(container->GetAudioInfos().empty());
}

TEST(AnInfoContainer, KeepsTheOrderOfItsInfosAndPicksTheAudioOnes) {
    const std::shared_ptr<const IAudioInfo> first = CreateAudioInfo(nullptr, nullptr, {}, {});
    const std::shared_ptr<const IInfo> other = std::make_shared<const OtherInfo>();
    const std::shared_ptr<const IAudioInfo> second = CreateAudioInfo(nullptr, nullptr, {}, {});
    const auto container = CreateInfoContainer(
        std::vector<std::shared_ptr<const IInfo>>{second, other, first, second}, nullptr);
    EXPECT_THAT(container->GetInfos(), ElementsAre(second, other, first, second));
    EXPECT_THAT(container->GetAudioInfos(), ElementsAre(second, first, second));
}

TEST(AnInfoContainer, MayHoldNothing) {
    const auto container =
        CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{}, nullptr);
    EXPECT_TRUE(container->GetInfos().empty());
    EXPECT_TRUE(container->GetAudioInfos().empty());
}

TEST(AnInfoContainer, HasItsPackaging) {
    const std::shared_ptr<const IPackagingInfo> packaging = std::make_shared<const Packaging>();
    const std::shared_ptr<const IInfo> info = std::make_shared<const OtherInfo>();
    EXPECT_EQ(CreateInfoContainer(info, packaging)->GetPackagingInfo(), packaging);
    EXPECT_EQ(CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{info, info}, packaging)
                  ->GetPackagingInfo(),
              packaging);
}

TEST(AnInfoContainer, CanNotHoldAnEmptyInfo) {
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

TEST(Descriptions, ShareWhatTheyAreMadeOf) {
    auto group = CreateTrackGroup("group");
    auto track = CreateTrack(ContentType::Audio, 1, group, TrackLayout::Default);
    auto channels = CreateChannelInfo(track);
    auto info = CreateAudioInfo(nullptr, channels, {}, {});
    const auto container = CreateInfoContainer(info, nullptr);
    const std::weak_ptr<ITrackGroup> watch = group;
    group.reset();
    track.reset();
    channels.reset();
    info.reset();
    ASSERT_FALSE(watch.expired());
    EXPECT_EQ(
        container->GetAudioInfos()[0]->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName(),
        "group");
}

} // namespace
} // namespace kel
