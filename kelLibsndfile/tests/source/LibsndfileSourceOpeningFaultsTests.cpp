// Opening, call by call: what libsndfile and the framework are asked for, in which order, and what
// is left when one of them fails.

#include "FakeFile.h"

#include <climits>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using AllocatorFactory = ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

// What opening calls, up to the end of the description.
const Calls kOpeningCalls = {"ConvertWideStringToPlatformString",
                             "sf_open",
                             "GetStringValue AllocatorRef",
                             "CreateAudioParameters",
                             "SetMuxing 2",
                             "SetSampleRate 44100",
                             "SetBitsDepth 32",
                             "SetEndianness 1",
                             "SetPCMType 2",
                             "SetSampleSize 4",
                             "ExtractFilenameFromPath",
                             "ConvertWideStringToPlatformString",
                             "CreateTrackGroup",
                             "CreateTrack",
                             "CreateChannelInfo",
                             "CreateAudioInfo"};

const Calls kAllocatorCalls = {"CreateMilestone", "GetFactory", "GetManifest"};

Calls operator+(Calls left, const Calls& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class LibsndfileSourceOpeningFaults : public FakeFileTest {
protected:
    Line Opened() const { return OpenedLine(kName, info.channels, info.frames, info.format); }

    void NameAnAllocator(const std::string& name) {
        settings->SetStringValue("AllocatorRef", name);
    }

    // Answers for the allocator's factory only.
    static void AnswerAllocatorFactory(std::shared_ptr<IElementFactory> factory) {
        FrameworkAnswers().getFactory = [factory = std::move(factory)](auto kind,
                                                                       const auto& implementation,
                                                                       const auto& type) {
            return kind == ElementFactoryType::MemoryBlockAllocator
                       ? factory
                       : RealFramework().getFactory(kind, implementation, type);
        };
    }
};

TEST_F(LibsndfileSourceOpeningFaults, GoesFromTheFileToItsDescriptionToTheAllocator) {
    const auto source = MakeFakeSource();
    ExpectCalls(kOpeningCalls + kAllocatorCalls, [&] { source->Open(kPath); });
}

TEST_F(LibsndfileSourceOpeningFaults, LooksForANamedAllocatorFirst) {
    const auto source = MakeFakeSource();
    NameAnAllocator("named");
    FrameworkAnswers().getAllocator = [](const std::string& name) {
        EXPECT_EQ(name, "named");
        return std::make_shared<EmptyAllocator>();
    };
    Calls expected = kOpeningCalls;
    expected.insert(expected.begin() + 3, "GetAllocator");
    ExpectCalls(expected + kAllocatorCalls, [&] { source->Open(kPath); });
}

TEST_F(LibsndfileSourceOpeningFaults, ReadsThePathOfTheSettingsBeforeItOpensTheFile) {
    settings->SetStringValue("FilePath", kName);
    const auto source = MakeSource();
    ExpectCalls(Calls{"GetWideStringValue FilePath"} + kOpeningCalls + kAllocatorCalls,
                [&] { source->SetInitConfig(settings); });
}

TEST_F(LibsndfileSourceOpeningFaults, ReadsOnlyThePathWhereItIsEmpty) {
    const auto source = MakeSource();
    ExpectCalls({"GetWideStringValue FilePath"}, [&] { source->SetInitConfig(settings); });
}

TEST_F(LibsndfileSourceOpeningFaults, OpensTheConvertedNameForReadingWithAnEmptyDescription) {
    const auto source = MakeFakeSource();
    FrameworkAnswers().convertWideString = [this](const std::wstring& text) -> std::string {
        return text == kPath ? "the narrow name" : "the track";
    };
    ExpectRecords({OpenedLine("the narrow name", 2, 1000, kWaveFormat), AllocatorLine()},
                  [&] { source->Open(kPath); });
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].path, "the narrow name");
    EXPECT_EQ(openings[0].mode, SFM_READ);
    EXPECT_EQ(openings[0].info, SfInfoFields(0, 0, 0, 0, 0, 0));
}

