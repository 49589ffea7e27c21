// How a sink learns what it will receive, settles path and container, and creates its file.

#include "FakeFiles.h"
#include "FrameworkDoubles.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using InfoList = std::vector<std::shared_ptr<const IInfo>>;
using AudioInfoList = std::vector<std::shared_ptr<const IAudioInfo>>;
using InputHandle = std::shared_ptr<const IInfoContainer>;

const std::string kSingleInfo = "[Only one info supported in input. It must be audio.]";
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

class LibsndfileSinkDefineInput : public FakeFilesTest {
protected:
    /// Defines an input that must be refused on a sink where every later step would fail as well:
    /// two paths, no container format.
    void ExpectRefusedFirst(const InputHandle& input, const std::string& message) {
        const auto sink = MakeConfiguredSink("", "take");
        sink->Open(L"take");
        ExpectRefusal(message, [&] { sink->DefineInput(input, ""); });
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
        EXPECT_EQ(SndfileCalls(), Times(0, ""));
    }
};

TEST_F(LibsndfileSinkDefineInput, NeedsAnInput) {
    ExpectRefusedFirst(nullptr, "[LibsndfileSink got no input description] [ Pointer is null ]");
}

TEST_F(LibsndfileSinkDefineInput, RefusesAContainerWithoutInfos) {
    ExpectRefusedFirst(CreateInfoContainer(InfoList{}, nullptr), kSingleInfo);
}

TEST_F(LibsndfileSinkDefineInput, RefusesAnInfoThatIsNotAudio) {
    ExpectRefusedFirst(CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr), kSingleInfo);
}

TEST_F(LibsndfileSinkDefineInput, RefusesAnotherInfoBesideTheAudio) {
    ExpectRefusedFirst(
        CreateInfoContainer(InfoList{MakeInfo({}), std::make_shared<OtherInfo>()}, nullptr),
        kSingleInfo);
    ExpectRefusedFirst(
        CreateInfoContainer(InfoList{std::make_shared<OtherInfo>(), MakeInfo({})}, nullptr),
        kSingleInfo);
}

TEST_F(LibsndfileSinkDefineInput, RefusesTwoAudioInfos) {
    ExpectRefusedFirst(CreateInfoContainer(InfoList{MakeInfo({}), MakeInfo({})}, nullptr),
                       kSingleInfo);
}

TEST_F(LibsndfileSinkDefineInput, AsksForTheAudioInfosOnlyWhereThereIsOneInfo) {
    Script script;
    const auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    input->infos = {};
    ExpectRefusedFirst(input, kSingleInfo);
    EXPECT_EQ(script.calls, Times(1, "GetInfos"));
}

TEST_F(LibsndfileSinkDefineInput, RefusesOneInfoThatCountsAsTwoAudioInfosOrNone) {
    Script script;
    const auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    input->audioInfos = [] {
        return AudioInfoList{MakeInfo({}), MakeInfo({})};
    };
    ExpectRefusedFirst(input, kSingleInfo);
    input->audioInfos = [] {
        return AudioInfoList{};
    };
    ExpectRefusedFirst(input, kSingleInfo);
    input->audioInfos = [] {
        return AudioInfoList{nullptr};
    };
    ExpectRefusedFirst(input, kSingleInfo);
}

TEST_F(LibsndfileSinkDefineInput, JudgesTheInfoOfTheListThatItCounted) {
    Script script;
    const auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    int asked = 0;
    input->audioInfos = [&asked] {
        return ++asked == 1 ? AudioInfoList{CreateAudioInfo(nullptr, MakeChannels(2), {}, {})}
                            : AudioInfoList{MakeInfo({})};
    };
    ExpectRefusedFirst(input, kNotPCM);
    EXPECT_EQ(script.calls, std::vector<std::string>({"GetInfos", "GetAudioInfos"}));
}

TEST_F(LibsndfileSinkDefineInput, RefusesAnInfoWithoutParameters) {
    ExpectRefusedFirst(MakeInputWith(nullptr, MakeChannels(0)), kNotPCM);
}

TEST_F(LibsndfileSinkDefineInput, RefusesParametersThatAreNotPCM) {
    ExpectRefusedFirst(MakeInputWith(MakeForeignParameters(), MakeChannels(0)), kNotPCM);
}

