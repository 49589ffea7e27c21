#include <kelCore.h>

#include <gtest/gtest.h>

#include <memory>

namespace kel {

namespace {

const PCMFormat kInt24{44100, 1, AudioPCMType::Integer, 3, PCMEndianness::Big};

TEST(APCMFormat, IsFloatUnlessItIsChangedAndHasAText) {
    EXPECT_EQ(ToString(PCMFormat{48000, 2}), "32-bit float little-endian, 2 channels, 48000 Hz");
    EXPECT_EQ(ToString(kInt24), "24-bit integer big-endian, 1 channel, 44100 Hz");
    EXPECT_EQ(ToString(PCMFormat{1, 0, AudioPCMType::Undefined, 1, PCMEndianness::Undefined}),
              "8-bit, 0 channels, 1 Hz");
}

TEST(APCMFormat, EqualsOnlyOneWithTheSameMembers) {
    EXPECT_TRUE(kInt24 == PCMFormat(kInt24));
    EXPECT_FALSE(kInt24 != PCMFormat(kInt24));
    for (const PCMFormat other :
         {PCMFormat{48000, 1, AudioPCMType::Integer, 3, PCMEndianness::Big},
          PCMFormat{44100, 2, AudioPCMType::Integer, 3, PCMEndianness::Big},
          PCMFormat{44100, 1, AudioPCMType::Float, 3, PCMEndianness::Big},
          PCMFormat{44100, 1, AudioPCMType::Integer, 4, PCMEndianness::Big},
          PCMFormat{44100, 1, AudioPCMType::Integer, 3, PCMEndianness::Little}}) {
        EXPECT_TRUE(kInt24 != other) << ToString(other);
        EXPECT_FALSE(kInt24 == other) << ToString(other);
    }
}

TEST(APCMFormat, CountsTheBytesOfAFrameBeyond32Bits) {
    EXPECT_EQ(BytesPerFrame(PCMFormat{1, 0xFFFFFFFF}), 4ULL * 0xFFFFFFFF);
}

TEST(APCMFormat, BecomesADescriptionAndIsReadFromIt) {
    const auto info = CreateAudioInfo(kInt24, "group");
    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info->GetAudioParameters());
    ASSERT_NE(parameters, nullptr);
    EXPECT_EQ(parameters->GetBitsDepth(), 24);
    EXPECT_EQ(parameters->GetMuxing(), PCMMuxing::Multi);
    const auto track = info->GetChannelInfo()->GetTrack();
    EXPECT_EQ(track->GetContentType(), ContentType::Audio);
    EXPECT_EQ(track->GetLayout(), TrackLayout::Default);
    EXPECT_EQ(track->GetTrackGroup()->GetName(), "group");
    EXPECT_EQ(ReadFormat(*info), kInt24);
}

TEST(APCMFormat, IsMissingInAStreamThatIsNotPCMOrHasNoBytes) {
    const auto channels = CreateAudioInfo(PCMFormat{48000, 2}, "")->GetChannelInfo();
    EXPECT_FALSE(ReadFormat(*CreateAudioInfo(nullptr, channels, {}, {})).has_value());
    const auto parameters = CreateAudioParameters(PCMFormat{48000, 2});
    EXPECT_FALSE(ReadFormat(*CreateAudioInfo(parameters, nullptr, {}, {})).has_value());
    EXPECT_FALSE(ReadFormat(*CreateAudioInfo(PCMFormat{48000, 0}, "")).has_value());
    parameters->SetSampleSize(0);
    EXPECT_FALSE(ReadFormat(*CreateAudioInfo(parameters, channels, {}, {})).has_value());
}

} // namespace
} // namespace kel