TEST_F(LibsndfileSourceOpeningFaults, HandsTheDescriptionOfTheLastFileToTheNextOpen) {
    const auto source = OpenFakeSource();
    const SfInfoFields last = FieldsOf(info);
    source->Release();
    info = {7, 8000, 1, 65539, 2, 0};
    source->Open(kPath);
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[1].info, last);
    EXPECT_EQ(source->GetTimeLimits("").duration, 7);
}

TEST_F(LibsndfileSourceOpeningFaults, PassesEachPieceOfTheDescriptionOn) {
    const auto source = MakeFakeSource();
    info.channels = 6;
    std::shared_ptr<IAudioParameters> parameters;
    std::shared_ptr<ITrackGroup> group;
    std::shared_ptr<ITrack> track;
    std::shared_ptr<IChannelInfo> channelInfo;
    std::shared_ptr<IAudioInfo> audioInfo;

    FrameworkFunctions& answers = FrameworkAnswers();
    answers.createAudioParameters = [&](ACodecFamily family) {
        EXPECT_EQ(family, ACodecFamily::PCM);
        return parameters = RealFramework().createAudioParameters(family);
    };
    answers.extractFilename = [&](const std::wstring& path) -> std::wstring {
        EXPECT_EQ(path, kPath);
        return L"the last piece";
    };
    answers.createTrackGroup = [&](const std::string& name) {
        EXPECT_EQ(name, "the last piece");
        return group = RealFramework().createTrackGroup(name);
    };
    answers.createTrack = [&](ContentType type, std::uint32_t channels, const auto& trackGroup,
                              TrackLayout layout) {
        EXPECT_EQ(type, ContentType::Audio);
        EXPECT_EQ(channels, 6U);
        EXPECT_EQ(trackGroup, group);
        EXPECT_EQ(static_cast<std::int32_t>(layout), 0);
        return track = RealFramework().createTrack(type, channels, trackGroup, layout);
    };
    answers.createChannelInfo = [&](const auto& owner) {
        EXPECT_EQ(owner, track);
        return channelInfo = RealFramework().createChannelInfo(owner);
    };
    answers.createAudioInfo = [&](const auto& pcm, const auto& channels, const auto& metadata,
                                  const auto& clocks) {
        EXPECT_EQ(pcm, parameters);
        EXPECT_EQ(channels, channelInfo);
        EXPECT_EQ(metadata.size(), 0U);
        EXPECT_EQ(clocks.size(), 0U);
        return audioInfo = RealFramework().createAudioInfo(pcm, channels, metadata, clocks);
    };
    source->Open(kPath);
    ASSERT_NE(audioInfo, nullptr);
    EXPECT_EQ(source->GetDefinedOutput("")->GetAudioInfos().at(0), audioInfo);
    EXPECT_EQ(source->GetAvailableOutputs().at(0), channelInfo);
}

TEST_F(LibsndfileSourceOpeningFaults, GetsItsAllocatorFromTheRegistryByName) {
    const auto source = MakeFakeSource();
    const auto allocator = std::make_shared<EmptyAllocator>();
    const auto manifest = MakeSourceSettings();
    int created = 0;
    FrameworkAnswers().getFactory = [&](auto kind, const auto& implementation, const auto& type) {
        EXPECT_EQ(static_cast<std::int32_t>(kind), 23);
        EXPECT_EQ(implementation, "kel");
        EXPECT_EQ(type, "Recycler");
        return std::make_shared<AllocatorFactory>([&](const auto& given) {
            EXPECT_EQ(given, manifest);
            ++created;
            return allocator;
        });
    };
    FrameworkAnswers().getManifest = [&](auto kind, const auto& implementation, const auto& type) {
        EXPECT_EQ(static_cast<std::int32_t>(kind), 23);
        EXPECT_EQ(implementation, "kel");
        EXPECT_EQ(type, "Recycler");
        return manifest;
    };
    source->Open(kPath);
    EXPECT_EQ(created, 1);
    EXPECT_EQ(allocator.use_count(), 2);
}

