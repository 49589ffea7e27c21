// What libsndfile is told of a container and a PCM layout. The check and the creation of the file
// both tell it; what they say is looked at in front of libsndfile.

#include "FakeFiles.h"
#include "FrameworkDoubles.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {
namespace {

constexpr auto kLittle = PCMEndianness::Little;
constexpr auto kBig = PCMEndianness::Big;
constexpr auto kNoByteOrder = PCMEndianness::Undefined;

Layout MakeLayout(AudioPCMType type, int bytes, int bits, PCMEndianness endianness = kLittle) {
    Layout layout;
    layout.type = type;
    layout.bytes = static_cast<std::uint8_t>(bytes);
    layout.bits = static_cast<std::uint8_t>(bits);
    layout.endianness = endianness;
    return layout;
}

Layout Integer(int bytes, int bits, PCMEndianness endianness = kLittle) {
    return MakeLayout(AudioPCMType::Integer, bytes, bits, endianness);
}

Layout Float(int bytes, int bits, PCMEndianness endianness = kLittle) {
    return MakeLayout(AudioPCMType::Float, bytes, bits, endianness);
}

struct FormatWord {
    std::string name;
    std::string type;
    Layout layout;
    int word;
};

void PrintTo(const FormatWord& one, std::ostream* stream) {
    *stream << one.name;
}

class LibsndfileSinkFormat : public FakeFilesTest {
protected:
    LibsndfileSinkFormat() {
        StandIn().format_check = [this](const SF_INFO* info) {
            checked.push_back(FieldsOf(*info));
            return 1;
        };
    }

    std::vector<SfInfoFields> checked;
};

class LibsndfileSinkFormatWord : public LibsndfileSinkFormat,
                                 public ::testing::WithParamInterface<FormatWord> {};

TEST_P(LibsndfileSinkFormatWord, IsCheckedAndOpenedAndTheOtherFieldsAreExact) {
    Layout layout = GetParam().layout;
    layout.rate = 44100;
    layout.channels = 6;
    const SfInfoFields expected{0, 44100, 6, GetParam().word, 0, 0};
    const auto sink = MakeConfiguredSink(GetParam().type, "take");

    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(), 0);
    EXPECT_EQ(checked, std::vector<SfInfoFields>({expected}));

    sink->DefineInput(MakeInput(layout), "");
    EXPECT_EQ(checked, std::vector<SfInfoFields>({expected, expected}));
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].info, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Container, LibsndfileSinkFormatWord,
    ::testing::Values(FormatWord{"AIFFInteger16Little", "AIFF", Integer(2, 16), 0x10020002},
                      FormatWord{"AIFFInteger24Little", "AIFF", Integer(3, 24), 0x10020003},
                      FormatWord{"AIFFInteger32Little", "AIFF", Integer(4, 32), 0x10020004},
                      FormatWord{"AIFFFloat32Little", "AIFF", Float(4, 32), 0x10020006},
                      FormatWord{"AIFFFloat64Little", "AIFF", Float(8, 64), 0x10020007},
                      FormatWord{"AIFFInteger16Big", "AIFF", Integer(2, 16, kBig), 0x20020002},
                      FormatWord{"AIFFInteger24Big", "AIFF", Integer(3, 24, kBig), 0x20020003},
                      FormatWord{"AIFFInteger32Big", "AIFF", Integer(4, 32, kBig), 0x20020004},
                      FormatWord{"AIFFFloat32Big", "AIFF", Float(4, 32, kBig), 0x20020006},
                      FormatWord{"AIFFFloat64Big", "AIFF", Float(8, 64, kBig), 0x20020007},
                      FormatWord{"BWAVEInteger16Little", "BWAVE", Integer(2, 16), 0x10220002},
                      FormatWord{"BWAVEInteger24Little", "BWAVE", Integer(3, 24), 0x10220003},
                      FormatWord{"BWAVEInteger32Little", "BWAVE", Integer(4, 32), 0x10220004},
                      FormatWord{"BWAVEFloat32Little", "BWAVE", Float(4, 32), 0x10220006},
                      FormatWord{"BWAVEFloat64Little", "BWAVE", Float(8, 64), 0x10220007},
                      FormatWord{"BWAVEInteger16Big", "BWAVE", Integer(2, 16, kBig), 0x20220002},
                      FormatWord{"BWAVEInteger24Big", "BWAVE", Integer(3, 24, kBig), 0x20220003},
                      FormatWord{"BWAVEInteger32Big", "BWAVE", Integer(4, 32, kBig), 0x20220004},
                      FormatWord{"BWAVEFloat32Big", "BWAVE", Float(4, 32, kBig), 0x20220006},
                      FormatWord{"BWAVEFloat64Big", "BWAVE", Float(8, 64, kBig), 0x20220007},
                      FormatWord{"WAVEInteger16Little", "WAVE", Integer(2, 16), 0x10130002},
                      FormatWord{"WAVEInteger24Little", "WAVE", Integer(3, 24), 0x10130003},
                      FormatWord{"WAVEInteger32Little", "WAVE", Integer(4, 32), 0x10130004},
                      FormatWord{"WAVEFloat32Little", "WAVE", Float(4, 32), 0x10130006},
                      FormatWord{"WAVEFloat64Little", "WAVE", Float(8, 64), 0x10130007},
                      FormatWord{"WAVEInteger16Big", "WAVE", Integer(2, 16, kBig), 0x20130002},
                      FormatWord{"WAVEInteger24Big", "WAVE", Integer(3, 24, kBig), 0x20130003},
                      FormatWord{"WAVEInteger32Big", "WAVE", Integer(4, 32, kBig), 0x20130004},
                      FormatWord{"WAVEFloat32Big", "WAVE", Float(4, 32, kBig), 0x20130006},
                      FormatWord{"WAVEFloat64Big", "WAVE", Float(8, 64, kBig), 0x20130007}),
    [](const ::testing::TestParamInfo<FormatWord>& one) { return one.param.name; });

