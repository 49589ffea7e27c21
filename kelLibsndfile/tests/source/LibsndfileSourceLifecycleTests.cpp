// A source from its creation to its end: its settings, what it refuses and what it does nothing
// about, and what its release leaves.

#include "SourceTestSupport.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

// What holds whether a file is open or not.
class LibsndfileSourceInEachState : public ::testing::TestWithParam<std::string> {
protected:
    LibsndfileSourceInEachState() {
        if (GetParam() == "New") {
            source = MakeSource();
            return;
        }
        const std::string path = WriteWave(m_directory);
        source = OpenSource(path);
        if (GetParam() == "Released") {
            source->Release();
        }
    }

    bool IsOpen() const { return GetParam() == "Open"; }

    std::shared_ptr<IAudioSource> source;

private:
    TemporaryDirectory m_directory;
};

INSTANTIATE_TEST_SUITE_P(States, LibsndfileSourceInEachState,
                         ::testing::Values("New", "Open", "Released"),
                         [](const auto& state) { return state.param; });

TEST_P(LibsndfileSourceInEachState, TellsWhetherAFileIsOpen) {
    ExpectRecords({}, [&] { EXPECT_EQ(source->IsMediaOpen(), IsOpen()); });
}

TEST_P(LibsndfileSourceInEachState, NeverGrows) {
    ExpectRecords({}, [&] { EXPECT_FALSE(source->IsGrowing()); });
}

TEST_P(LibsndfileSourceInEachState, ReadsForward) {
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDirection(), MediaSourceDirection::Forward);
        EXPECT_EQ(static_cast<std::int32_t>(source->GetDirection()), 0);
    });
}

TEST_P(LibsndfileSourceInEachState, RefusesEveryDirection) {
    for (const std::int32_t direction : {0, 1, 2, -1}) {
        SCOPED_TRACE(direction);
        ExpectRefusal("[LibsndfileSource::SetDirection not supported]",
                      [&] { source->SetDirection(static_cast<MediaSourceDirection>(direction)); });
        EXPECT_EQ(source->GetDirection(), MediaSourceDirection::Forward);
    }
    EXPECT_EQ(source->IsMediaOpen(), IsOpen());
}

TEST_P(LibsndfileSourceInEachState, ReportsNoMetadata) {
    ExpectRecords({}, [&] { EXPECT_EQ(source->GetMetadatas().size(), 0U); });
}

TEST_P(LibsndfileSourceInEachState, RefusesAnUpdateOfItsSettings) {
    for (const auto& config :
         {std::shared_ptr<IParametersCollectionInstance>(), MakeReadSettings(1024)}) {
        ExpectRefusal("[LibsndfileSource::UpdateConfig not supported]",
                      [&] { source->UpdateConfig(config); });
    }
    EXPECT_EQ(source->IsMediaOpen(), IsOpen());
}

TEST_P(LibsndfileSourceInEachState, DoesNothingAboutWhatItHasNoUseFor) {
    class Mediator final : public IOutputMediator {};
    const auto mediator = std::make_shared<Mediator>();
    ExpectRecords({}, [&] {
        source->Interrupt();
        source->ClearInternalBuffer();
        source->SetOutputMediator(mediator, "output", "name");
        source->SetOutputMediator(nullptr, "", "");
    });
    EXPECT_EQ(mediator.use_count(), 1);
    EXPECT_EQ(source->IsMediaOpen(), IsOpen());
    if (IsOpen()) {
        EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
    }
}

TEST_P(LibsndfileSourceInEachState, KeepsItsManifest) {
    const auto manifest =
        GetManifest(ElementFactoryType::AudioSource, "kel.LibsndfileSource", "WAVE");
    ExpectRecords({}, [&] { EXPECT_EQ(source->GetManifest(), manifest); });
}

TEST_P(LibsndfileSourceInEachState, CanBeReleasedMoreThanOnce) {
    ExpectRecords({}, [&] {
        source->Release();
        EXPECT_FALSE(source->IsMediaOpen());
        source->Release();
        EXPECT_FALSE(source->IsMediaOpen());
    });
}

