// What a sink answers when it is asked whether it would take an input.

#include "FakeFiles.h"
#include "FrameworkDoubles.h"

#include <TemporaryDirectory.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {
namespace {

using InfoList = std::vector<std::shared_ptr<const IInfo>>;
using AudioInfoList = std::vector<std::shared_ptr<const IAudioInfo>>;

constexpr auto kNone = static_cast<std::int32_t>(CheckInputErrorType::None);
constexpr auto kTrack = static_cast<std::int32_t>(CheckInputErrorType::Track);
constexpr auto kEncoding = static_cast<std::int32_t>(CheckInputErrorType::Encoding);

class LibsndfileSinkCheck : public StandInTest {
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
        EXPECT_EQ(SndfileCalls(), Times(0, ""));
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

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereThereIsNoInfo) {
    ExpectTrackError(CreateInfoContainer(InfoList{}, nullptr));
}

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereTheInfoIsNotAudio) {
    ExpectTrackError(CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr));
}

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereThereAreTwoAudioInfos) {
    ExpectTrackError(CreateInfoContainer(InfoList{MakeInfo({}), MakeInfo({})}, nullptr));
}

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereThereIsAnotherInfoBesideTheAudio) {
    ExpectTrackError(
        CreateInfoContainer(InfoList{MakeInfo({}), std::make_shared<OtherInfo>()}, nullptr));
    ExpectTrackError(
        CreateInfoContainer(InfoList{std::make_shared<OtherInfo>(), MakeInfo({})}, nullptr));
}

TEST_F(LibsndfileSinkCheck, ReportsTheTracksBeforeTheTypeIsLookedAt) {
    ExpectTrackError(CreateInfoContainer(InfoList{}, nullptr), "RAW");
    ExpectTrackError(CreateInfoContainer(InfoList{}, nullptr), "");
}

TEST_F(LibsndfileSinkCheck, ReportsTheTracksOfASinkWithoutAManifest) {
    const auto report = MakeSinkFrom(nullptr)->CheckInputAndAdaptIfNecessary(
        CreateInfoContainer(InfoList{}, nullptr), "");
    EXPECT_EQ(report->GetErrorType(), kTrack);
}

TEST_F(LibsndfileSinkCheck, AsksForTheAudioInfosOnlyWhereThereIsOneInfo) {
    Script script;
    const auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    input->infos = {MakeInfo({}), std::make_shared<OtherInfo>()};
    ExpectTrackError(input);
    EXPECT_EQ(script.calls, Times(1, "GetInfos"));
}

TEST_F(LibsndfileSinkCheck, ExpectsOneAudioTrackWhereOneInfoCountsAsTwoAudioInfos) {
    Script script;
    auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    input->audioInfos = [] {
        return AudioInfoList{MakeInfo({}), MakeInfo({})};
    };
    ExpectTrackError(input);
}

TEST_F(LibsndfileSinkCheck, MakesNoCandidatesWhereTheTracksAreWrong) {
    int made = 0;
    FrameworkAnswers().createAudioParameters = [&made](ACodecFamily family) {
        ++made;
        return RealFramework().createAudioParameters(family);
    };
    ExpectTrackError(CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr));
    EXPECT_EQ(made, 0);
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
    EXPECT_EQ(SndfileCalls(), Times(3, "sf_format_check"));
}

TEST_F(LibsndfileSinkCheck, NeedsNoSettings) {
    const auto sink = MakeSink("WAVE");
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "")->GetErrorType(), kNone);
}

TEST_F(LibsndfileSinkCheck, NamesTheInfoWithoutParameters) {
    const auto info = MakeInfoWith(nullptr);
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRecords({}, [&] {
        ExpectEncodingError(
            *sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(info, nullptr), ""),
            info->GetId());
    });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkCheck, NamesTheInfoThatIsNotPCM) {
    const auto info = MakeInfoWith(MakeForeignParameters());
    const auto sink = MakeConfiguredSink("AIFF");
    ExpectRecords({}, [&] {
        ExpectEncodingError(
            *sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(info, nullptr), ""),
            info->GetId());
    });
}

