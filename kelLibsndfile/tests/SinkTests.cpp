// The sink: its lifecycle, the check of an input, the creation of a file and the writing of
// samples.

#include "FakeFiles.h"
#include "SinkTestSupport.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using InfoList = std::vector<std::shared_ptr<const IInfo>>;
using InputHandle = std::shared_ptr<const IInfoContainer>;
using Paths = std::vector<std::string>;
using Samples = std::vector<std::shared_ptr<const ISample>>;

constexpr int kWaveInt16 = SF_FORMAT_WAVEX | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;

const std::string kNotPCM = "[Only PCM audio is supported] [ Pointer is null ]";
const std::string kNoChannels = "[There are 0 channels in the audio info!]";
const std::string kOneChannel = "[Only \"none\" and \"multi\" are accepted for 1-channel muxing]";
const std::string kTwoChannels =
    "[Only \"stereo\" and \"multi\" are accepted for 2-channel muxing]";
const std::string kManyChannels = "[Only \"multi\" is accepted for multichannel (> 2) muxing]";
const std::string kTwoPaths = "[FilePath must be specified either by the config object or by the "
                              "Open command but NOT by both!]";
const std::string kNoFormat = "[WrapperFormat not present in configuration and cannot be inferred "
                              "from file extension]";

InputHandle MakeInputWith(std::shared_ptr<const IAudioParameters> parameters,
                          std::shared_ptr<const IChannelInfo> channels = MakeChannels(2)) {
    return CreateInfoContainer(CreateAudioInfo(std::move(parameters), std::move(channels), {}, {}),
                               nullptr);
}

Layout WithMuxing(std::uint32_t channels, int muxing) {
    Layout layout;
    layout.channels = channels;
    layout.muxing = static_cast<PCMMuxing>(muxing);
    return layout;
}

/// An audio info whose parameters may change from call to call.
class ChangingInfo final : public IAudioInfo {
public:
    const std::string& GetId() const override { return m_id; }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override {
        return parameters();
    }
    std::shared_ptr<const IChannelInfo> GetChannelInfo() const override { return MakeChannels(2); }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    std::vector<std::shared_ptr<const IClockInfo>> GetClockInfos() const override { return {}; }

    std::function<std::shared_ptr<const IAudioParameters>()> parameters;

private:
    std::string m_id = "changing";
};

class LibsndfileSink : public FakeFilesTest {
protected:
    /// The paths of the files opened so far.
    Paths OpenedPaths() const {
        Paths paths;
        for (const Opening& opening : openings) {
            paths.push_back(opening.path);
        }
        return paths;
    }

    /// Defines an input that must be refused on a sink where every later step would fail as well:
    /// it has two paths and no container format.
    void ExpectRefusedFirst(const InputHandle& input, const std::string& message) {
        const auto sink = MakeConfiguredSink("", "take");
        sink->Open(L"take");
        ExpectCalls({}, [&] { ExpectSinkRefusal(message, [&] { sink->DefineInput(input, ""); }); });
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
};

// Lifecycle

TEST_F(LibsndfileSink, MayBeMadeWithoutAManifest) {
    ExpectRecords({}, [] { EXPECT_EQ(MakeSinkFrom(nullptr)->GetManifest(), nullptr); });
}

TEST_F(LibsndfileSink, AnswersTheSameOnEveryOneOfItsInterfaces) {
    const auto manifest = MakeManifest("WAVE");
    const std::shared_ptr<IAudioSink> sink = MakeSinkFrom(manifest);
    const std::shared_ptr<IMediaSink> media = sink;
    const std::shared_ptr<IAudioSinkControl> audioControl = sink;
    const std::shared_ptr<ISinkControl> control = sink;
    const std::shared_ptr<IBasicControl> basic = sink;
    EXPECT_EQ(sink->GetManifest(), manifest);
    EXPECT_EQ(media->GetManifest(), manifest);
    EXPECT_EQ(audioControl->GetManifest(), manifest);
    EXPECT_EQ(control->GetManifest(), manifest);
    EXPECT_EQ(basic->GetManifest(), manifest);
    EXPECT_EQ(std::dynamic_pointer_cast<IAudioSink>(media), sink);
    EXPECT_EQ(std::dynamic_pointer_cast<IAudioSink>(basic), sink);
    EXPECT_EQ(std::dynamic_pointer_cast<ISinkControl>(media), control);
    EXPECT_EQ(std::dynamic_pointer_cast<IBasicControl>(media), basic);
    EXPECT_EQ(std::static_pointer_cast<IBasicControl>(audioControl), basic);
}

TEST_F(LibsndfileSink, DoesNotReportAFileThatLibsndfileCannotClose) {
    const std::vector<std::function<void(IAudioSink&)>> endings{
        [](IAudioSink& sink) { sink.Close(true); },
        [](IAudioSink& sink) { sink.Close(false); },
        [](IAudioSink& sink) { sink.Release(); },
    };
    StandIn().close = [](SNDFILE*) {
        return -1;
    };
    for (const auto& end : endings) {
        const auto sink = MakeWritingSink("take");
        ExpectCalls({"sf_close"}, [&] {
            ExpectRecords({}, [&] {
                end(*sink);
                end(*sink);
            });
        });
    }
}

// The check of an input

using AcceptedEncodings =
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>;

constexpr auto kNone = static_cast<std::int32_t>(CheckInputErrorType::None);
constexpr auto kTrack = static_cast<std::int32_t>(CheckInputErrorType::Track);
constexpr auto kEncoding = static_cast<std::int32_t>(CheckInputErrorType::Encoding);

class LibsndfileSinkCheck : public SndfileTest {
protected:
    static void ExpectTrackError(const std::shared_ptr<const IInfoContainer>& input,
                                 const std::string& type = "WAVE") {
        const auto sink = MakeConfiguredSink(type);
        ExpectRecords({}, [&] {
            const auto report = sink->CheckInputAndAdaptIfNecessary(input, "");
            ASSERT_NE(report, nullptr);
            EXPECT_EQ(report->GetErrorType(), kTrack);
            EXPECT_EQ(report->GetExpectedContentTypes(),
                      std::multiset<ContentType>({ContentType::Audio}));
            EXPECT_EQ(report->GetAcceptedEncodings(), AcceptedEncodings());
        });
    }