TEST_F(LibsndfileSinkDefineInput, CountsAnInfoWithoutChannelsAsNone) {
    ExpectRefusedFirst(MakeInputWith(MakeParameters({}), nullptr), kNoChannels);
}

TEST_F(LibsndfileSinkDefineInput, TakesOrRefusesEachMuxingByTheNumberOfChannels) {
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
    EXPECT_EQ(files.openings.size(), 8U);
}

TEST_F(LibsndfileSinkDefineInput, ReportsABadMuxingEvenWithoutSettingsAndManifest) {
    const auto sink = MakeSinkFrom(nullptr);
    ExpectRefusal(kTwoChannels, [&] { sink->DefineInput(MakeInput(WithMuxing(2, 1)), ""); });
}

TEST_F(LibsndfileSinkDefineInput, NeedsSettings) {
    const auto sink = MakeSink("WAVE");
    ExpectRefusal("[LibsndfileSink needs SetInitConfig first] [ Pointer is null ]",
                  [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, NeedsAManifest) {
    const auto sink = MakeSinkFrom(nullptr);
    sink->SetInitConfig(MakeSettingsFor("take.wav"));
    ExpectRefusal("[LibsndfileSink was made without a manifest] [ Pointer is null ]",
                  [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkDefineInput, RefusesTwoPathsBeforeItLooksForAFormat) {
    const auto sink = MakeConfiguredSink("", "first");
    sink->Open(L"second");
    ExpectRefusal(kTwoPaths, [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkDefineInput, RefusesTwoPathsEvenWhereTheyAreEqual) {
    const auto sink = MakeConfiguredSink("WAVE", "take.wav");
    sink->Open(L"take.wav");
    ExpectRefusal(kTwoPaths, [&] { sink->DefineInput(MakeInput({}), ""); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, TakesThePathOfTheSettings) {
    const auto sink = MakeConfiguredSink("WAVE", "directory/take.wav");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "directory/take.wav");
    EXPECT_EQ(files.openings[0].mode, 0x20);
}

TEST_F(LibsndfileSinkDefineInput, TakesThePathThatOpenWasGiven) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"directory/take.wav");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "directory/take.wav");
    EXPECT_EQ(files.openings[0].mode, 0x20);
}

TEST_F(LibsndfileSinkDefineInput, CountsAnEmptyPathFromOpenAsNone) {
    const auto sink = MakeConfiguredSink("WAVE", "take.wav");
    sink->Open(L"");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "take.wav");
}

TEST_F(LibsndfileSinkDefineInput, ReadsThePathFromTheSettingsAndTheTypeFromTheManifest) {
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
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "right");
    EXPECT_EQ(std::get<3>(files.openings[0].info), 0x10130002);
}

TEST_F(LibsndfileSinkDefineInput, ConvertsThePathToThePlatformsNarrowForm) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"Gr\u00FC\u00DFe \U0001F3B5 \xDCFF.wav");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "Gr\xC3\xBC\xC3\x9F"
                                      "e \xF0\x9F\x8E\xB5 \xFF.wav");
}

struct ExtensionCase {
    std::wstring path;
    std::string format; // empty for none
};