TEST_F(LibsndfileSourceOpeningFaults, ReplacesANamedAllocator) {
    const auto source = MakeFakeSource();
    NameAnAllocator("named");
    const auto named = std::make_shared<EmptyAllocator>();
    const auto pool = std::make_shared<EmptyAllocator>();
    FrameworkAnswers().getAllocator = [&](const auto&) {
        return named;
    };
    AnswerAllocatorFactory(std::make_shared<AllocatorFactory>([&](const auto&) { return pool; }));
    std::shared_ptr<IMemoryBlockAllocator> used;
    FrameworkAnswers().createBuffer = [&](const auto& allocator, const auto& block) {
        used = allocator;
        EXPECT_EQ(block, nullptr);
        return std::make_shared<BufferDouble>();
    };
    source->Open(kPath);
    EXPECT_EQ(named.use_count(), 1);
    source->GetSample();
    EXPECT_EQ(used, pool);
}

TEST_F(LibsndfileSourceOpeningFaults, IsNotOpenYetWhenItLogsThatItIsAboutToBe) {
    class Observer final : public ILoggerWriter {
    public:
        explicit Observer(const ISourceControl& source) : m_source(source) {}
        void Write(LogLevel level, const char* /*message*/, const char* /*context*/,
                   const char* /*file*/, const char* /*line*/, const char* /*reserved*/,
                   const char* /*threadId*/, const char* /*time*/) override {
            seen.emplace_back(level, m_source.IsMediaOpen());
        }
        std::vector<std::pair<LogLevel, bool>> seen;

    private:
        const ISourceControl& m_source;
    };
    const auto source = MakeFakeSource();
    const auto observer = std::make_shared<Observer>(*source);
    SetCurrentLoggerWriter(observer);
    source->Open(kPath);
    SetCurrentLoggerWriter(nullptr);
    const std::vector<std::pair<LogLevel, bool>> expected = {{LogLevel::Info, false},
                                                             {LogLevel::Milestone, true}};
    EXPECT_EQ(observer->seen, expected);
}

TEST_F(LibsndfileSourceOpeningFaults, OpensAlsoWhenTheLogFails) {
    class Thrower final : public ILoggerWriter {
    public:
        void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
                   const char*, const char*) override {
            throw Failure{"Write"};
        }
    };
    const auto source = MakeFakeSource();
    SetCurrentLoggerWriter(std::make_shared<Thrower>());
    EXPECT_NO_THROW(source->Open(kPath));
    SetCurrentLoggerWriter(nullptr);
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(source->GetAvailableOutputs().size(), 1U);
}

TEST_F(LibsndfileSourceOpeningFaults, WritesLargeNumbersInFull) {
    const auto source = MakeFakeSource();
    info = {INT64_MAX, INT_MAX, 1024, INT_MIN, 1, 1};
    ExpectRecords({OpenedLine(kName, 1024, INT64_MAX, INT_MIN), AllocatorLine()},
                  [&] { source->Open(kPath); });
    EXPECT_EQ(source->GetTimeLimits("").duration, INT64_MAX);
    EXPECT_EQ(source->GetTimeLimits("").start.GetEditRate(), EditRate(INT_MAX, 1));
}

TEST_F(LibsndfileSourceOpeningFaults, RefusesAFileWithoutChannelsAndLeavesItsHandle) {
    for (const int channels : {0, -1, INT_MIN}) {
        SCOPED_TRACE(channels);
        auto source = MakeFakeSource();
        info.channels = channels;
        const std::string message =
            "[The following file \"" + kName + "\" has " + std::to_string(channels) + " channels.]";
        ExpectCalls({"ConvertWideStringToPlatformString", "sf_open"},
                    [&] { ExpectRefusal(message, [&] { source->Open(kPath); }); });
        EXPECT_FALSE(source->IsMediaOpen());
        ExpectRecords({}, [&] {
            EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
            EXPECT_EQ(source->GetSample(), nullptr);
        });
        source->Release();
        source.reset();
        EXPECT_EQ(closings.size(), 0U);
    }
}