    static void ExpectEncodingError(const ICheckInputReport& report, const std::string& id) {
        EXPECT_EQ(report.GetErrorType(), kEncoding);
        EXPECT_EQ(report.GetAcceptedEncodings(), (AcceptedEncodings{{id, {}}}));
        EXPECT_EQ(report.GetExpectedContentTypes(), std::multiset<ContentType>());
    }

    static std::shared_ptr<IAudioInfo>
    MakeInfoWith(std::shared_ptr<const IAudioParameters> parameters) {
        return CreateAudioInfo(std::move(parameters), MakeChannels(2), {}, {});
    }
};

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereThereIsAnotherInfoBesideTheAudio) {
    ExpectTrackError(
        CreateInfoContainer(InfoList{MakeInfo({}), std::make_shared<OtherInfo>()}, nullptr));
    ExpectTrackError(
        CreateInfoContainer(InfoList{std::make_shared<OtherInfo>(), MakeInfo({})}, nullptr));
}

TEST_F(LibsndfileSinkCheck, AcceptsWhatLibsndfileWrites) {
    for (const std::string type : {"AIFF", "BWAVE", "WAVE"}) {
        const auto sink = MakeConfiguredSink(type);
        ExpectRecords({}, [&] {
            const auto report = sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "");
            ASSERT_NE(report, nullptr);
            EXPECT_EQ(report->GetErrorType(), kNone);
            EXPECT_EQ(report->GetExpectedContentTypes(), std::multiset<ContentType>());
            EXPECT_EQ(report->GetAcceptedEncodings(), AcceptedEncodings());
        });
    }
    EXPECT_EQ(SndfileCalls(), Calls(3, "sf_format_check"));
}

TEST_F(LibsndfileSinkCheck, NamesTheInfoThatTheContainerDoesNotTake) {
    const auto info = MakeInfo(BigEndian());
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRecords({}, [&] {
        ExpectEncodingError(
            *sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(info, nullptr), ""),
            info->GetId());
    });
    EXPECT_EQ(SndfileCalls(), Calls{"sf_format_check"});
}

TEST_F(LibsndfileSinkCheck, TakesEveryAnswerOfLibsndfileButZeroForAYes) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const int answer : {0, 1, 2, -1}) {
        SCOPED_TRACE(answer);
        StandIn().format_check = [answer](const SF_INFO*) {
            return answer;
        };
        EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "")->GetErrorType(),
                  answer == 0 ? kEncoding : kNone);
    }
}

TEST_F(LibsndfileSinkCheck, PassesOnThatTheManifestDeclaresNoType) {
    const auto sink =
        MakeSinkFrom(CreateParametersCollectionInstance(CreateParametersCollectionPrototype()));
    ExpectRefusal("[parameter \"type\" is not declared (wanted: string)]", kParametersFile,
                  [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); });
}

