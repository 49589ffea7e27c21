// The check and the definition of a sink's input.

#include "FakeFiles.h"
#include "SinkTestSupport.h"

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using InfoList = std::vector<std::shared_ptr<const IInfo>>;
using InputHandle = std::shared_ptr<const IInfoContainer>;

const std::string kNotPCM = "[Only PCM audio is supported] [ Pointer is null ]";
const std::string kNoChannels = "[There are 0 channels in the audio info!]";
const std::string kOneChannel = "[Only \"none\" and \"multi\" are accepted for 1-channel muxing]";
const std::string kTwoChannels =
    "[Only \"stereo\" and \"multi\" are accepted for 2-channel muxing]";
const std::string kManyChannels = "[Only \"multi\" is accepted for multichannel (> 2) muxing]";
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

using AudioInfoList = std::vector<std::shared_ptr<const IAudioInfo>>;

/// A container of another library, whose list of audio infos changes after some calls.
class ChangingContainer final : public IInfoContainer {
public:
    /// @param calls number of calls that return one info
    /// @param later the list of all later calls
    ChangingContainer(int calls, AudioInfoList later) : m_rest(calls), m_later(std::move(later)) {}

    InfoList GetInfos() const override { return {m_info}; }
    AudioInfoList GetAudioInfos() const override {
        return m_rest-- > 0 ? AudioInfoList{m_info} : m_later;
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    std::shared_ptr<const IAudioInfo> m_info = MakeInfo({});
    mutable int m_rest;
    AudioInfoList m_later;
};

const std::string kNoAudioInfo = "[LibsndfileSink got no audio info] [ Pointer is null ]";

class LibsndfileSinkInput : public FakeFilesTest {
protected:
    /// Defines an input that must be refused on a sink where every later step would fail as well:
    /// it has two paths and no container format.
    void ExpectRefusedFirst(const InputHandle& input, const std::string& message) {
        const auto sink = MakeConfiguredSink("", "take");
        sink->Open(L"take");
        ExpectCalls({}, [&] { ExpectSinkRefusal(message, [&] { sink->DefineInput(input, ""); }); });
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
};

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
};

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereAudioAndAnotherInfoAreGiven) {
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

TEST_F(LibsndfileSinkCheck, NamesTheInfoThatTheContainerDoesNotSupport) {
    const auto info = MakeInfo(BigEndian());
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRecords({}, [&] {
        ExpectEncodingError(
            *sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(info, nullptr), ""),
            info->GetId());
    });
    EXPECT_EQ(SndfileCalls(), Calls{"sf_format_check"});
}

TEST_F(LibsndfileSinkCheck, AcceptsEveryResultOfTheFormatCheckButZero) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const int answer : {0, 1, 2, -1}) {
        SCOPED_TRACE(answer);
        SndfileAnswers().format_check = [answer](const SF_INFO*) {
            return answer;
        };
        EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "")->GetErrorType(),
                  answer == 0 ? kEncoding : kNone);
    }
}