TEST_P(LibsndfileSourceInEachState, EndsQuietly) {
    ExpectRecords({}, [&] { source.reset(); });
}

TEST(LibsndfileSourceInterfaces, ShareTheManifest) {
    const auto source = MakeSource();
    const IMediaSource& data = *source;
    const IBasicControl& control = *source;
    const ISourceControl& sourceControl = *source;
    const IAudioSourceControl& audioControl = *source;
    EXPECT_EQ(control.GetManifest(), data.GetManifest());
    EXPECT_EQ(sourceControl.GetManifest(), data.GetManifest());
    EXPECT_EQ(audioControl.GetManifest(), data.GetManifest());
    EXPECT_NE(data.GetManifest(), nullptr);
}

TEST(LibsndfileSourceInterfaces, ShareTheFile) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const std::shared_ptr<IAudioSource> source = MakeConfiguredSource();
    const std::shared_ptr<IMediaSource> data = source;
    const std::shared_ptr<ISourceControl> control = source;
    control->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(ValuesOf(data->GetSample()), ExpectedValues({}, 0, 1024));
    data->Release();
    EXPECT_FALSE(control->IsMediaOpen());
}

TEST(LibsndfileSourceInterfaces, LeadToEachOther) {
    const std::shared_ptr<IAudioSource> source = MakeSource();
    const std::shared_ptr<IMediaSource> data = source;
    const auto control = std::dynamic_pointer_cast<ISourceControl>(data);
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(control, std::shared_ptr<ISourceControl>(source));
    EXPECT_EQ(std::dynamic_pointer_cast<IMediaSource>(control), data);
    EXPECT_EQ(std::dynamic_pointer_cast<IAudioSource>(control), source);
    const std::shared_ptr<IBasicControl> basic = source;
    EXPECT_EQ(std::dynamic_pointer_cast<IAudioSource>(basic), source);
}

TEST(LibsndfileSourceSettings, OpenTheFileThatTheyName) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto settings = MakeReadSettings(1024);
    settings->SetStringValue("FilePath", path);
    const auto source = MakeSource();
    ExpectRecords({OpenedLine(path, 2, 2500, kWaveFormat), AllocatorLine()},
                  [&] { source->SetInitConfig(settings); });
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceSettings, OpenNothingWhenTheyNameNoFile) {
    for (const bool set : {false, true}) {
        const auto settings = MakeSourceSettings();
        if (set) {
            settings->SetStringValue("FilePath", "");
        }
        const auto source = MakeSource();
        ExpectRecords({}, [&] { source->SetInitConfig(settings); });
        EXPECT_FALSE(source->IsMediaOpen());
    }
}

TEST(LibsndfileSourceSettings, HaveDefaultsThatSuffice) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    source->SetInitConfig(MakeSourceSettings());
    source->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

TEST(LibsndfileSourceSettings, AreNotTheManifest) {
    const auto source = MakeSource();
    const auto manifest = source->GetManifest();
    source->SetInitConfig(MakeSourceSettings());
    EXPECT_EQ(source->GetManifest(), manifest);
}

TEST(LibsndfileSourceSettings, AreHeldUntilOthersReplaceThem) {
    auto first = MakeSourceSettings();
    const std::weak_ptr<IParametersCollectionInstance> watch = first;
    const auto source = MakeSource();
    source->SetInitConfig(std::move(first));
    EXPECT_FALSE(watch.expired());
    source->SetInitConfig(MakeSourceSettings());
    EXPECT_TRUE(watch.expired());
}

TEST(LibsndfileSourceSettings, AreReplacedAlsoWhenTheirFileDoesNotOpen) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path, 1000);
    const auto settings = MakeReadSettings(10);
    settings->SetStringValue("FilePath", path);
    ExpectRefusal(kOpenedTwice, [&] { source->SetInitConfig(settings); });
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
}

TEST(LibsndfileSourceSettings, KeepTheFileOpenWhenTheyNameNone) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path, 1000);
    ExpectRecords({}, [&] { source->SetInitConfig(MakeReadSettings(10)); });
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
}