TEST_F(LibsndfileSinkCheck, NeedsAManifestToJudgeAnEncoding) {
    const auto sink = MakeSinkFrom(nullptr);
    ExpectSinkRefusal("[LibsndfileSink was made without a manifest] [ Pointer is null ]",
                      [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); });
}

TEST_F(LibsndfileSinkCheck, NeedsAnInput) {
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectSinkRefusal("[LibsndfileSink got no input description] [ Pointer is null ]",
                      [&] { sink->CheckInputAndAdaptIfNecessary(nullptr, ""); });
}

TEST_F(LibsndfileSinkCheck, MakesTwentyCandidatesAndProposesNone) {
    const auto input = MakeInputWith(nullptr);
    const auto sink = MakeConfiguredSink("WAVE");
    ParameterCalls().clear();
    const auto report = sink->CheckInputAndAdaptIfNecessary(input, "");
    struct TypeLayout {
        std::string type;
        std::string bytes;
        std::string bits;
    };
    const std::vector<TypeLayout> layouts{
        {"2", "4", "32"}, {"2", "8", "64"}, {"1", "2", "16"}, {"1", "3", "24"}, {"1", "4", "32"}};
    Calls expected;
    for (const std::string rate : {"22500", "44100", "48000", "96000"}) {
        for (const TypeLayout& layout : layouts) {
            expected.insert(expected.end(),
                            {"CreateAudioParameters 2", "SetMuxing 2", "SetSampleRate " + rate,
                             "SetBitsDepth " + layout.bits, "SetEndianness 1",
                             "SetPCMType " + layout.type, "SetSampleSize " + layout.bytes});
        }
    }
    EXPECT_EQ(ParameterCalls(), expected);
    EXPECT_EQ(report->GetAcceptedEncodings().begin()->second.size(), 0U);
}

TEST_F(LibsndfileSinkCheck, RefusesAnInfoThatIsNoLongerPCM) {
    const auto info = std::make_shared<ChangingInfo>();
    int asked = 0;
    info->parameters = [&asked]() -> std::shared_ptr<const IAudioParameters> {
        return ++asked == 1 ? MakeParameters({}) : nullptr;
    };
    ExpectSinkRefusal(kNotPCM, [&] {
        MakeConfiguredSink("WAVE")->CheckInputAndAdaptIfNecessary(
            CreateInfoContainer(info, nullptr), "");
    });
}

// The format of a file

constexpr auto kLittle = PCMEndianness::Little;
constexpr auto kBig = PCMEndianness::Big;
constexpr auto kNoByteOrder = PCMEndianness::Undefined;
constexpr auto kNoType = AudioPCMType::Undefined;

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

struct FormatWord {
    std::string name;
    std::string type;
    Layout layout;
    int word;
};

void PrintTo(const FormatWord& one, std::ostream* stream) {
    *stream << one.name;
}

struct Refusal {
    std::string name;
    std::string type;
    Layout layout;
    std::string message;
};

void PrintTo(const Refusal& one, std::ostream* stream) {
    *stream << one.name;
}

class LibsndfileSinkFormat : public FakeFilesTest,
                             public testing::WithParamInterface<FormatWord> {};

TEST_P(LibsndfileSinkFormat, IsTheSameForTheCheckAndTheFile) {
    std::vector<SfInfoFields> checked;
    StandIn().format_check = [&checked](const SF_INFO* passed) {
        checked.push_back(FieldsOf(*passed));
        return 1;
    };
    Layout layout = GetParam().layout;
    layout.rate = 44100;
    layout.channels = 6;
    const SfInfoFields expected{0, 44100, 6, GetParam().word, 0, 0};
    MakeConfiguredSink(GetParam().type, "take")->DefineInput(MakeInput(layout), "");
    EXPECT_EQ(checked, std::vector<SfInfoFields>{expected});
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].info, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Of, LibsndfileSinkFormat,
    testing::Values(FormatWord{"AIFFInteger16Big", "AIFF", Integer(2, 16, kBig), 0x20020002},
                    FormatWord{"AIFFFloat64Big", "AIFF", Float(8, 64, kBig), 0x20020007},
                    FormatWord{"BWAVEInteger32Little", "BWAVE", Integer(4, 32), 0x10220004},
                    FormatWord{"WAVEInteger24Little", "WAVE", Integer(3, 24), 0x10130003},
                    FormatWord{"WAVEFloat32Little", "WAVE", Float(4, 32), 0x10130006}),
    [](const testing::TestParamInfo<FormatWord>& one) { return one.param.name; });