TEST_F(LibsndfileSinkDefineInput, InfersTheFormatFromTheExtensionInEverySpellingButCreatesNothing) {
    const std::vector<ExtensionCase> cases{
        {L"take.wav", "WAVE"},      {L"take.WAV", "WAVE"},    {L"take.wAv", "WAVE"},
        {L"take.wave", "WAVE"},     {L"take.Wave", "WAVE"},   {L"take.WAVE", "WAVE"},
        {L"take.rf64", "BWAVE"},    {L"take.RF64", "BWAVE"},  {L"take.Rf64", "BWAVE"},
        {L"take.bwav", "BWAVE"},    {L"take.BWAV", "BWAVE"},  {L"take.bwave", "BWAVE"},
        {L"take.BWave", "BWAVE"},   {L"take.aif", "AIFF"},    {L"take.AIF", "AIFF"},
        {L"take.aiff", "AIFF"},     {L"take.AIFF", "AIFF"},   {L"take.AiFf", "AIFF"},
        {L"take.raw", "RAW"},       {L"take.RAW", "RAW"},     {L"take.Raw", "RAW"},
        {L".wav", "WAVE"},          {L"/data/.aiff", "AIFF"}, {L"/data/out.d/take.wav", "WAVE"},
        {L"take.aiff.wav", "WAVE"}, {L"take..raw", "RAW"},    {L"\u30C6\u30A4\u30AF.wav", "WAVE"},
    };
    for (const ExtensionCase& one : cases) {
        SCOPED_TRACE(ConvertWideStringToPlatformString(one.path));
        const auto sink = MakeConfiguredSink("");
        sink->Open(one.path);
        ExpectRefusal(kWrapperRefused, [&] { sink->DefineInput(MakeInput({}), ""); },
                      {Info(kFromExtension + one.format)});
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, FindsNoFormatWithoutAnExtensionOfTheTable) {
    const std::vector<std::wstring> paths{
        L"",
        L"take",
        L"wav",
        L".",
        L"take.",
        L"take.wav.",
        L"take.flac",
        L"take.wav ",
        L"take. wav",
        L"take.wavx",
        L"take.wa",
        L"take.wav.txt",
        L"take.aifc",
        L"take.bwf",
        L"take.rf",
        L"take.rifx",
        L"take.wavex",
        L"take.w64",
        L"take.pcm",
        L"take.unknown",
        L"/data/out.d/take",
        L"/data/out.wav/take",
        // What is like a letter of the table only in its last byte, or in another script.
        L"take.\u0177av",
        L"take.\u0157av",
        L"take.\u0457\u0441v",
        L"take.\uFF57\uFF41\uFF56",
        L"take.a\u0130f",
        L"take.a\u0131f",
        L"take.aif\u017F",
        L"take.\U00010077av",
        L"take.\xDCF7"
        L"av",
    };
    for (const std::wstring& path : paths) {
        SCOPED_TRACE(ConvertWideStringToPlatformString(path));
        const auto sink = MakeConfiguredSink("");
        sink->Open(path);
        ExpectRefusal(kNoFormat, [&] { sink->DefineInput(MakeInput({}), ""); });
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, CountsTypesThatNameNoFormatAsNone) {
    for (const std::string type : {"", "Unknown", "unknown", "wave", "Wave", "WAV", "WAVE ",
                                   " WAVE", "RF64", "32", "AIFF,WAVE"}) {
        SCOPED_TRACE(type);
        const auto without = MakeConfiguredSink(type, "take");
        ExpectRefusal(kNoFormat, [&] { without->DefineInput(MakeInput({}), ""); });
        const auto with = MakeConfiguredSink(type, "take.wav");
        ExpectRefusal(kWrapperRefused, [&] { with->DefineInput(MakeInput({}), ""); },
                      {Info(kFromExtension + "WAVE")});
    }
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, CountsATypeThatWasNeverSetAsNone) {
    const auto sink = MakeSinkFrom(CreateParametersCollectionInstance(GetRegistryEntryPrototype()));
    sink->SetInitConfig(MakeSettingsFor("take"));
    ExpectRefusal(kNoFormat, [&] { sink->DefineInput(MakeInput({}), ""); });
}

TEST_F(LibsndfileSinkDefineInput, PassesOnThatTheManifestDeclaresNoType) {
    const auto sink =
        MakeSinkFrom(CreateParametersCollectionInstance(CreateParametersCollectionPrototype()));
    sink->SetInitConfig(MakeSettingsFor("take.wav"));
    ExpectRefusal(
        "[parameter \"type\" is not declared (wanted: string)]",
        [&] { sink->DefineInput(MakeInput({}), ""); }, {}, "kelCore/ParametersCollection.cpp");
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkDefineInput, LetsTheTypeWinOverTheExtension) {
    struct Format {
        std::string type;
        std::string extension;
        int word; // 0 where nothing is created
    };
    const std::vector<Format> formats{{"AIFF", ".aif", 0x10020002},
                                      {"BWAVE", ".rf64", 0x10220002},
                                      {"WAVE", ".wav", 0x10130002},
                                      {"RAW", ".raw", 0}};
    for (const Format& type : formats) {
        for (const Format& extension : formats) {
            SCOPED_TRACE(type.type + " over " + extension.extension);
            files.openings.clear();
            const bool same = type.type == extension.type;
            const Line line =
                same ? Info(kFromBoth + type.type) : Overridden(extension.type, type.type);
            const auto sink = MakeConfiguredSink(type.type, "take" + extension.extension);
            const auto input = MakeInput({});
            if (type.word == 0) {
                ExpectRefusal(kWrapperRefused, [&] { sink->DefineInput(input, ""); }, {line});
                EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
                EXPECT_EQ(files.openings.size(), 0U);
            } else {
                ExpectRecords({line}, [&] { sink->DefineInput(input, ""); });
                EXPECT_EQ(sink->GetDefinedInput(""), input);
                ASSERT_EQ(files.openings.size(), 1U);
                EXPECT_EQ(files.openings[0].path, "take" + extension.extension);
                EXPECT_EQ(std::get<3>(files.openings[0].info), type.word);
            }
        }
    }
}

TEST_F(LibsndfileSinkDefineInput, TakesTheTypeWhereTheExtensionSaysNothing) {
    for (const std::string type : {"AIFF", "BWAVE", "WAVE"}) {
        for (const std::string path :
             {"take", "take.flac", "/data/out.d/take", "/data/out.wav/take"}) {
            SCOPED_TRACE(type + " for " + path);
            const auto sink = MakeConfiguredSink(type, path);
            ExpectRecords({Info(kFromType + type)}, [&] { sink->DefineInput(MakeInput({}), ""); });
        }
    }
    EXPECT_EQ(files.openings.size(), 12U);
}

TEST_F(LibsndfileSinkDefineInput, RefusesRAWAsAType) {
    const auto sink = MakeConfiguredSink("RAW", "take");
    ExpectRefusal(kWrapperRefused, [&] { sink->DefineInput(MakeInput({}), ""); },
                  {Info(kFromType + "RAW")});
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkDefineInput, RefusesWithThoseThatTheRegistryOffersForUnknownAndRAW) {
    for (const std::string type : {"Unknown", "RAW"}) {
        const auto sink = MakeSink(type);
        sink->SetInitConfig(MakeSettingsFor("take.wav"));
        ExpectRefusal(kWrapperRefused, [&] { sink->DefineInput(MakeInput({}), ""); },
                      {type == "RAW" ? Overridden("WAVE", "RAW") : Info(kFromExtension + "WAVE")});
    }
}

TEST_F(LibsndfileSinkDefineInput, RefusesEveryKindOfErrorInTheReport) {
    for (const std::int32_t errorType : {1, 2, 3, 1000, -1}) {
        FrameworkAnswers().createNoError = [errorType] {
            return std::make_shared<ReportDouble>(errorType);
        };
        const auto sink = MakeConfiguredSink("WAVE", "take");
        ExpectRefusal(kInputRefused, [&] { sink->DefineInput(MakeInput({}), ""); },
                      {Info(kFromType + "WAVE")});
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    }
    EXPECT_EQ(files.openings.size(), 0U);
}

TEST_F(LibsndfileSinkDefineInput, GoesByTheReportAndNotByTheFunctionThatMadeIt) {
    FrameworkAnswers().createEncodingError = [](const AcceptedEncodings&) {
        return std::make_shared<ReportDouble>(0);
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(MakeInput(BigEndian()), "");
    EXPECT_EQ(files.openings.size(), 1U);
}

TEST_F(LibsndfileSinkDefineInput, CountsAnEmptyReportAsAccepted) {
    FrameworkAnswers().createNoError = [] {
        return nullptr;
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    const auto input = MakeInput({});
    ExpectRecords({Info(kFromType + "WAVE")}, [&] { sink->DefineInput(input, ""); });
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(files.openings.size(), 1U);
}

TEST_F(LibsndfileSinkDefineInput, SharesTheInputAndKeepsNoOtherHandle) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    const auto input = MakeInput({});
    sink->DefineInput(input, "");
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(input.use_count(), 2);
}

TEST_F(LibsndfileSinkDefineInput, IgnoresTheName) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(MakeInput({}), "a name of the test's own");
    EXPECT_EQ(files.openings.size(), 1U);
}

TEST_F(LibsndfileSinkDefineInput, ChecksOnceAndOpensOnce) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(SndfileCalls(), std::vector<std::string>({"sf_format_check", "sf_open"}));
}

// What is changed last: the defined input, before the file.

TEST_F(LibsndfileSinkDefineInput, KeepsTheInputWhoseFileCanNotBeOpened) {
    SNDFILE* asked = files.File(0);
    StandIn().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
        return nullptr;
    };
    StandIn().strerror = [&asked](SNDFILE* file) {
        asked = file;
        return "the reason";
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    const auto input = MakeInput({});
    ExpectRefusal(CanNotOpen("take", "the reason"), [&] { sink->DefineInput(input, ""); },
                  {Info(kFromType + "WAVE")});
    EXPECT_EQ(asked, nullptr);
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(),
              std::vector<std::string>({"sf_format_check", "sf_open", "sf_strerror"}));
}