TEST(LibsndfileSourceSettings, MustDeclareAFilePath) {
    const auto source = MakeSource();
    const auto other = CreateParametersCollectionInstance(CreateParametersCollectionPrototype());
    ExpectRefusal(
        "[parameter \"FilePath\" is not declared (wanted: string)]",
        [&] { source->SetInitConfig(other); }, {}, "kelCore/ParametersCollection.cpp");
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceSettings, CanNotBeMissing) {
    const auto source = MakeSource();
    ExpectRefusal(kNotConfigured, [&] { source->SetInitConfig(nullptr); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceRelease, ClosesTheFileForEveryOperation) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path);
    const auto outputs = source->GetAvailableOutputs();
    source->Release();

    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetSample(), nullptr);
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 0U);
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
    });
    ExpectRefusal("[Cannot call GetTimeLimits without an opened file]",
                  [&] { source->GetTimeLimits(""); });
    ExpectRefusal("[Cannot call GotoTimeOffset without an opened file]", [&] {
        source->GotoTimeOffset(Frames(0, {44100, 1}), "");
    });
    ExpectRefusal("[Cannot call ActivateOutputs without an opened file]",
                  [&] { source->ActivateOutputs(outputs); });
}

TEST(LibsndfileSourceRelease, AllowsAnotherFile) {
    const TemporaryDirectory directory;
    const Shape other{1, 8000, 300};
    const std::string path = WriteWave(directory);
    const std::string otherPath = WriteWave(directory, other, "other.wav");
    const auto source = OpenSource(path);
    source->Release();
    source->Open(ConvertPlatformStringToWideString(otherPath));
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(source->GetTimeLimits("").duration, 300);
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues(other, 0, 300));
}

TEST(LibsndfileSourceRelease, LetsTheNextFileBeReadLikeOneWithoutAHeader) {
    // libsndfile takes the extension for the encoding of a file without a header, and what it is
    // handed for the encoding of the next.
    const TemporaryDirectory directory;
    const std::string headerless = directory / "speech.vox";
    WriteFile(headerless, std::string(1000, '\x80'));
    const std::string path = WriteWave(directory);
    const auto bytes = static_cast<std::int64_t>(WaveBytes({}).size());
    const auto source = OpenSource(headerless);
    EXPECT_EQ(source->GetTimeLimits("").duration, 2 * 1000);
    source->Release();
    source->Open(ConvertPlatformStringToWideString(path));
    const TimeLimits limits = source->GetTimeLimits("");
    EXPECT_EQ(limits.duration, 2 * bytes);
    EXPECT_EQ(limits.start.GetEditRate(), EditRate(8000, 1));
    EXPECT_EQ(source->GetAvailableOutputs().at(0)->GetNumberOfChannels(), 1U);
    EXPECT_EQ(OpenSource(path)->GetTimeLimits("").duration, 2500);
}

TEST(LibsndfileSourceRelease, LetsTheStampsGoOnInTheNextFile) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
    source->Release();
    source->Open(ConvertPlatformStringToWideString(path));
    const auto container = source->GetSample();
    EXPECT_EQ(StampOf(container), (Stamp{1024, 1024, 8192}));
    EXPECT_EQ(ValuesOf(container), ExpectedValues({}, 0, 1024));
}

TEST(LibsndfileSourceRelease, KeepsTheChoiceOfOutputs) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path);
    source->ActivateOutputs({});
    source->Release();
    source->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
    EXPECT_EQ(source->GetSample(), nullptr);
}

TEST(LibsndfileSourceRelease, LeavesWhatWasHandedOut) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    auto source = OpenSource(path);
    const auto container = source->GetSample();
    const auto output = source->GetDefinedOutput("");
    source->Release();
    source.reset();
    EXPECT_EQ(StampOf(container), (Stamp{0, 1024, 8192}));
    EXPECT_EQ(ValuesOf(container), ExpectedValues({}, 0, 1024));
    EXPECT_EQ(output->GetAudioInfos().at(0)->GetChannelInfo()->GetNumberOfChannels(), 2U);
}

} // namespace
} // namespace kel::test