class LibsndfileSinkFormatRefusal : public SndfileTest,
                                    public testing::WithParamInterface<Refusal> {};

TEST_P(LibsndfileSinkFormatRefusal, CreatesNoFile) {
    const auto sink = MakeConfiguredSink(GetParam().type, "take");
    const auto input = MakeInput(GetParam().layout);
    ExpectCalls({}, [&] {
        ExpectSinkRefusal(GetParam().message, [&] { sink->DefineInput(input, ""); },
                          {Info(kFromType + GetParam().type)});
    });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Of, LibsndfileSinkFormatRefusal,
    testing::Values(
        Refusal{"RAWBeforeALayoutThatIsWrongThroughout", "RAW",
                MakeLayout(kNoType, 0, 0, kNoByteOrder), kWrapperRefused},
        Refusal{"Integer16With24Bits", "WAVE", Integer(2, 24), kInteger2},
        Refusal{"Integer24With16Bits", "WAVE", Integer(3, 16), kInteger3},
        Refusal{"Integer32With24Bits", "WAVE", Integer(4, 24), kFourBytes},
        Refusal{"Float32With24Bits", "WAVE", Float(4, 24), kFourBytes},
        Refusal{"Float64With32Bits", "WAVE", Float(8, 32), kFloat8},
        Refusal{"IntegerIn1Byte", "WAVE", Integer(1, 8), kIntegerSize},
        Refusal{"IntegerIn5Bytes", "AIFF", Integer(5, 40), kIntegerSize},
        Refusal{"IntegerIn8Bytes", "WAVE", Integer(8, 64), kIntegerSize},
        Refusal{"FloatIn2Bytes", "WAVE", Float(2, 16), kFloatSize},
        Refusal{"FloatIn5Bytes", "BWAVE", Float(5, 40), kFloatSize},
        Refusal{"FloatIn9Bytes", "BWAVE", Float(9, 72), kFloatSize},
        Refusal{"TypeUndefined", "WAVE", MakeLayout(kNoType, 2, 16), kType},
        Refusal{"TypeAfterTheLast", "AIFF", MakeLayout(static_cast<AudioPCMType>(3), 4, 32), kType},
        Refusal{"ByteOrderUndefined", "WAVE", Integer(2, 16, kNoByteOrder), kByteOrder},
        Refusal{"ByteOrderAfterTheLast", "BWAVE", Integer(3, 24, static_cast<PCMEndianness>(3)),
                kByteOrder},
        Refusal{"TypeBeforeByteOrder", "WAVE", MakeLayout(kNoType, 2, 16, kNoByteOrder), kType}),
    [](const testing::TestParamInfo<Refusal>& one) { return one.param.name; });

// The definition of an input

TEST_F(LibsndfileSink, CountsAnInfoWithoutChannelsAsNone) {
    ExpectRefusedFirst(MakeInputWith(MakeParameters({}), nullptr), kNoChannels);
}

TEST_F(LibsndfileSink, TakesOrRefusesEachMuxingByTheNumberOfChannels) {
    struct Case {
        std::uint32_t channels;
        std::vector<int> accepted;
        std::string message;
    };
    const std::vector<Case> cases{{0, {}, kNoChannels},
                                  {1, {1, 2}, kOneChannel},
                                  {2, {2, 3}, kTwoChannels},
                                  {3, {2}, kManyChannels},
                                  {6, {2}, kManyChannels},
                                  {1024, {2}, kManyChannels},
                                  {0xFFFFFFFF, {2}, kManyChannels}};
    StandIn().format_check = [](const SF_INFO*) {
        return 1;
    };
    for (const Case& one : cases) {
        for (const int muxing : {-1, 0, 1, 2, 3, 4}) {
            SCOPED_TRACE(std::to_string(one.channels) + " channels, muxing " +
                         std::to_string(muxing));
            const auto input = MakeInput(WithMuxing(one.channels, muxing));
            const auto& accepted = one.accepted;
            if (std::find(accepted.begin(), accepted.end(), muxing) == accepted.end()) {
                SndfileCalls().clear();
                ExpectRefusedFirst(input, one.message);
            } else {
                const auto sink = MakeConfiguredSink("WAVE", "take");
                ExpectRecords({Info(kFromType + "WAVE")}, [&] { sink->DefineInput(input, ""); });
                EXPECT_EQ(sink->GetDefinedInput(""), input);
            }
        }
    }
    EXPECT_EQ(openings.size(), 8U);
}