TEST_F(LibsndfileSinkDefineInput, SaysNothingForTheReasonWhereLibsndfileSaysNothing) {
    StandIn().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
        return nullptr;
    };
    StandIn().strerror = [](SNDFILE*) -> const char* {
        return nullptr;
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    ExpectRefusal(CanNotOpen("take", ""), [&] { sink->DefineInput(MakeInput({}), ""); },
                  {Info(kFromType + "WAVE")});
}

TEST_F(LibsndfileSinkDefineInput, HasNoFileAfterAFailedOpenAndMayBeGivenAnotherPath) {
    bool failing = true;
    StandIn().open = [&failing, fake = StandIn().open](const char* path, int mode, SF_INFO* info) {
        return failing ? nullptr : fake(path, mode, info);
    };
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"first");
    EXPECT_THROW(sink->DefineInput(MakeInput({}), ""), KELRuntimeError);
    sink->PushSample(MakeContainer("abcd"));
    sink->Close(false);
    EXPECT_EQ(files.closings.size(), 0U);
    ASSERT_EQ(files.writings.size(), 1U);
    EXPECT_EQ(files.writings[0].file, nullptr);

    failing = false;
    sink->Open(L"second");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "second");
}

TEST_F(LibsndfileSinkDefineInput, KeepsTheInputWhosePathHasNoNarrowForm) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"a\xD800.wav");
    const auto input = MakeInput({});
    ExpectRefusal(
        "[the wide text has no narrow form: character 55296 at position 1]",
        [&] { sink->DefineInput(input, ""); }, {Info(kFromBoth + "WAVE")},
        "kelCore/PlatformString.cpp");
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
}