TEST_F(LibsndfileSinkFormat, TakesChannelsAndRateAsTheyAreWithoutJudgingThem) {
    struct Case {
        std::uint32_t channels;
        std::uint32_t rate;
        int expectedChannels;
        int expectedRate;
    };
    const std::vector<Case> cases{{0, 0, 0, 0},
                                  {1, 1, 1, 1},
                                  {2, 22500, 2, 22500},
                                  {1024, 192000, 1024, 192000},
                                  {1025, 0x7FFFFFFF, 1025, 0x7FFFFFFF},
                                  {0xFFFFFFFF, 0x80000000, -1, -0x7FFFFFFF - 1}};
    const auto sink = MakeConfiguredSink("WAVE");
    for (const Case& one : cases) {
        SCOPED_TRACE(std::to_string(one.channels) + " channels at " + std::to_string(one.rate));
        Layout layout;
        layout.channels = one.channels;
        layout.rate = one.rate;
        checked.clear();
        const auto report = sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "");
        EXPECT_EQ(report->GetErrorType(), 0);
        EXPECT_EQ(checked, std::vector<SfInfoFields>(
                               {{0, one.expectedRate, one.expectedChannels, 0x10130002, 0, 0}}));
    }
}

TEST_F(LibsndfileSinkFormat, CountsAnInfoWithoutChannelsAsNone) {
    const auto input =
        CreateInfoContainer(CreateAudioInfo(MakeParameters({}), nullptr, {}, {}), nullptr);
    const auto report = MakeConfiguredSink("AIFF")->CheckInputAndAdaptIfNecessary(input, "");
    EXPECT_EQ(report->GetErrorType(), 0);
    EXPECT_EQ(checked, std::vector<SfInfoFields>({{0, 48000, 0, 0x10020002, 0, 0}}));
}

TEST_F(LibsndfileSinkFormat, DoesNotJudgeTheLayoutByTheMuxing) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (int muxing = 0; muxing <= 4; ++muxing) {
        Layout layout;
        layout.muxing = static_cast<PCMMuxing>(muxing);
        EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(), 0);
    }
}

const std::string kInteger2 =
    "[(pcmAudioParams->GetSampleSize() == 2) && (pcmAudioParams->GetBitsDepth() != 16)]";
const std::string kInteger3 =
    "[(pcmAudioParams->GetSampleSize() == 3) && (pcmAudioParams->GetBitsDepth() != 24)]";
const std::string kFourBytes =
    "[(pcmAudioParams->GetSampleSize() == 4) && (pcmAudioParams->GetBitsDepth() != 32)]";
const std::string kFloat8 =
    "[(pcmAudioParams->GetSampleSize() == 8) && (pcmAudioParams->GetBitsDepth() != 64)]";
const std::string kIntegerSize =
    "[Only 16-bit/2 bytes, 24-bit/3 bytes or 32-bit/4 bytes integer PCM samples supported (24-bit "
    "over 4 bytes not supported)]";