TEST_F(LibsndfileSink, NeedsAManifest) {
    const auto sink = MakeSinkFrom(nullptr);
    sink->SetInitConfig(MakeSettingsFor("take.wav"));
    ExpectSinkRefusal("[LibsndfileSink was made without a manifest] [ Pointer is null ]",
                      [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSink, ReadsThePathFromTheSettingsAndTheTypeFromTheManifest) {
    auto prototype = CreateParametersCollectionPrototype();
    prototype->AddStringParameter("FilePath", "");
    prototype->AddStringParameter("type", "");
    auto settings = CreateParametersCollectionInstance(prototype);
    settings->SetStringValue("FilePath", "right");
    settings->SetStringValue("type", "AIFF");
    auto manifest = CreateParametersCollectionInstance(prototype);
    manifest->SetStringValue("FilePath", "wrong.rf64");
    manifest->SetStringValue("type", "WAVE");

    const auto sink = MakeSinkFrom(manifest);
    sink->SetInitConfig(settings);
    ExpectRecords({Info(kFromType + "WAVE")}, [&] { sink->DefineInput(MakeInput({}), ""); });
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].path, "right");
    EXPECT_EQ(std::get<3>(openings[0].info), 0x10130002);
}

struct ExtensionCase {
    std::wstring path;
    std::string format; // empty for none
};

TEST_F(LibsndfileSink, InfersTheFormatFromTheExtensionInEverySpellingButCreatesNothing) {
    const std::vector<ExtensionCase> cases{
        {L"take.wav", "WAVE"},    {L"take.Wave", "WAVE"},
        {L"take.RF64", "BWAVE"},  {L"take.bWAV", "BWAVE"},
        {L"take.bwave", "BWAVE"}, {L"take.aif", "AIFF"},
        {L"take.AIFF", "AIFF"},   {L"take.rAw", "RAW"},
        {L".wav", "WAVE"},        {L"out.d/take.aiff.wav", "WAVE"},
        {L"take..raw", "RAW"},    {L"\u30C6\u30AF.wav", "WAVE"},
    };
    for (const ExtensionCase& one : cases) {
        SCOPED_TRACE(ConvertWideStringToPlatformString(one.path));
        const auto sink = MakeConfiguredSink("");
        sink->Open(one.path);
        ExpectSinkRefusal(kWrapperRefused, [&] { sink->DefineInput(MakeInput({}), ""); },
                          {Info(kFromExtension + one.format)});
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSink, FindsNoFormatWithoutAnExtensionOfTheTable) {
    const std::vector<std::wstring> paths{
        L"",
        L"take",
        L"wav",
        L".",
        L"take.",
        L"take.wav.",
        L"take.wav ",
        L"take.wavx",
        L"take.wa",
        L"take.wav.txt",
        L"take.aifc",
        L"take.bwf",
        L"out.d/take",
        L"out.wav/take",
        // The first letter is a w only in its last byte, or in another script.
        L"take.\u0177av",
        L"take.\uFF57av",
        L"take.\U00010077av",
    };
    for (const std::wstring& path : paths) {
        SCOPED_TRACE(ConvertWideStringToPlatformString(path));
        const auto sink = MakeConfiguredSink("");
        sink->Open(path);
        ExpectSinkRefusal(kNoFormat, [&] { sink->DefineInput(MakeInput({}), ""); });
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSink, ChecksOnceAndOpensOnce) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(SndfileCalls(), std::vector<std::string>({"sf_format_check", "sf_open"}));
}

TEST_F(LibsndfileSink, KeepsTheInputWhoseFileCanNotBeOpened) {
    SNDFILE* asked = File(0);
    StandIn().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
        return nullptr;
    };
    StandIn().strerror = [&asked](SNDFILE* file) {
        asked = file;
        return "the reason";
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    const auto input = MakeInput({});
    ExpectSinkRefusal(UnableToOpen("take", "the reason"), [&] { sink->DefineInput(input, ""); },
                      {Info(kFromType + "WAVE")});
    EXPECT_EQ(asked, nullptr);
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(),
              std::vector<std::string>({"sf_format_check", "sf_open", "sf_strerror"}));
}