TEST_F(LibsndfileSinkDefineInput, KeepsTheInputWhereTheResolvedFormatIsRAW) {
    int parsed = 0;
    FrameworkAnswers().fromString = [&parsed](WrapperFormat& out, const std::string&) {
        out = ++parsed == 1 ? WrapperFormat::RAW : WrapperFormat::WAVE;
        return true;
    };
    const auto sink = MakeConfiguredSink("WAVE", "take");
    const auto input = MakeInput({});
    ExpectRefusal(kWrapperRefused, [&] { sink->DefineInput(input, ""); },
                  {Info(kFromType + "RAW")});
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
}

TEST_F(LibsndfileSinkDefineInput, CreatesTheFormatThatWasResolvedAndNotTheOneThatWasChecked) {
    int parsed = 0;
    FrameworkAnswers().fromString = [&parsed](WrapperFormat& out, const std::string&) {
        out = ++parsed == 1 ? WrapperFormat::AIFF : WrapperFormat::WAVE;
        return true;
    };
    const auto sink = MakeConfiguredSink("any", "take");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(parsed, 2);
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(std::get<3>(files.openings[0].info), 0x10020002);
}

TEST_F(LibsndfileSinkDefineInput, StartsFromUnknownBeforeTheTypeIsParsed) {
    std::vector<WrapperFormat> before;
    FrameworkAnswers().fromString = [&before](WrapperFormat& out, const std::string&) {
        before.push_back(out);
        out = WrapperFormat::WAVE;
        return false; // the result does not count
    };
    const auto sink = MakeConfiguredSink("any", "take");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(before, std::vector<WrapperFormat>(2, WrapperFormat::Unknown));
    EXPECT_EQ(files.openings.size(), 1U);
}