TEST_F(LibsndfileSinkCheck, ReportsWhatIsNotPCMBeforeTheTypeIsLookedAt) {
    const auto info = MakeInfoWith(nullptr);
    const auto input = CreateInfoContainer(info, nullptr);
    Script script;
    for (const std::string type : {"RAW", "Unknown", "", "nonsense"}) {
        const auto manifest = std::make_shared<CollectionDouble>(script, MakeManifest(type));
        ExpectEncodingError(*MakeSinkFrom(manifest)->CheckInputAndAdaptIfNecessary(input, ""),
                            info->GetId());
    }
    EXPECT_EQ(script.calls, Times(0, ""));
}

TEST_F(LibsndfileSinkCheck, NamesTheInfoThatTheContainerDoesNotTake) {
    const auto info = MakeInfo(BigEndian());
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRecords({}, [&] {
        ExpectEncodingError(
            *sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(info, nullptr), ""),
            info->GetId());
    });
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
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

TEST_F(LibsndfileSinkCheck, KeysTheProposalsByTheIdOfTheInfo) {
    Script script;
    auto info = std::make_shared<AudioInfoDouble>(script);
    info->parameters = [] {
        return nullptr;
    };
    for (const std::string id : {"", "an id of the test's own"}) {
        info->id = id;
        ExpectEncodingError(*MakeConfiguredSink("WAVE")->CheckInputAndAdaptIfNecessary(
                                CreateInfoContainer(info, nullptr), ""),
                            id);
    }
}

TEST_F(LibsndfileSinkCheck, JudgesTheFirstInfoOfAListThatItAsksForAnew) {
    Script script;
    const auto judged = MakeInfoWith(nullptr);
    auto input = std::make_shared<InfoContainerDouble>(script, MakeInfo({}));
    int asked = 0;
    input->audioInfos = [&asked, &judged] {
        return ++asked == 1 ? AudioInfoList{MakeInfo({})} : AudioInfoList{judged, MakeInfo({})};
    };
    ExpectEncodingError(*MakeConfiguredSink("WAVE")->CheckInputAndAdaptIfNecessary(input, ""),
                        judged->GetId());
    EXPECT_EQ(script.calls,
              std::vector<std::string>({"GetInfos", "GetAudioInfos", "GetAudioInfos"}));
}

TEST_F(LibsndfileSinkCheck, HandsOnTheReportsAsTheFrameworkMakesThem) {
    const ReportHandle noError = std::make_shared<ReportDouble>(0);
    const ReportHandle trackError = std::make_shared<ReportDouble>(77);
    const ReportHandle encodingError = std::make_shared<ReportDouble>(-5);
    FrameworkAnswers().createNoError = [&noError] {
        return noError;
    };
    FrameworkAnswers().createTrackError = [&trackError](const std::multiset<ContentType>& types) {
        EXPECT_EQ(types, std::multiset<ContentType>({ContentType::Audio}));
        return trackError;
    };
    FrameworkAnswers().createEncodingError = [&encodingError](const AcceptedEncodings& encodings) {
        EXPECT_EQ(encodings.size(), 1U);
        return encodingError;
    };
    const auto sink = MakeConfiguredSink("WAVE");
    const auto unknown = CreateInfoContainer(MakeInfoWith(nullptr), nullptr);
    const auto other = CreateInfoContainer(std::make_shared<OtherInfo>(), nullptr);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""), noError);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(other, ""), trackError);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(unknown, ""), encodingError);
}