TEST_F(LibsndfileSink, HasNoFileAfterAFailedOpenAndMayBeGivenAnotherPath) {
    bool failing = true;
    StandIn().open = [&failing, fake = StandIn().open](const char* path, int mode,
                                                       SF_INFO* passed) {
        return failing ? nullptr : fake(path, mode, passed);
    };
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"first");
    EXPECT_THROW(sink->DefineInput(MakeInput({}), ""), KELRuntimeError);
    sink->PushSample(MakeContainer("abcd"));
    sink->Close(false);
    EXPECT_EQ(closings.size(), 0U);
    ASSERT_EQ(writings.size(), 1U);
    EXPECT_EQ(writings[0].file, nullptr);

    failing = false;
    sink->Open(L"second");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].path, "second");
}

TEST_F(LibsndfileSink, KeepsTheInputWhoseLayoutIsRefusedAtTheLastMoment) {
    const auto info = std::make_shared<ChangingInfo>();
    bool checked = false;
    StandIn().format_check = [&checked](const SF_INFO*) {
        checked = true;
        return 1;
    };
    info->parameters = [&checked]() -> std::shared_ptr<const IAudioParameters> {
        Layout layout;
        layout.bits = checked ? 15 : 16;
        return MakeParameters(layout);
    };
    const InputHandle input = CreateInfoContainer(info, nullptr);
    const auto sink = MakeConfiguredSink("WAVE", "take");
    ExpectSinkRefusal(
        "[(pcmAudioParams->GetSampleSize() == 2) && (pcmAudioParams->GetBitsDepth() != "
        "16)]",
        [&] { sink->DefineInput(input, ""); }, {Info(kFromType + "WAVE")});
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(), Calls{"sf_format_check"});
}

TEST_F(LibsndfileSink, LowersOnlyASCIILettersOfAnExtensionInEveryLocale) {
    const std::string former = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const auto sink = MakeConfiguredSink("");
    sink->Open(L"take.a\u0130ff"); // a capital I with a dot, whose lower case is an i
    ExpectSinkRefusal(kNoFormat, [&] { sink->DefineInput(MakeInput({}), ""); });
    std::setlocale(LC_ALL, former.c_str());
}

// A sink that is writing one file already.
class LibsndfileSinkSecondInput : public FakeFilesTest {
protected:
    LibsndfileSinkSecondInput() {
        sink->SetInitConfig(MakeSettingsFor("first.wav"));
        sink->DefineInput(first, "");
        sink->SetInitConfig(MakeSettingsFor("second.wav"));
        SndfileCalls().clear();
    }

    void ExpectStillWritingToFile(std::size_t index) {
        sink->PushSample(MakeContainer("abcd"));
        ASSERT_EQ(writings.size(), 1U);
        EXPECT_EQ(writings[0].file, File(index));
        ExpectSinkRefusal("[A file is already opened!]", [&] { sink->Open(L"third.wav"); });
    }

    InputHandle first = MakeInput({});
    std::shared_ptr<IParametersCollectionInstance> manifest = MakeManifest("WAVE");
    std::shared_ptr<IAudioSink> sink = MakeSinkFrom(manifest);
};

TEST_F(LibsndfileSinkSecondInput, KeepsTheFirstFileWhereTheSecondCanNotBeOpened) {
    StandIn().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
        return nullptr;
    };
    SNDFILE* asked = File(0);
    StandIn().strerror = [&asked](SNDFILE* file) {
        asked = file;
        return "no";
    };
    const auto second = MakeInput({});
    ExpectSinkRefusal(UnableToOpen("second.wav", "no"), [&] { sink->DefineInput(second, ""); },
                      {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(asked, nullptr) << "the reason of a failed open is that of no file";
    EXPECT_EQ(sink->GetDefinedInput(""), second);
    EXPECT_EQ(closings.size(), 0U);
    ExpectStillWritingToFile(0);
}

// Samples

std::string TooMany(const std::string& count) {
    return "[More than one audio sample received! This is forbidden] [ value1 (" + count +
           ") is not == value2 (1) ]";
}

std::shared_ptr<IBuffer> MakeBuffer(const std::string& bytes) {
    auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(static_cast<std::uint32_t>(bytes.size()));
    bytes.copy(reinterpret_cast<char*>(buffer->GetData()), bytes.size());
    buffer->SetSize(static_cast<std::uint32_t>(bytes.size()));
    return buffer;
}

std::shared_ptr<const ISample> MakeSample(std::shared_ptr<const IBuffer> buffer) {
    return CreateAudioSample(nullptr, nullptr, std::move(buffer), TimeLimits(), {});
}

class LibsndfileSinkPushSample : public FakeFilesTest {
protected:
    LibsndfileSinkPushSample() { SndfileCalls().clear(); }

    /// The list with one entry that it has when so many bytes of this buffer were written.
    std::vector<Writing> WritingOf(const IBuffer& buffer, sf_count_t bytes) {
        return {{File(0), buffer.GetData(), bytes}};
    }

    std::shared_ptr<IAudioSink> sink = MakeWritingSink("take");
};

TEST_F(LibsndfileSinkPushSample, WritesTheBytesOfTheBufferWhereTheyLieInOneCall) {
    for (const std::size_t size : {1U, 4U, 5U, 4096U, 1000003U}) {
        SCOPED_TRACE(size);
        const auto buffer = MakeBuffer(std::string(size, 'x'));
        writings.clear();
        SndfileCalls().clear();
        ExpectRecords(
            {}, [&] { sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr)); });
        EXPECT_EQ(writings, WritingOf(*buffer, static_cast<sf_count_t>(size)));
        EXPECT_EQ(SndfileCalls(), Calls{"sf_write_raw"});
    }
}