TEST_F(LibsndfileSinkDefineInput, KeepsTheInputWhoseLayoutIsRefusedAtTheLastMoment) {
    Script script;
    const auto info = std::make_shared<AudioInfoDouble>(script);
    info->channels = MakeChannels(2);
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
    ExpectRefusal("[(pcmAudioParams->GetSampleSize() == 2) && (pcmAudioParams->GetBitsDepth() != "
                  "16)]",
                  [&] { sink->DefineInput(input, ""); }, {Info(kFromType + "WAVE")});
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
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
        ASSERT_EQ(files.writings.size(), 1U);
        EXPECT_EQ(files.writings[0].file, files.File(index));
        ExpectRefusal("[A file is already opened!]", [&] { sink->Open(L"third.wav"); });
    }

    InputHandle first = MakeInput({});
    std::shared_ptr<IParametersCollectionInstance> manifest = MakeManifest("WAVE");
    std::shared_ptr<IAudioSink> sink = MakeSinkFrom(manifest);
};

TEST_F(LibsndfileSinkSecondInput, OpensASecondFileAndLeavesTheFirstOpen) {
    const auto second = MakeInput({});
    sink->DefineInput(second, "");
    EXPECT_EQ(SndfileCalls(), std::vector<std::string>({"sf_format_check", "sf_open"}));
    ASSERT_EQ(files.openings.size(), 2U);
    EXPECT_EQ(files.openings[1].path, "second.wav");
    EXPECT_EQ(sink->GetDefinedInput(""), second);
    EXPECT_EQ(first.use_count(), 1);
    ExpectStillWritingToFile(1);

    sink->Close(false);
    EXPECT_EQ(files.closings, std::vector<SNDFILE*>({files.File(1)}));
}

TEST_F(LibsndfileSinkSecondInput, KeepsTheFirstFileWhereTheSecondCanNotBeOpened) {
    StandIn().open = [](const char*, int, SF_INFO*) -> SNDFILE* {
        return nullptr;
    };
    SNDFILE* asked = files.File(0);
    StandIn().strerror = [&asked](SNDFILE* file) {
        asked = file;
        return "no";
    };
    const auto second = MakeInput({});
    ExpectRefusal(CanNotOpen("second.wav", "no"), [&] { sink->DefineInput(second, ""); },
                  {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(asked, nullptr) << "the reason of a failed open is that of no file";
    EXPECT_EQ(sink->GetDefinedInput(""), second);
    EXPECT_EQ(files.closings.size(), 0U);
    ExpectStillWritingToFile(0);
}

TEST_F(LibsndfileSinkSecondInput, ChangesNothingWhereAnyStepBeforeTheFileFails) {
    struct Case {
        std::string message;
        InputHandle input;
        std::string type = "WAVE";
        std::string path = "second.wav";
        Lines before;
    };
    const std::vector<Case> cases{
        {kSingleInfo, CreateInfoContainer(InfoList{}, nullptr), "WAVE", "second.wav", {}},
        {kNotPCM, MakeInputWith(nullptr), "WAVE", "second.wav", {}},
        {kNoChannels, MakeInput(WithMuxing(0, 2)), "WAVE", "second.wav", {}},
        {kOneChannel, MakeInput(WithMuxing(1, 3)), "WAVE", "second.wav", {}},
        {kTwoChannels, MakeInput(WithMuxing(2, 1)), "WAVE", "second.wav", {}},
        {kManyChannels, MakeInput(WithMuxing(6, 3)), "WAVE", "second.wav", {}},
        {kNoFormat, MakeInput({}), "", "second", {}},
        {kWrapperRefused, MakeInput({}), "RAW", "second", {Info(kFromType + "RAW")}},
        {kInputRefused, MakeInput(BigEndian()), "WAVE", "second.wav", {Info(kFromBoth + "WAVE")}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.message);
        manifest->SetStringValue("type", one.type);
        sink->SetInitConfig(MakeSettingsFor(one.path));
        ExpectRefusal(
            one.message, [&] { sink->DefineInput(one.input, ""); }, one.before);
        EXPECT_EQ(sink->GetDefinedInput(""), first);
        EXPECT_EQ(files.openings.size(), 1U);
        EXPECT_EQ(files.closings.size(), 0U);
    }
    ExpectStillWritingToFile(0);
}

TEST_F(LibsndfileSinkDefineInput, KeepsThePathOfOpenWhereAStepFails) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"take.wav");
    EXPECT_THROW(sink->DefineInput(MakeInput(WithMuxing(2, 1)), ""), KELRuntimeError);
    EXPECT_THROW(sink->DefineInput(MakeInput(BigEndian()), ""), KELRuntimeError);
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "take.wav");
}