const std::string kFloatSize = "[Only 4 or 8 bytes float PCM samples supported]";
const std::string kType =
    "[PCM type should be 32-bit/64-bit float or 16-bit/24-bit/32-bit integer]";
const std::string kByteOrder =
    "[PCM endianness type should be defined to either little or big endian]";

struct Refusal {
    std::string name;
    std::string type;
    Layout layout;
    std::string message;
};

void PrintTo(const Refusal& one, std::ostream* stream) {
    *stream << one.name;
}

class LibsndfileSinkFormatRefusal : public LibsndfileSinkFormat,
                                    public ::testing::WithParamInterface<Refusal> {};

TEST_P(LibsndfileSinkFormatRefusal, IsWhatTheCheckThrows) {
    const auto sink = MakeConfiguredSink(GetParam().type);
    const auto input = MakeInput(GetParam().layout);
    ExpectRefusal(GetParam().message, [&] { sink->CheckInputAndAdaptIfNecessary(input, ""); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_P(LibsndfileSinkFormatRefusal, IsWhatDefiningTheInputThrowsBeforeAnythingIsCreated) {
    const auto sink = MakeConfiguredSink(GetParam().type, "take.wav");
    const auto input = MakeInput(GetParam().layout);
    const LogCapture log;
    try {
        sink->DefineInput(input, "");
        ADD_FAILURE() << "did not fail";
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), GetParam().message);
    }
    // The first record tells how the container was found; that is not the subject here.
    const Lines lines = LinesOf(log);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].level, LogLevel::Error);
    EXPECT_EQ(lines[1], (Line{LogLevel::Error, GetParam().message}));
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

constexpr auto kNoType = AudioPCMType::Undefined;

INSTANTIATE_TEST_SUITE_P(
    Of, LibsndfileSinkFormatRefusal,
    ::testing::Values(
        Refusal{"RAW", "RAW", Integer(2, 16), kWrapperRefused},
        Refusal{"Unknown", "Unknown", Integer(2, 16), kWrapperRefused},
        Refusal{"NoType", "", Integer(2, 16), kWrapperRefused},
        Refusal{"TypeThatNamesNoFormat", "FLAC", Integer(2, 16), kWrapperRefused},
        Refusal{"TypeInLowerCase", "wave", Integer(2, 16), kWrapperRefused},
        Refusal{"TypeWithABlank", "WAVE ", Integer(2, 16), kWrapperRefused},
        Refusal{"RAWBeforeALayoutThatIsWrongThroughout", "RAW",
                MakeLayout(kNoType, 0, 0, kNoByteOrder), kWrapperRefused},
        Refusal{"Integer16In2BytesWith24Bits", "WAVE", Integer(2, 24), kInteger2},
        Refusal{"Integer16In2BytesWith15Bits", "AIFF", Integer(2, 15), kInteger2},
        Refusal{"Integer16In2BytesWithNoBits", "BWAVE", Integer(2, 0), kInteger2},
        Refusal{"Integer24In3BytesWith16Bits", "WAVE", Integer(3, 16), kInteger3},
        Refusal{"Integer24In3BytesWith32Bits", "AIFF", Integer(3, 32), kInteger3},
        Refusal{"Integer32In4BytesWith24Bits", "WAVE", Integer(4, 24), kFourBytes},
        Refusal{"Integer32In4BytesWith16Bits", "BWAVE", Integer(4, 16), kFourBytes},
        Refusal{"Float32In4BytesWith24Bits", "WAVE", Float(4, 24), kFourBytes},
        Refusal{"Float32In4BytesWith64Bits", "BWAVE", Float(4, 64), kFourBytes},
        Refusal{"Float64In8BytesWith32Bits", "WAVE", Float(8, 32), kFloat8},
        Refusal{"Float64In8BytesWithNoBits", "AIFF", Float(8, 0), kFloat8},
        Refusal{"IntegerIn0Bytes", "WAVE", Integer(0, 16), kIntegerSize},
        Refusal{"IntegerIn1Byte", "WAVE", Integer(1, 8), kIntegerSize},
        Refusal{"IntegerIn5Bytes", "AIFF", Integer(5, 40), kIntegerSize},
        Refusal{"IntegerIn8Bytes", "WAVE", Integer(8, 64), kIntegerSize},
        Refusal{"IntegerIn255Bytes", "BWAVE", Integer(255, 16), kIntegerSize},
        Refusal{"FloatIn0Bytes", "WAVE", Float(0, 32), kFloatSize},
        Refusal{"FloatIn2Bytes", "WAVE", Float(2, 16), kFloatSize},
        Refusal{"FloatIn3Bytes", "AIFF", Float(3, 24), kFloatSize},
        Refusal{"FloatIn10Bytes", "BWAVE", Float(10, 80), kFloatSize},
        Refusal{"TypeUndefined", "WAVE", MakeLayout(kNoType, 2, 16), kType},
        Refusal{"TypeBehindTheLast", "AIFF", MakeLayout(static_cast<AudioPCMType>(3), 4, 32),
                kType},
        Refusal{"TypeNegative", "BWAVE", MakeLayout(static_cast<AudioPCMType>(-1), 4, 32), kType},
        Refusal{"ByteOrderUndefined", "WAVE", Integer(2, 16, kNoByteOrder), kByteOrder},
        Refusal{"ByteOrderUndefinedForFloat", "AIFF", Float(8, 64, kNoByteOrder), kByteOrder},
        Refusal{"ByteOrderBehindTheLast", "BWAVE", Integer(3, 24, static_cast<PCMEndianness>(3)),
                kByteOrder},
        Refusal{"TypeBeforeByteOrder", "WAVE", MakeLayout(kNoType, 2, 16, kNoByteOrder), kType},
        Refusal{"SizeBeforeByteOrder", "WAVE", Integer(1, 8, kNoByteOrder), kIntegerSize},
        Refusal{"FloatSizeBeforeByteOrder", "WAVE", Float(2, 16, kNoByteOrder), kFloatSize},
        Refusal{"DepthBeforeByteOrder", "WAVE", Integer(4, 24, kNoByteOrder), kFourBytes}),
    [](const ::testing::TestParamInfo<Refusal>& one) { return one.param.name; });