TEST_F(LibsndfileSinkCheck, ReportsAManifestThatDeclaresNoType) {
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

TEST_F(LibsndfileSinkCheck, RefusesAContainerThatNoLongerListsItsInfo) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const AudioInfoList& later : {AudioInfoList{}, AudioInfoList{nullptr}}) {
        const auto input = std::make_shared<ChangingContainer>(1, later);
        ExpectSinkRefusal(kNoAudioInfo, [&] { sink->CheckInputAndAdaptIfNecessary(input, ""); });
    }
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereTheInfoIsAnEmptyHandle) {
    ExpectTrackError(std::make_shared<ChangingContainer>(0, AudioInfoList{nullptr}));
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
    SndfileAnswers().format_check = [&checked](const SF_INFO* passed) {
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

TEST_F(LibsndfileSinkInput, CannotBeMissing) {
    ExpectRefusedFirst(nullptr, "[LibsndfileSink got no input description] [ Pointer is null ]");
}

TEST_F(LibsndfileSinkInput, CannotBeAnEmptyHandleInTheContainerOfAnotherLibrary) {
    ExpectRefusedFirst(std::make_shared<ChangingContainer>(0, AudioInfoList{nullptr}),
                       "[Only one info supported in input. It must be audio.]");
}

TEST_F(LibsndfileSinkInput, MustStayInItsContainerUntilItIsAccepted) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    // The list is read by the definition, and twice by the check.
    const auto input = std::make_shared<ChangingContainer>(2, AudioInfoList{});
    ExpectCalls({}, [&] {
        ExpectSinkRefusal(kNoAudioInfo, [&] { sink->DefineInput(input, ""); },
                          {Info(kFromType + "WAVE")});
    });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkInput, CountsAnInfoWithoutChannelsAsNone) {
    ExpectRefusedFirst(MakeInputWith(MakeParameters({}), nullptr), kNoChannels);
}

TEST_F(LibsndfileSinkInput, AcceptsOrRefusesEachMuxingByTheNumberOfChannels) {
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
    SndfileAnswers().format_check = [](const SF_INFO*) {
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

TEST_F(LibsndfileSinkInput, NeedsAManifest) {
    const auto sink = MakeSinkFrom(nullptr);
    sink->SetInitConfig(MakeSettingsFor("take.wav"));
    ExpectSinkRefusal("[LibsndfileSink was made without a manifest] [ Pointer is null ]",
                      [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkInput, ReadsThePathFromTheSettingsAndTheTypeFromTheManifest) {
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

TEST_F(LibsndfileSinkInput, InfersTheFormatFromTheExtensionInEverySpellingButCreatesNothing) {
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

TEST_F(LibsndfileSinkInput, FindsNoFormatWithoutAnExtensionOfTheTable) {
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

TEST_F(LibsndfileSinkInput, ChecksOnceAndOpensOnce) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(SndfileCalls(), std::vector<std::string>({"sf_format_check", "sf_open"}));
}

TEST_F(LibsndfileSinkInput, KeepsTheInputWhoseFileCannotBeOpened) {
    const std::vector<std::pair<const char*, std::string>> reasons{{"the reason", "the reason"},
                                                                   {nullptr, ""}};
    for (const auto& row : reasons) {
        RefuseToOpen(row.first);
        const auto sink = MakeConfiguredSink("WAVE", "take");
        const auto input = MakeInput({});
        ExpectCalls({"sf_format_check", "sf_open", "sf_strerror"}, [&] {
            ExpectSinkRefusal(UnableToOpen("take", row.second),
                              [&] { sink->DefineInput(input, ""); }, {Info(kFromType + "WAVE")});
        });
        EXPECT_EQ(sink->GetDefinedInput(""), input);
    }
}

TEST_F(LibsndfileSinkInput, HasNoFileAfterAFailedOpenAndAcceptsAnotherPath) {
    bool failing = true;
    SndfileAnswers().open = [&failing, fake = SndfileAnswers().open](const char* path, int mode,
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

TEST_F(LibsndfileSinkInput, KeepsTheInputWhoseLayoutIsRefusedAfterTheCheck) {
    const auto info = std::make_shared<ChangingInfo>();
    bool checked = false;
    SndfileAnswers().format_check = [&checked](const SF_INFO*) {
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

TEST_F(LibsndfileSinkInput, LowersOnlyASCIILettersOfAnExtensionInEveryLocale) {
    const std::string former = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const auto sink = MakeConfiguredSink("");
    sink->Open(L"take.a\u0130ff"); // a capital I with a dot, whose lower case is an i
    ExpectSinkRefusal(kNoFormat, [&] { sink->DefineInput(MakeInput({}), ""); });
    std::setlocale(LC_ALL, former.c_str());
}

TEST_F(LibsndfileSinkInput, KeepsTheFirstFileWhereASecondOneCannotBeOpened) {
    const auto sink = MakeConfiguredSink("WAVE", "first");
    sink->DefineInput(MakeInput({}), "");
    sink->SetInitConfig(MakeSettingsFor("second"));
    RefuseToOpen("the reason");
    const auto second = MakeInput({});
    ExpectSinkRefusal(UnableToOpen("second", "the reason"), [&] { sink->DefineInput(second, ""); },
                      {Info(kFromType + "WAVE")});
    EXPECT_EQ(sink->GetDefinedInput(""), second);
    EXPECT_EQ(closings.size(), 0U);
    sink->PushSample(MakeContainer("abcd"));
    ASSERT_EQ(writings.size(), 1U);
    EXPECT_EQ(writings[0].file, File());
}

} // namespace
} // namespace kel::test