// Every call that the sink makes of the framework, failing in its turn.
class LibsndfileSinkDefineInputOfAScript : public FakeFilesTest {
protected:
    struct Outcome {
        std::vector<std::string> calls;
        bool defined;
    };

    /// Defines an input; the given call fails, 0 for none.
    Outcome Define(std::size_t failing) {
        Script script;
        const auto info = std::make_shared<AudioInfoDouble>(script);
        info->channels = std::make_shared<ChannelsDouble>(script, 2);
        const auto parameters = MakeParameters({});
        info->parameters = [&script, &parameters] {
            return std::make_shared<ParametersDouble>(script, parameters);
        };
        const auto input = std::make_shared<InfoContainerDouble>(script, info);
        const auto sink =
            MakeSinkFrom(std::make_shared<CollectionDouble>(script, MakeManifest("WAVE")));
        sink->SetInitConfig(std::make_shared<CollectionDouble>(script, MakeSettingsFor("take")));
        AnswerFor(script);
        script.calls.clear();
        script.failing = failing;
        SndfileCalls().clear();

        const LogCapture log;
        try {
            sink->DefineInput(input, "");
            EXPECT_EQ(failing, 0U);
        } catch (const std::domain_error& error) {
            EXPECT_EQ(error.what(), script.calls.at(failing - 1));
        }
        for (const Line& line : LinesOf(log)) {
            EXPECT_EQ(line, Info(kFromType + "WAVE"));
        }
        FrameworkAnswers() = {};
        return {script.calls, sink->GetDefinedInput("") == input};
    }

private:
    static void AnswerFor(Script& script) {
        FrameworkAnswers().createAudioParameters = [&script](ACodecFamily family) {
            script.Note("CreateAudioParameters");
            return RealFramework().createAudioParameters(family);
        };
        FrameworkAnswers().fromString = [&script](WrapperFormat& out, const std::string& text) {
            script.Note("FromString");
            return RealFramework().fromString(out, text);
        };
        FrameworkAnswers().createNoError = [&script] {
            script.Note("CreateCheckInputReportNoError");
            return RealFramework().createNoError();
        };
        FrameworkAnswers().convertWideString = [&script](const std::wstring& text) {
            script.Note("ConvertWideStringToPlatformString");
            return RealFramework().convertWideString(text);
        };
    }
};

TEST_F(LibsndfileSinkDefineInputOfAScript, PassesOnEveryFailureAndDefinesNothingBeforeTheReport) {
    const auto calls = Define(0).calls;
    const auto report = std::find(calls.begin(), calls.end(), "CreateCheckInputReportNoError");
    ASSERT_NE(report, calls.end());
    const auto reportCall = static_cast<std::size_t>(report - calls.begin()) + 1;
    ASSERT_GT(calls.size(), reportCall);
    const std::size_t opened = files.openings.size();
    for (std::size_t failing = 1; failing <= calls.size(); ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing) + ", " + calls[failing - 1]);
        EXPECT_EQ(Define(failing).defined, failing > reportCall);
        EXPECT_EQ(files.openings.size(), opened);
    }
}

TEST_F(LibsndfileSinkDefineInputOfAScript, TakesItsStepsInOrder) {
    const auto calls = Define(0).calls;
    const std::vector<std::string> milestones{
        "GetInfos",
        "GetAudioInfos",
        "GetAudioParameters",
        "GetNumberOfChannels",
        "GetMuxing",
        "GetWideStringValue FilePath",
        "GetStringValue type",
        "FromString",
        "GetInfos",
        "CreateAudioParameters",
        "GetStringValue type",
        "FromString",
        "CreateCheckInputReportNoError",
        "GetSampleSize",
        "ConvertWideStringToPlatformString",
    };
    auto from = calls.begin();
    for (const std::string& milestone : milestones) {
        from = std::find(from, calls.end(), milestone);
        ASSERT_NE(from, calls.end()) << milestone;
        ++from;
    }
    EXPECT_EQ(from, calls.end()) << "calls after the conversion of the path";
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "CreateAudioParameters"), 20);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "GetWideStringValue FilePath"), 1);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "GetStringValue type"), 2);
}

} // namespace
} // namespace kel::test