// An info that has PCM parameters for the check and none for what comes after it.
class LibsndfileSinkFormatOfAFickleInfo : public LibsndfileSinkFormat {
protected:
    LibsndfileSinkFormatOfAFickleInfo() {
        info->channels = MakeChannels(2);
        info->parameters = [this]() -> std::shared_ptr<const IAudioParameters> {
            return ++asked == 1 ? std::shared_ptr<const IAudioParameters>(MakeParameters({}))
                                : later;
        };
    }

    Script script;
    int asked = 0;
    std::shared_ptr<const IAudioParameters> later;
    std::shared_ptr<AudioInfoDouble> info = std::make_shared<AudioInfoDouble>(script);
    std::shared_ptr<const IInfoContainer> input = CreateInfoContainer(info, nullptr);
};

TEST_F(LibsndfileSinkFormatOfAFickleInfo, IsRefusedWithoutParameters) {
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRefusal("[Only PCM audio is supported] [ Pointer is null ]",
                  [&] { sink->CheckInputAndAdaptIfNecessary(input, ""); });
}

TEST_F(LibsndfileSinkFormatOfAFickleInfo, IsRefusedWithParametersThatAreNotPCM) {
    later = MakeForeignParameters();
    const auto sink = MakeConfiguredSink("AIFF");
    ExpectRefusal("[Only PCM audio is supported] [ Pointer is null ]",
                  [&] { sink->CheckInputAndAdaptIfNecessary(input, ""); });
}

TEST_F(LibsndfileSinkFormatOfAFickleInfo, IsNotLookedAtWhereTheContainerIsRefused) {
    const auto sink = MakeConfiguredSink("RAW");
    ExpectRefusal(kWrapperRefused, [&] { sink->CheckInputAndAdaptIfNecessary(input, ""); });
    EXPECT_EQ(asked, 1);
    for (const std::string& call : script.calls) {
        EXPECT_NE(call, "GetChannelInfo");
    }
}

TEST_F(LibsndfileSinkFormat, RefusesContainersThatOnlyTheFrameworkKnows) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const int value : {-1, 2, 4, 6, 27, 29, 31, 33, 0x130000}) {
        FrameworkAnswers().fromString = [value](WrapperFormat& out, const std::string&) {
            out = static_cast<WrapperFormat>(value);
            return true;
        };
        ExpectRefusal(kWrapperRefused,
                      [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); });
    }
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkFormat, IsTheSameForTheSameInputEachTime) {
    const auto sink = MakeConfiguredSink("WAVE");
    const auto input = MakeInput({});
    for (int i = 0; i < 3; ++i) {
        sink->CheckInputAndAdaptIfNecessary(input, "");
    }
    const SfInfoFields expected{0, 48000, 2, 0x10130002, 0, 0};
    EXPECT_EQ(checked, std::vector<SfInfoFields>(3, expected));
}

} // namespace
} // namespace kel::test