TEST_F(LibsndfileSinkPushSample, IgnoresSamplesThatAreNotAudio) {
    class OtherSample final : public ISample {};
    const auto buffer = MakeBuffer("abcd");
    const auto other = std::make_shared<OtherSample>();
    ExpectRecords({}, [&] {
        sink->PushSample(CreateSampleContainer(other, nullptr));
        sink->PushSample(CreateSampleContainer(Samples{other, MakeSample(buffer), other}, nullptr));
    });
    EXPECT_EQ(writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, RefusesMoreThanOneSampleAndWritesNoneOfThem) {
    for (const std::size_t count : {2U, 3U, 100U}) {
        const Samples samples(count, MakeSample(MakeBuffer("abcd")));
        const auto container = CreateSampleContainer(samples, nullptr);
        ExpectSinkRefusal(TooMany(std::to_string(count)), [&] { sink->PushSample(container); });
    }
    EXPECT_EQ(SndfileCalls(), Calls());
    // The next one is written.
    const auto buffer = MakeBuffer("efgh");
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, NeedsAContainer) {
    ExpectSinkRefusal("[LibsndfileSink got no sample container] [ Pointer is null ]",
                      [&] { sink->PushSample(nullptr); });
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSinkPushSample, LogsEveryCountThatIsNotTheSizeAsASignedNumber) {
    for (const sf_count_t written :
         std::vector<sf_count_t>{0, 7, 9, -1, std::numeric_limits<sf_count_t>::max(),
                                 std::numeric_limits<sf_count_t>::min()}) {
        StandIn().write_raw = [written](SNDFILE*, const void*, sf_count_t) {
            return written;
        };
        ExpectRecords({ShortWrite("8", std::to_string(written))},
                      [&] { sink->PushSample(MakeContainer("abcdefgh")); });
    }
}

TEST_F(LibsndfileSinkPushSample, HandsLibsndfileItsNullHandleWithoutAFile) {
    const auto buffer = MakeBuffer("abcd");
    sink->Close(false);
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    MakeSink("WAVE")->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(writings, std::vector<Writing>(
                            {{nullptr, buffer->GetData(), 4}, {nullptr, buffer->GetData(), 4}}));
}

// Real files

// With libsndfile's own answers.
class LibsndfileSinkRealFile : public SndfileTest {
protected:
    std::string SampleBytes() const { return ReadFile(path).substr(80); }

    TemporaryDirectory directory;
    std::string path = directory / "take.wav";
};

TEST_F(LibsndfileSinkRealFile, RefusesWhatLibsndfileDoesNotTakeAndLeavesTheFileOfThatName) {
    WriteFile(directory / "take.wav", "precious");
    const auto sink = MakeConfiguredSink("WAVE", directory / "take.wav");
    ExpectSinkRefusal(kInputRefused, [&] { sink->DefineInput(MakeInput(BigEndian()), ""); },
                      {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(SndfileCalls(), Calls{"sf_format_check"});
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    EXPECT_EQ(ReadFile(directory / "take.wav"), "precious");
}

TEST_F(LibsndfileSinkRealFile, FailsOnAFullDevice) {
    const auto sink = MakeConfiguredSink("WAVE", "/dev/full");
    ExpectSinkRefusal(UnableToOpen("/dev/full", "System error : No space left on device."),
                      [&] { sink->DefineInput(MakeInput({}), ""); }, {Info(kFromType + "WAVE")});
}

TEST_F(LibsndfileSinkRealFile, FailsAtRateZeroWhichTheCheckLetsPass) {
    Layout layout;
    layout.rate = 0;
    const auto sink = MakeConfiguredSink("WAVE", path);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(), 0);
    ExpectSinkRefusal(UnableToOpen(path, "Internal error : SF_INFO struct incomplete."),
                      [&] { sink->DefineInput(MakeInput(layout), ""); },
                      {Info(kFromBoth + "WAVE")});
}

TEST_F(LibsndfileSinkRealFile, ReplacesAFileOfThatName) {
    WriteFile(path, std::string(1000, 'x'));
    const auto sink = MakeWritingSink(path);
    sink->Close(false);
    EXPECT_EQ(ReadFile(path).size(), 80U);
    EXPECT_EQ(ReadFile(path).substr(0, 4), "RIFF");
}

TEST_F(LibsndfileSinkRealFile, CreatesFilesWithNamesOfAnyBytes) {
    for (const std::string name : {"Gr\xC3\xBC\xC3\x9F"
                                   "e.wav",
                                   "\xFF\xC3.wav", "new\nline.wav"}) {
        const auto fromSettings = MakeWritingSink(directory / name);
        fromSettings->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);

        const auto fromOpen = MakeConfiguredSink("WAVE");
        fromOpen->Open(ConvertPlatformStringToWideString(directory / name));
        fromOpen->DefineInput(MakeInput({}), "");
        fromOpen->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);
    }
}