TEST_F(LibsndfileSourceOpeningFaults, OpensAnotherFileAfterOneWithoutChannels) {
    const auto source = MakeFakeSource();
    info.channels = 0;
    EXPECT_THROW(source->Open(kPath), KELRuntimeError);
    info.channels = 1;
    ExpectRecords({Opened(), AllocatorLine()}, [&] { source->Open(kPath); });
    EXPECT_TRUE(source->IsMediaOpen());
    source->Release();
    EXPECT_EQ(closings, std::vector<SNDFILE*>{File(1)});
}

TEST_F(LibsndfileSourceOpeningFaults, PassesTheGlobalTextOfLibsndfileOn) {
    const auto source = MakeFakeSource();
    StandIn().open = [](const char*, int, SF_INFO*) {
        return nullptr;
    };
    for (const char* const text : {"System error : Too many open files.", "100%s\nof \"it\"", ""}) {
        StandIn().strerror = [text](SNDFILE* file) {
            EXPECT_EQ(file, nullptr);
            return text;
        };
        ExpectCalls({"ConvertWideStringToPlatformString", "sf_open", "sf_strerror"}, [&] {
            ExpectRefusal("[Unable to open file \"" + kName + "\" with libsndfile. Error is:\"" +
                              text + "\"]",
                          [&] { source->Open(kPath); });
        });
        EXPECT_FALSE(source->IsMediaOpen());
    }
}

