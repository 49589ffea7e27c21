// A sink from its construction to its end, and what it refuses.

#include "FakeFiles.h"
#include "FrameworkDoubles.h"

#include <TemporaryDirectory.h>

#include <fcntl.h>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

const std::string kAlreadyOpen = "[A file is already opened!]";
const std::string kNoUpdate = "[UpdateConfig not supported]";
const std::string kNoMediator = "[LibsndfileSink::SetInputMediator not implemented]";

using PathList = std::vector<std::string>;

class Mediator final : public IInputMediator {};
class Metadata final : public IMetadata {};

class LibsndfileSinkLifecycle : public FakeFilesTest {
protected:
    /// The paths of the files opened so far.
    PathList Paths() const {
        PathList paths;
        for (const FakeFiles::Opening& opening : files.openings) {
            paths.push_back(opening.path);
        }
        return paths;
    }
};

TEST_F(LibsndfileSinkLifecycle, StartsWithTheManifestAndNothingElse) {
    Script script;
    const auto manifest = std::make_shared<CollectionDouble>(script, MakeManifest("WAVE"));
    ExpectRecords({}, [&] {
        const auto sink = MakeSinkFrom(manifest);
        EXPECT_EQ(sink->GetManifest(), manifest);
        EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    });
    EXPECT_EQ(script.calls, Times(0, ""));
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkLifecycle, HasTheRegistryEntryAsItsManifestWhereTheRegistryMakesIt) {
    for (const std::string type : {"Unknown", "AIFF", "WAVE", "BWAVE", "RAW"}) {
        const auto sink = MakeSink(type);
        EXPECT_EQ(sink->GetManifest(),
                  GetManifest(ElementFactoryType::AudioSink, "kel.LibsndfileSink", type));
        EXPECT_EQ(sink->GetManifest()->GetStringValue("type"), type);
    }
}

TEST_F(LibsndfileSinkLifecycle, MayBeMadeWithoutAManifest) {
    ExpectRecords({}, [] { EXPECT_EQ(MakeSinkFrom(nullptr)->GetManifest(), nullptr); });
}

TEST_F(LibsndfileSinkLifecycle, AnswersTheSameOnEveryOneOfItsInterfaces) {
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
    ExpectRefusal(kNoUpdate, [&] { basic->UpdateConfig(nullptr); });
    ExpectRefusal(kNoUpdate, [&] { control->UpdateConfig(nullptr); });
}

TEST_F(LibsndfileSinkLifecycle, IsNoSource) {
    EXPECT_EQ(std::dynamic_pointer_cast<IMediaSource>(MakeSink("WAVE")), nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<ISourceControl>(MakeSink("WAVE")), nullptr);
}

TEST_F(LibsndfileSinkLifecycle, SharesOneFileBetweenControlSideAndDataSide) {
    const auto sink = MakeConfiguredSink("WAVE");
    const std::shared_ptr<ISinkControl> control = sink;
    const std::shared_ptr<IMediaSink> media = sink;
    control->Open(L"take");
    media->DefineInput(MakeInput({}), "");
    media->PushSample(MakeContainer("abcd"));
    control->Close(true);
    media->Release();
    EXPECT_EQ(Paths(), PathList({"take"}));
    EXPECT_EQ(files.closings, std::vector<SNDFILE*>({files.File(0)}));
}

TEST_F(LibsndfileSinkLifecycle, HandsOutNoHandlesToItself) {
    const auto sink = MakeWritingSink("take");
    sink->GetDefinedInput("");
    sink->GetManifest();
    EXPECT_EQ(sink.use_count(), 1);
}

// SetInitConfig

TEST_F(LibsndfileSinkLifecycle, ReadsThePathFromItsSettingsOnceAndOpensNothing) {
    Script script;
    const auto settings = std::make_shared<CollectionDouble>(script, MakeSettingsFor("take.wav"));
    const auto sink = MakeSink("WAVE");
    ExpectRecords({}, [&] { sink->SetInitConfig(settings); });
    EXPECT_EQ(script.calls, Times(1, "GetWideStringValue FilePath"));
    EXPECT_EQ(settings.use_count(), 2);
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkLifecycle, RefusesSettingsThatDeclareNoPath) {
    const auto sink = MakeSink("WAVE");
    ExpectRefusal(
        "[parameter \"FilePath\" is not declared (wanted: string)]",
        [&] {
            sink->SetInitConfig(
                CreateParametersCollectionInstance(CreateParametersCollectionPrototype()));
        },
        {}, "kelCore/ParametersCollection.cpp");
}