TEST_F(LibsndfileSinkRealFile, CreatesASecondFileWhileTheFirstStaysUnfinished) {
    std::vector<SNDFILE*> opened;
    StandIn().open = [&opened](const char* name, int mode, SF_INFO* passed) {
        opened.push_back(RealSndfile().open(name, mode, passed));
        return opened.back();
    };
    const auto sink = MakeWritingSink(directory / "first.wav");
    sink->PushSample(MakeContainer("abcd"));
    sink->SetInitConfig(MakeSettingsFor(directory / "second.wav"));
    sink->DefineInput(MakeInput({}), "");
    sink->PushSample(MakeContainer("efghijkl"));
    sink->Close(false);
    const auto& calls = SndfileCalls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sf_close"), 1);

    const std::string second = ReadFile(directory / "second.wav");
    EXPECT_EQ(second.substr(80), "efghijkl");
    const std::string unfinished = ReadFile(directory / "first.wav");
    EXPECT_EQ(unfinished.substr(76, 4), std::string(4, '\0'));
    ASSERT_EQ(opened.size(), 2U);
    EXPECT_EQ(RealSndfile().close(opened[0]), 0);
    const std::string first = ReadFile(directory / "first.wav");
    EXPECT_EQ(first.substr(76), std::string("\4\0\0\0abcd", 8));
}

TEST_F(LibsndfileSinkRealFile, IsLoggedWithoutAFile) {
    const auto sink = MakeConfiguredSink("WAVE", path);
    const Lines expected{ShortWrite("4", "0")};
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->DefineInput(MakeInput({}), "");
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->Close(false);
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    EXPECT_EQ(SampleBytes(), "abcd");
}

TEST_F(LibsndfileSinkRealFile, LeavesOutWhatIsNoWholeFrameWithARecord) {
    const auto sink = MakeWritingSink(path);
    sink->PushSample(MakeContainer("abcd"));
    ExpectRecords({ShortWrite("5", "0")}, [&] { sink->PushSample(MakeContainer("efghi")); });
    sink->PushSample(MakeContainer("jklm"));
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), "abcdjklm");
}

// The size that files of this process may have, for as long as it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN); // so that the write fails, and not the process
        getrlimit(RLIMIT_FSIZE, &m_former);
        const rlimit limit{bytes, m_former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, SIG_DFL);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_former{};
};

TEST_F(LibsndfileSinkRealFile, KeepsThePartThatWasWrittenAndAppendsTheNextSample) {
    const auto sink = MakeWritingSink(path);
    std::string tooMuch(400, 'x');
    {
        const FileSizeLimit limit(80 + 100);
        ExpectRecords({ShortWrite("400", "100")},
                      [&] { sink->PushSample(MakeContainer(tooMuch)); });
        ExpectRecords({ShortWrite("4", "0")}, [&] { sink->PushSample(MakeContainer("lost")); });
    }
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), std::string(100, 'x') + "abcd");
}

} // namespace
} // namespace kel::test