TEST_F(LibsndfileSourceOpeningFaults, SaysNothingWhereLibsndfileHasNoText) {
    const auto source = MakeFakeSource();
    StandIn().open = [](const char*, int, SF_INFO*) {
        return nullptr;
    };
    StandIn().strerror = [](SNDFILE*) {
        return nullptr;
    };
    ExpectRefusal("[Unable to open file \"" + kName + "\" with libsndfile. Error is:\"\"]",
                  [&] { source->Open(kPath); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceOpeningFaults, LooksForTheAllocatorInTheOpenFileOnly) {
    const auto source = MakeFakeSource();
    NameAnAllocator("nowhere");
    ExpectCalls({"ConvertWideStringToPlatformString", "sf_open", "GetStringValue AllocatorRef",
                 "GetAllocator"},
                [&] {
                    ExpectRefusal("[could not find allocator nowhere] [ Pointer is null ]",
                                  [&] { source->Open(kPath); }, {Opened()});
                });
    EXPECT_TRUE(source->IsMediaOpen());
    source->Release();
    EXPECT_EQ(closings, std::vector<SNDFILE*>{File()});
}

TEST_F(LibsndfileSourceOpeningFaults, AsksForNothingWithoutSettings) {
    const auto source = MakeSource();
    ExpectCalls({"ConvertWideStringToPlatformString", "sf_open"},
                [&] { ExpectRefusal(kNotConfigured, [&] { source->Open(kPath); }, {Opened()}); });
    ExpectCalls({}, [&] { ExpectRefusal(kNotConfigured, [&] { source->GetSample(); }); });
}

// A call that fails, and what is left of the open.
struct Step {
    std::string call;
    int occurrence = 1;
    bool open = true;       // the file stays open
    bool described = false; // its outputs can be asked for
};

class LibsndfileSourceOpeningSteps : public LibsndfileSourceOpeningFaults,
                                     public ::testing::WithParamInterface<Step> {
protected:
    LibsndfileSourceOpeningSteps() {
        FrameworkAnswers().getAllocator = [](const auto&) {
            return std::make_shared<EmptyAllocator>();
        };
    }
};

INSTANTIATE_TEST_SUITE_P(
    Calls, LibsndfileSourceOpeningSteps,
    ::testing::Values(Step{"ConvertWideStringToPlatformString", 1, false},
                      Step{"GetStringValue AllocatorRef"}, Step{"GetAllocator"},
                      Step{"CreateAudioParameters"}, Step{"SetMuxing 2"},
                      Step{"SetSampleRate 44100"}, Step{"SetBitsDepth 32"}, Step{"SetEndianness 1"},
                      Step{"SetPCMType 2"}, Step{"SetSampleSize 4"},
                      Step{"ExtractFilenameFromPath"}, Step{"ConvertWideStringToPlatformString", 2},
                      Step{"CreateTrackGroup"}, Step{"CreateTrack"}, Step{"CreateChannelInfo"},
                      Step{"CreateAudioInfo"}, Step{"CreateMilestone", 1, true, true},
                      Step{"GetFactory", 1, true, true}, Step{"GetManifest", 1, true, true}),
    [](const auto& step) {
        std::string name = step.param.call + (step.param.occurrence > 1 ? "Again" : "");
        for (char& character : name) {
            character = character == ' ' ? '_' : character;
        }
        return name;
    });

TEST_P(LibsndfileSourceOpeningSteps, PassTheirFailureOnAndLeaveTheFileInItsState) {
    const Step& step = GetParam();
    const auto source = MakeFakeSource();
    NameAnAllocator("named");
    FailAt(step.call, step.occurrence);

    Lines lines;
    if (step.open) {
        lines.push_back(Opened());
    }
    if (step.described) {
        lines.push_back(AllocatorLine());
    }
    ExpectRecords(lines, [&] { ExpectFailureOf(step.call, [&] { source->Open(kPath); }); });

    EXPECT_EQ(SndfileCalls().back(), step.call);
    EXPECT_EQ(source->IsMediaOpen(), step.open);
    EXPECT_EQ(source->GetAvailableOutputs().size(), step.described ? 1U : 0U);
    EXPECT_EQ(source->GetActivatedOutputs().size(), step.described ? 1U : 0U);
    EXPECT_EQ(source->GetDefinedOutput("") != nullptr, step.described);
    EXPECT_EQ(closings.size(), 0U);
    if (step.open) {
        ExpectRefusal(kOpenedTwice, [&] { source->Open(kPath); });
        EXPECT_EQ(source->GetTimeLimits("").duration, 1000);
    }
}

TEST_P(LibsndfileSourceOpeningSteps, AllowAnotherOpenAfterARelease) {
    const Step& step = GetParam();
    const auto source = MakeFakeSource();
    NameAnAllocator("named");
    FailAt(step.call, step.occurrence);
    ExpectFailureOf(step.call, [&] { source->Open(kPath); });
    source->Release();
    EXPECT_EQ(closings.size(), step.open ? 1U : 0U);
    EXPECT_FALSE(source->IsMediaOpen());

    ExpectRecords({Opened(), AllocatorLine()}, [&] { source->Open(kPath); });
    EXPECT_EQ(source->GetAvailableOutputs().size(), 1U);
    UseBufferDoubles();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

TEST_P(LibsndfileSourceOpeningSteps, FailTheSettingsThatNameTheFileToo) {
    const Step& step = GetParam();
    NameAnAllocator("named");
    settings->SetStringValue("FilePath", kName);
    const auto source = MakeSource();
    SndfileCalls().clear();
    FailAt(step.call, step.occurrence);
    ExpectFailureOf(step.call, [&] { source->SetInitConfig(settings); });
    EXPECT_EQ(source->IsMediaOpen(), step.open);
}

TEST_F(LibsndfileSourceOpeningFaults, KeepsTheDescriptionOfTheLastFileWhereANewOneFails) {
    const auto source = OpenFakeSource();
    const auto former = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    source->Release();
    info.channels = 1;
    info.frames = 5;
    FailAt("CreateTrack");
    ExpectFailureOf("CreateTrack", [&] { source->Open(kPath); });
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(source->GetDefinedOutput("")->GetAudioInfos().at(0), former);
    EXPECT_EQ(source->GetTimeLimits("").duration, 5);
}

TEST_F(LibsndfileSourceOpeningFaults, KeepsTheStampAndTheChoiceWhereANewFileFails) {
    UseBufferDoubles();
    const auto source = OpenFakeSource();
    source->GetSample();
    source->Release();
    StandIn().open = [](const char*, int, SF_INFO*) {
        return nullptr;
    };
    EXPECT_THROW(source->Open(kPath), KELRuntimeError);
    StandIn().open = [this](const char*, int, SF_INFO* filled) {
        *filled = info;
        return File();
    };
    source->Open(kPath);
    EXPECT_EQ(source->GetActivatedOutputs().size(), 1U);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{1024, 1024, 8192}));
}

// The text of the failure to get the allocator, and the records.
class LibsndfileSourceOpeningAllocator : public LibsndfileSourceOpeningFaults {
protected:
    void ExpectAllocatorFailure(const std::string& reason, const Lines& before) {
        const auto source = MakeFakeSource();
        Lines lines = {Opened(), AllocatorLine()};
        lines.insert(lines.end(), before.begin(), before.end());
        ExpectRefusal(
            "can not implement " + GetLabel(ElementFactoryType::MemoryBlockAllocator) +
                " with implementation=\"kel\" and type=\"Recycler\"\n" + reason,
            [&] { source->Open(kPath); }, lines, AllocatorLine().file);
        EXPECT_TRUE(source->IsMediaOpen());
        EXPECT_EQ(source->GetAvailableOutputs().size(), 1U);
    }

    // A check of the framework's header that failed before.
    static Lines Check(const std::string& message) {
        return {{LogLevel::Error, message, AllocatorLine().file}};
    }
};

TEST_F(LibsndfileSourceOpeningAllocator, HasToHaveAFactory) {
    AnswerAllocatorFactory(nullptr);
    const std::string reason = "[registryEntry] [ Pointer is null ]";
    ExpectAllocatorFailure(reason, Check(reason));
}

TEST_F(LibsndfileSourceOpeningAllocator, HasToHaveAManifest) {
    FrameworkAnswers().getManifest =
        [](auto kind, const auto& implementation,
           const auto& type) -> std::shared_ptr<const IParametersCollectionInstance> {
        if (kind == ElementFactoryType::MemoryBlockAllocator) {
            return nullptr;
        }
        return RealFramework().getManifest(kind, implementation, type);
    };
    const std::string reason = "[manifest] [ Pointer is null ]";
    ExpectAllocatorFailure(reason, Check(reason));
}

TEST_F(LibsndfileSourceOpeningAllocator, HasToComeFromAFactoryOfItsKind) {
    AnswerAllocatorFactory(std::make_shared<ElementFactory<ElementFactoryType::AudioSink>>(
        [](const auto&) { return nullptr; }));
    const std::string reason = "[factory] [ Pointer is null ]";
    ExpectAllocatorFailure(reason, Check(reason));
}

TEST_F(LibsndfileSourceOpeningAllocator, HasToBeMade) {
    AnswerAllocatorFactory(std::make_shared<AllocatorFactory>(
        [](const auto&) -> std::shared_ptr<IMemoryBlockAllocator> {
            throw std::runtime_error("out of order");
        }));
    ExpectAllocatorFailure("out of order", {});
}

TEST_F(LibsndfileSourceOpeningFaults, CallsNothingMoreAfterAFailure) {
    const auto source = MakeFakeSource();
    FailAt("CreateAudioInfo");
    ExpectCalls(kOpeningCalls,
                [&] { ExpectFailureOf("CreateAudioInfo", [&] { source->Open(kPath); }); });
}

} // namespace
} // namespace kel::test