TEST_F(LibsndfileSinkLifecycle, RefusesToDoWithoutSettings) {
    const auto sink = MakeSink("WAVE");
    ExpectRefusal("[LibsndfileSink needs SetInitConfig first] [ Pointer is null ]",
                  [&] { sink->SetInitConfig(nullptr); });
}

TEST_F(LibsndfileSinkLifecycle, KeepsTheSettingsWhosePathCouldNotBeRead) {
    Script script;
    const auto settings = std::make_shared<CollectionDouble>(script, MakeSettingsFor("take"));
    script.failing = 1;
    const auto sink = MakeSink("WAVE");
    EXPECT_THROW(sink->SetInitConfig(settings), std::domain_error);
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"take"}));
}

TEST_F(LibsndfileSinkLifecycle, GoesByTheLastSettings) {
    const auto sink = MakeSink("WAVE");
    const auto first = MakeSettingsFor("first");
    sink->SetInitConfig(first);
    sink->SetInitConfig(MakeSettingsFor("second"));
    EXPECT_EQ(first.use_count(), 1);
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"second"}));
}

TEST_F(LibsndfileSinkLifecycle, ReadsThePathAgainWhenTheInputIsDefined) {
    const auto settings = MakeSettingsFor("first");
    const auto sink = MakeSink("WAVE");
    sink->SetInitConfig(settings);
    settings->SetStringValue("FilePath", "second");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"second"}));
}

// Open

TEST_F(LibsndfileSinkLifecycle, OnlyKeepsThePathOnOpen) {
    const auto sink = MakeConfiguredSink("WAVE");
    ExpectRecords({}, [&] { sink->Open(L"/no such directory/take.wav"); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
}

TEST_F(LibsndfileSinkLifecycle, GoesByTheLastPathThatOpenWasGiven) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"first");
    sink->Open(L"second");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"second"}));
}

TEST_F(LibsndfileSinkLifecycle, MayBeOpenedBeforeItHasSettings) {
    const auto sink = MakeSink("WAVE");
    sink->Open(L"take");
    sink->SetInitConfig(MakeSettingsFor(""));
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"take"}));
}

TEST_F(LibsndfileSinkLifecycle, RefusesToOpenWhileAFileIsOpenAndKeepsThatOne) {
    for (const std::wstring path : {L"second", L"take", L""}) {
        const auto sink = MakeWritingSink("take");
        ExpectRefusal(kAlreadyOpen, [&] { sink->Open(path); });
        EXPECT_EQ(files.closings.size(), 0U);
        files.writings.clear();
        sink->PushSample(MakeContainer("abcd"));
        ASSERT_EQ(files.writings.size(), 1U);
        EXPECT_EQ(files.writings[0].file, files.File(files.openings.size() - 1));
    }
}

TEST_F(LibsndfileSinkLifecycle, KeepsThePathOfOpenWhereTheNextOpenIsRefused) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"first");
    sink->DefineInput(MakeInput({}), "");
    EXPECT_THROW(sink->Open(L"second"), KELRuntimeError);
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"first", "first"}));
}

// Close and Release

struct Ending {
    std::string name;
    std::function<void(IAudioSink&)> end;
};

void PrintTo(const Ending& ending, std::ostream* stream) {
    *stream << ending.name;
}

class LibsndfileSinkEnding : public LibsndfileSinkLifecycle,
                             public ::testing::WithParamInterface<Ending> {
protected:
    static void End(const std::shared_ptr<IAudioSink>& sink) {
        ExpectRecords({}, [&] { GetParam().end(*sink); });
    }
};

TEST_P(LibsndfileSinkEnding, DoesNothingOnASinkThatIsNew) {
    const auto sink = MakeSinkFrom(nullptr);
    End(sink);
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_P(LibsndfileSinkEnding, KeepsThePathWhereNoFileIsOpen) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"take");
    End(sink);
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"take"}));
}