TEST_F(LibsndfileSinkCheck, MakesTwentyCandidatesFilledInOrderAndDiscardsThem) {
    Script script;
    std::vector<std::weak_ptr<IAudioParameters>> candidates;
    FrameworkAnswers().createAudioParameters = [&](ACodecFamily family) {
        script.Note("CreateAudioParameters " + Number(family));
        auto candidate = std::make_shared<ParametersDouble>(
            script, std::dynamic_pointer_cast<IAudioParameters_PCM>(
                        RealFramework().createAudioParameters(family)));
        candidates.emplace_back(candidate);
        return candidate;
    };

    const auto input = CreateInfoContainer(MakeInfoWith(nullptr), nullptr);
    const auto report = MakeConfiguredSink("WAVE")->CheckInputAndAdaptIfNecessary(input, "");

    struct TypeLayout {
        std::string type;
        std::string bytes;
        std::string bits;
    };
    const std::vector<TypeLayout> layouts{
        {"2", "4", "32"}, {"2", "8", "64"}, {"1", "2", "16"}, {"1", "3", "24"}, {"1", "4", "32"}};
    std::vector<std::string> expected;
    for (const std::string rate : {"22500", "44100", "48000", "96000"}) {
        for (const TypeLayout& layout : layouts) {
            expected.insert(expected.end(),
                            {"CreateAudioParameters 2", "SetMuxing 2", "SetSampleRate " + rate,
                             "SetBitsDepth " + layout.bits, "SetEndianness 1",
                             "SetPCMType " + layout.type, "SetSampleSize " + layout.bytes});
        }
    }
    EXPECT_EQ(script.calls, expected);
    ASSERT_EQ(candidates.size(), 20U);
    for (const auto& candidate : candidates) {
        EXPECT_TRUE(candidate.expired());
    }
    // The report is still there and holds none of them.
    EXPECT_EQ(report->GetAcceptedEncodings().begin()->second.size(), 0U);
}

TEST_F(LibsndfileSinkCheck, MakesTheCandidatesAlsoForAnInputThatItAccepts) {
    const auto input = MakeInput({});
    int made = 0;
    FrameworkAnswers().createAudioParameters = [&made](ACodecFamily family) {
        ++made;
        return RealFramework().createAudioParameters(family);
    };
    EXPECT_EQ(MakeConfiguredSink("WAVE")->CheckInputAndAdaptIfNecessary(input, "")->GetErrorType(),
              kNone);
    EXPECT_EQ(made, 20);
}

TEST_F(LibsndfileSinkCheck, ThrowsWhereTheTypeNamesNoContainerWhateverThePath) {
    for (const std::string type : {"", "Unknown", "RAW", "nonsense"}) {
        SCOPED_TRACE(type);
        const auto sink = MakeConfiguredSink(type, "take.wav");
        ExpectRefusal(kWrapperRefused,
                      [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); });
    }
}

TEST_F(LibsndfileSinkCheck, PassesOnThatTheManifestDeclaresNoType) {
    const auto sink =
        MakeSinkFrom(CreateParametersCollectionInstance(CreateParametersCollectionPrototype()));
    ExpectRefusal(
        "[parameter \"type\" is not declared (wanted: string)]",
        [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); }, {},
        "kelCore/ParametersCollection.cpp");
}

TEST_F(LibsndfileSinkCheck, NeedsAManifestToJudgeAnEncoding) {
    const auto sink = MakeSinkFrom(nullptr);
    ExpectRefusal("[LibsndfileSink was made without a manifest] [ Pointer is null ]",
                  [&] { sink->CheckInputAndAdaptIfNecessary(MakeInput({}), ""); });
}

TEST_F(LibsndfileSinkCheck, NeedsAnInput) {
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRefusal("[LibsndfileSink got no input description] [ Pointer is null ]",
                  [&] { sink->CheckInputAndAdaptIfNecessary(nullptr, ""); });
}

TEST_F(LibsndfileSinkCheck, ReadsTheTypeFromTheManifestAndNotFromTheSettings) {
    auto prototype = CreateParametersCollectionPrototype();
    prototype->AddStringParameterWithDefault("FilePath", "", "");
    prototype->AddStringParameterWithDefault("type", "RAW", "");
    const auto sink = MakeSinkFrom(MakeManifest("WAVE"));
    sink->SetInitConfig(CreateParametersCollectionInstance(prototype));
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "")->GetErrorType(), kNone);
}

TEST_F(LibsndfileSinkCheck, IgnoresTheName) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const std::string name : {"", "left", "\n"}) {
        EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput({}), name)->GetErrorType(), kNone);
    }
}