TEST_P(LibsndfileSinkEnding, ClosesTheFileOnce) {
    const auto sink = MakeWritingSink("take");
    SndfileCalls().clear();
    End(sink);
    End(sink);
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_close"));
    EXPECT_EQ(files.closings, std::vector<SNDFILE*>({files.File(0)}));
}

TEST_P(LibsndfileSinkEnding, DoesNotReportWhatLibsndfileSaysToIt) {
    const auto sink = MakeWritingSink("take");
    StandIn().close = [](SNDFILE*) {
        return -1;
    };
    SndfileCalls().clear();
    End(sink);
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_close"));
    ExpectRecords({}, [&] { sink->Open(L"next"); });
}

TEST_P(LibsndfileSinkEnding, KeepsTheDefinedInputAndTheSettings) {
    const auto input = MakeInput({});
    const auto sink = MakeConfiguredSink("WAVE", "take");
    sink->DefineInput(input, "");
    End(sink);
    EXPECT_EQ(sink->GetDefinedInput(""), input);
    sink->DefineInput(input, "");
    EXPECT_EQ(Paths(), PathList({"take", "take"}));
}

TEST_P(LibsndfileSinkEnding, ForgetsThePathOfOpenWithTheFile) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"first");
    sink->DefineInput(MakeInput({}), "");
    End(sink);
    // Two paths would be refused.
    sink->SetInitConfig(MakeSettingsFor("second"));
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"first", "second"}));
}

TEST_P(LibsndfileSinkEnding, LetsTheSinkBeOpenedAgain) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (std::size_t round = 0; round < 3; ++round) {
        sink->Open(L"take " + std::to_wstring(round));
        sink->DefineInput(MakeInput({}), "");
        sink->PushSample(MakeContainer("abcd"));
        EXPECT_EQ(files.writings.back().file, files.File(round));
        End(sink);
        EXPECT_EQ(files.closings.back(), files.File(round));
    }
    EXPECT_EQ(Paths(), PathList({"take 0", "take 1", "take 2"}));
}

TEST_P(LibsndfileSinkEnding, LeavesASinkWithoutAPathWhichThenOpensTheEmptyOne) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(L"take");
    sink->DefineInput(MakeInput({}), "");
    End(sink);
    sink->DefineInput(MakeInput({}), "");
    EXPECT_EQ(Paths(), PathList({"take", ""}));
}

INSTANTIATE_TEST_SUITE_P(By, LibsndfileSinkEnding,
                         ::testing::Values(Ending{"CloseWithTrue",
                                                  [](IAudioSink& sink) {
                                                      sink.Close(true);
                                                  }},
                                           Ending{"CloseWithFalse",
                                                  [](IAudioSink& sink) {
                                                      sink.Close(false);
                                                  }},
                                           Ending{"Release",
                                                  [](IAudioSink& sink) {
                                                      sink.Release();
                                                  }}),
                         [](const ::testing::TestParamInfo<Ending>& one) {
                             return one.param.name;
                         });

// GetDefinedInput

TEST_F(LibsndfileSinkLifecycle, AnswersWithTheDefinedInputWhateverTheName) {
    const auto sink = MakeConfiguredSink("WAVE", "take");
    for (const std::string name : {"", "left", "GetDefinedInput"}) {
        EXPECT_EQ(sink->GetDefinedInput(name), nullptr);
    }
    const auto input = MakeInput({});
    sink->DefineInput(input, "right");
    for (const std::string name : {"", "left", "right"}) {
        EXPECT_EQ(sink->GetDefinedInput(name), input);
    }
}

// What does nothing, and what is refused, in each state of a sink.

class LibsndfileSinkState : public FakeFilesTest,
                            public ::testing::WithParamInterface<std::string> {
protected:
    LibsndfileSinkState() {
        if (GetParam() != "New") {
            sink->SetInitConfig(MakeSettingsFor(""));
        }
        if (GetParam() != "New" && GetParam() != "Configured") {
            sink->Open(L"take");
        }
        if (GetParam() == "Writing" || GetParam() == "Closed") {
            sink->DefineInput(input, "");
        }
        if (GetParam() == "Closed") {
            sink->Close(false);
        }
        defined = sink->GetDefinedInput("");
        SndfileCalls().clear();
        files.writings.clear();
    }

    /// The state is what it was, as far as it can be seen.
    void ExpectNoChange() {
        EXPECT_EQ(SndfileCalls(), Times(0, ""));
        EXPECT_EQ(sink->GetDefinedInput(""), defined);
        EXPECT_EQ(sink->GetManifest(), manifest);
        sink->PushSample(MakeContainer("abcd"));
        ASSERT_EQ(files.writings.size(), 1U);
        EXPECT_EQ(files.writings[0].file, GetParam() == "Writing" ? files.File(0) : nullptr);
    }

    std::shared_ptr<const IInfoContainer> input = MakeInput({});
    std::shared_ptr<const IInfoContainer> defined;
    std::shared_ptr<IParametersCollectionInstance> manifest = MakeManifest("WAVE");
    std::shared_ptr<IAudioSink> sink = MakeSinkFrom(manifest);
};

TEST_P(LibsndfileSinkState, IsNotChangedByInterruptAndClearInternalBuffer) {
    ExpectRecords({}, [&] {
        sink->Interrupt();
        sink->ClearInternalBuffer();
    });
    ExpectNoChange();
}

TEST_P(LibsndfileSinkState, RefusesUpdateConfig) {
    Script script;
    ExpectRefusal(kNoUpdate, [&] { sink->UpdateConfig(nullptr); });
    ExpectRefusal(kNoUpdate, [&] {
        sink->UpdateConfig(std::make_shared<CollectionDouble>(script, MakeSettingsFor("other")));
    });
    EXPECT_EQ(script.calls, Times(0, ""));
    ExpectNoChange();
}

TEST_P(LibsndfileSinkState, RefusesPushMetadataWithTheSameText) {
    ExpectRefusal(kNoUpdate, [&] { sink->PushMetadata({}); });
    ExpectRefusal(kNoUpdate, [&] { sink->PushMetadata({std::make_shared<Metadata>(), nullptr}); });
    ExpectNoChange();
}

TEST_P(LibsndfileSinkState, RefusesSetInputMediator) {
    const auto mediator = std::make_shared<Mediator>();
    ExpectRefusal(kNoMediator, [&] { sink->SetInputMediator(nullptr, "", ""); });
    ExpectRefusal(kNoMediator, [&] { sink->SetInputMediator(mediator, "input", "name"); });
    EXPECT_EQ(mediator.use_count(), 1);
    ExpectNoChange();
}

INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkState,
                         ::testing::Values("New", "Configured", "PathGiven", "Writing", "Closed"),
                         [](const ::testing::TestParamInfo<std::string>& one) {
                             return one.param;
                         });

// Without a logger writer

class LibsndfileSinkWithoutALoggerWriter : public FakeFilesTest {
protected:
    // What an operation writes to standard error.
    template <typename Operation>
    static std::string StandardErrorOf(Operation operation) {
        const TemporaryDirectory directory;
        const std::string path = directory / "errors";
        const int original = dup(STDERR_FILENO);
        const int file = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
        dup2(file, STDERR_FILENO);
        operation();
        dup2(original, STDERR_FILENO);
        close(file);
        close(original);
        return ReadFile(path);
    }
};

TEST_F(LibsndfileSinkWithoutALoggerWriter, SaysTheSameOnStandardError) {
    ASSERT_EQ(GetCurrentLoggerWriter(), nullptr);
    const auto sink = MakeConfiguredSink("WAVE", "take");
    EXPECT_EQ(StandardErrorOf([&] {
                  EXPECT_THROW(sink->UpdateConfig(nullptr), KELRuntimeError);
                  sink->DefineInput(MakeInput({}), "");
                  sink->Close(false);
                  StandIn().write_raw = nullptr;
                  sink->PushSample(MakeContainer("abcd"));
              }),
              ToString(LogLevel::Error) + " " + kNoUpdate + "\n" + ToString(LogLevel::Info) + " " +
                  kFromType + "WAVE\n" + ToString(LogLevel::Error) + " " +
                  ShortWrite("4", "0").message + "\n");
}