TEST_F(LibsndfileSinkCheck, CreatesNoFileAndLeavesANewSinkAsItWas) {
    const TemporaryDirectory directory;
    const auto sink = MakeConfiguredSink("WAVE", directory / "take.wav");
    for (int i = 0; i < 3; ++i) {
        sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "");
        sink->CheckInputAndAdaptIfNecessary(MakeInput(BigEndian()), "");
        sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(InfoList{}, nullptr), "");
    }
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
    EXPECT_EQ(SndfileCalls(), Times(6, "sf_format_check"));
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkCheck, LeavesAWritingSinkAsItWas) {
    FakeFiles files;
    const auto sink = MakeConfiguredSink("WAVE", "take.wav");
    const auto defined = MakeInput({});
    sink->DefineInput(defined, "");
    SndfileCalls().clear();

    sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "");
    sink->CheckInputAndAdaptIfNecessary(CreateInfoContainer(InfoList{}, nullptr), "");
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
    EXPECT_EQ(sink->GetDefinedInput(""), defined);

    sink->PushSample(MakeContainer("abcd"));
    ASSERT_EQ(files.writings.size(), 1U);
    EXPECT_EQ(files.writings[0].file, files.File(0));
}

TEST_F(LibsndfileSinkCheck, KeepsThePathThatOpenWasGiven) {
    FakeFiles files;
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"take.wav");
    sink->CheckInputAndAdaptIfNecessary(MakeInput({}), "");
    sink->DefineInput(MakeInput({}), "");
    ASSERT_EQ(files.openings.size(), 1U);
    EXPECT_EQ(files.openings[0].path, "take.wav");
}

// A check with a script behind everything that it asks of the framework.
class LibsndfileSinkCheckOfAScript : public StandInTest {
protected:
    /// The calls of a check whose given call fails; 0 for none.
    std::vector<std::string> Check(bool pcm, std::size_t failing) {
        Script script;
        auto info = std::make_shared<AudioInfoDouble>(script);
        info->channels = std::make_shared<ChannelsDouble>(script, 2);
        if (pcm) {
            info->parameters = [&script] {
                return std::make_shared<ParametersDouble>(script, MakeReal());
            };
        } else {
            info->parameters = [] {
                return nullptr;
            };
        }
        const auto input = std::make_shared<InfoContainerDouble>(script, info);
        const auto sink =
            MakeSinkFrom(std::make_shared<CollectionDouble>(script, MakeManifest("WAVE")));
        FrameworkAnswers().createAudioParameters = [&script](ACodecFamily family) {
            script.Note("CreateAudioParameters");
            return RealFramework().createAudioParameters(family);
        };
        FrameworkAnswers().createNoError = [&script] {
            script.Note("CreateCheckInputReportNoError");
            return RealFramework().createNoError();
        };
        FrameworkAnswers().createEncodingError = [&script](AcceptedEncodings encodings) {
            script.Note("CreateCheckInputReportEncodingError");
            return RealFramework().createEncodingError(std::move(encodings));
        };
        script.failing = failing;
        const LogCapture log;
        try {
            sink->CheckInputAndAdaptIfNecessary(input, "");
            EXPECT_EQ(failing, 0U);
        } catch (const std::domain_error& error) {
            EXPECT_EQ(error.what(), script.calls.at(failing - 1));
        }
        EXPECT_EQ(script.calls.size(), failing == 0 ? script.calls.size() : failing);
        EXPECT_EQ(LinesOf(log), Lines());
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
        return script.calls;
    }

private:
    static std::shared_ptr<IAudioParameters_PCM> MakeReal() {
        auto real = std::dynamic_pointer_cast<IAudioParameters_PCM>(
            RealFramework().createAudioParameters(ACodecFamily::PCM));
        real->SetMuxing(PCMMuxing::Multi);
        real->SetSampleRate(48000);
        real->SetBitsDepth(16);
        real->SetEndianness(PCMEndianness::Little);
        real->SetPCMType(AudioPCMType::Integer);
        real->SetSampleSize(2);
        return real;
    }
};

TEST_F(LibsndfileSinkCheckOfAScript, PassesOnEveryFailureOfTheFrameworkUnchanged) {
    for (const bool pcm : {true, false}) {
        const std::size_t calls = Check(pcm, 0).size();
        ASSERT_GT(calls, 20U);
        for (std::size_t failing = 1; failing <= calls; ++failing) {
            SCOPED_TRACE(std::string(pcm ? "PCM" : "not PCM") + ", call " +
                         std::to_string(failing));
            Check(pcm, failing);
        }
    }
}

} // namespace
} // namespace kel::test