// Destruction

TEST_F(LibsndfileSinkLifecycle, LeavesItsFileOpenWhenItGoes) {
    auto sink = MakeWritingSink("take");
    SndfileCalls().clear();
    ExpectRecords({}, [&] { sink.reset(); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkLifecycle, LetsGoOfWhatItSharesWhenItGoes) {
    const auto manifest = MakeManifest("WAVE");
    const auto settings = MakeSettingsFor("take");
    const auto input = MakeInput({});
    auto sink = MakeSinkFrom(manifest);
    sink->SetInitConfig(settings);
    sink->DefineInput(input, "");
    EXPECT_EQ(manifest.use_count(), 2);
    EXPECT_EQ(settings.use_count(), 2);
    EXPECT_EQ(input.use_count(), 2);
    sink.reset();
    EXPECT_EQ(manifest.use_count(), 1);
    EXPECT_EQ(settings.use_count(), 1);
    EXPECT_EQ(input.use_count(), 1);
}

TEST_F(LibsndfileSinkLifecycle, ClosesNothingMoreWhenItGoesAfterClose) {
    auto sink = MakeWritingSink("take");
    sink->Close(false);
    sink.reset();
    EXPECT_EQ(files.closings.size(), 1U);
}

class LibsndfileSinkOfARealFile : public StandInTest {
protected:
    LibsndfileSinkOfARealFile() {
        StandIn().open = [this](const char* name, int mode, SF_INFO* info) {
            opened.push_back(RealSndfile().open(name, mode, info));
            return opened.back();
        };
    }

    std::string Content() const { return ReadFile(path); }

    TemporaryDirectory directory;
    std::string path = directory / "take.wav";
    std::vector<SNDFILE*> opened;
};

TEST_F(LibsndfileSinkOfARealFile, LeavesItUnfinishedWhenItGoes) {
    {
        const auto sink = MakeWritingSink(path);
        sink->PushSample(MakeContainer("abcdefgh"));
    }
    EXPECT_EQ(Content().size(), 88U);
    EXPECT_EQ(Content().substr(76, 4), std::string(4, '\0')) << "bytes of samples in the header";

    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(RealSndfile().close(opened[0]), 0);
    EXPECT_EQ(Content().substr(76), std::string("\10\0\0\0abcdefgh", 12));
}

TEST_F(LibsndfileSinkOfARealFile, FinishesItOnCloseWithEitherFlagAndOnRelease) {
    const std::vector<std::function<void(IAudioSink&)>> endings{
        [](IAudioSink& sink) { sink.Close(true); },
        [](IAudioSink& sink) { sink.Close(false); },
        [](IAudioSink& sink) { sink.Release(); },
    };
    std::vector<std::string> contents;
    for (const auto& end : endings) {
        const auto sink = MakeWritingSink(path);
        sink->PushSample(MakeContainer("abcdefgh"));
        end(*sink);
        EXPECT_EQ(Content().substr(76), std::string("\10\0\0\0abcdefgh", 12));
        contents.push_back(Content());
    }
    EXPECT_EQ(contents, std::vector<std::string>(3, contents[0]));
}

TEST_F(LibsndfileSinkOfARealFile, WritesAnotherAfterTheFirst) {
    const auto sink = MakeConfiguredSink("WAVE");
    for (const std::string name : {"one.wav", "two.wav"}) {
        sink->Open(ConvertPlatformStringToWideString(directory / name));
        sink->DefineInput(MakeInput({}), "");
        sink->PushSample(MakeContainer(name.substr(0, 4)));
        sink->Close(false);
        EXPECT_EQ(ReadFile(directory / name).substr(80), name.substr(0, 4));
    }
}

TEST_F(LibsndfileSinkOfARealFile, DropsWhatIsPushedAfterCloseWithARecord) {
    const auto sink = MakeWritingSink(path);
    sink->PushSample(MakeContainer("abcd"));
    sink->Close(false);
    const std::string closed = Content();
    ExpectRecords({ShortWrite("8", "0")}, [&] { sink->PushSample(MakeContainer("abcdefgh")); });
    EXPECT_EQ(Content(), closed);
}

} // namespace
} // namespace kel::test
