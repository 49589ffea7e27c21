#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kSourceBase = "kelCore/include/AudioSourceBase.h";
const std::string kElementBase = "kelCore/include/ElementBase.h";

std::shared_ptr<IParametersCollectionInstance> MakeSourceManifest(bool withFile) {
    const auto settings = CreateParametersCollectionPrototype();
    settings->AddIntegerParameter("Length", 10, "Frames");
    if (withFile) {
        settings->AddStringParameter("FilePath", "The file");
    } else {
        settings->AddIntegerParameter("FilePath", 1, "Not a path");
    }
    auto manifest = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    manifest->SetCollectionValue("init_config", settings);
    return manifest;
}

// Counts up from the number of the frame, in 16 bits, and notes what it is asked for.
class CountingSource final : public AudioSourceBase {
public:
    explicit CountingSource(bool withFile)
        : AudioSourceBase("Counter", MakeSourceManifest(withFile)) {}

    std::shared_ptr<IParametersCollectionInstance> MakeSettings() const {
        return CreateParametersCollectionInstance(GetManifest()->GetCollectionValue("init_config"));
    }

    std::vector<std::string> calls;
    PCMFormat format{48000, 1, AudioPCMType::Integer, 2};
    std::int64_t length = 10;
    std::uint32_t maxFrames = 4;
    std::int64_t lastFrame = 10; // the first one that cannot be read

protected:
    Medium OpenMedium(const std::string& path) override {
        calls.push_back("open \"" + path + "\"");
        KEL_CHECK(path != "missing", "no file");
        return {format, length, maxFrames};
    }

    std::uint32_t ReadFrames(std::int64_t position, std::uint32_t frames, void* data) override {
        calls.push_back(std::to_string(frames) + " from " + std::to_string(position));
        auto* values = static_cast<std::int16_t*>(data);
        std::uint32_t count = 0;
        while (count < frames && position + count < lastFrame) {
            values[count] = static_cast<std::int16_t>(position + count);
            ++count;
        }
        return count;
    }

    void CloseMedium() override { calls.emplace_back("close"); }
};

std::shared_ptr<CountingSource> MakeCounter(bool withFile = false) {
    auto source = std::make_shared<CountingSource>(withFile);
    source->SetInitConfig(source->MakeSettings());
    return source;
}

std::vector<int> ValuesOfSample(const ISampleContainer& container) {
    const std::shared_ptr<const IBuffer> buffer =
        container.GetAudioSamples(nullptr, nullptr).at(0)->GetBuffer();
    const auto* values =
        static_cast<const std::int16_t*>(static_cast<const void*>(buffer->GetData()));
    return {values, values + buffer->GetSize() / 2};
}

MediaTime CounterFrame(std::int64_t number, std::uint32_t rate = 48000) {
    return {EditRate(rate, 1), number, nullptr};
}

} // namespace

TEST(ASourceBase, DeliversStampedSamplesUpToTheEnd) {
    const auto source = MakeCounter();
    std::vector<std::vector<int>> values;
    while (const auto container = source->GetSample()) {
        const auto sample = container->GetAudioSamples(nullptr, nullptr).at(0);
        const TimeLimits limits = sample->GetTimeLimits();
        values.push_back(ValuesOfSample(*container));
        EXPECT_EQ(limits.start.GetEditRate(), EditRate(48000, 1));
        EXPECT_EQ(limits.start.GetTimeNumber(), values.back().front());
        EXPECT_EQ(limits.duration, static_cast<std::int64_t>(values.back().size()));
        EXPECT_EQ(sample->GetAudioInfo(), source->GetDefinedOutput("")->GetAudioInfos().at(0));
    }
    EXPECT_THAT(values, ElementsAre(std::vector<int>{0, 1, 2, 3}, std::vector<int>{4, 5, 6, 7},
                                    std::vector<int>{8, 9}));
    EXPECT_THAT(source->calls, ElementsAre("open \"\"", "4 from 0", "4 from 4", "2 from 8"))
        << "nothing is read at the end";
}

TEST(ASourceBase, EndsEarlyWhenNothingIsRead) {
    const auto source = std::make_shared<CountingSource>(false);
    source->lastFrame = 5;
    source->SetInitConfig(source->MakeSettings());
    EXPECT_EQ(ValuesOfSample(*source->GetSample()).size(), 4U);
    EXPECT_THAT(ValuesOfSample(*source->GetSample()), ElementsAre(4));
    EXPECT_EQ(source->GetSample(), nullptr);
}

TEST(ASourceBase, DescribesItsMedium) {
    const auto source = MakeCounter(true);
    EXPECT_FALSE(source->IsMediaOpen()) << "without a path";
    source->Open(L"directory/take");
    const auto info = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    EXPECT_EQ(ReadFormat(*info), source->format);
    EXPECT_EQ(info->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName(), "take");
    EXPECT_THAT(source->GetAvailableOutputs(), ElementsAre(info->GetChannelInfo()));
    EXPECT_EQ(source->GetTimeLimits("").start.GetTimeNumber(), 0);
    EXPECT_EQ(source->GetTimeLimits("").duration, 10);
    EXPECT_FALSE(source->IsGrowing());
    EXPECT_THAT(source->GetMetadatas(), IsEmpty());
    EXPECT_EQ(source->GetDirection(), MediaSourceDirection::Forward);
    source->SetDirection(MediaSourceDirection::Forward);
    source->SetOutputMediator(nullptr, "", "");
    source->Interrupt();
    source->ClearInternalBuffer();
    EXPECT_EQ(ValuesOfSample(*source->GetSample()).size(), 4U) << "these three do nothing";
    const auto other = MakeCounter()->GetDefinedOutput("")->GetAudioInfos().at(0);
    EXPECT_EQ(other->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName(), "Counter");
}

TEST(ASourceBase, OpensTheFileOfItsSettings) {
    const auto source = std::make_shared<CountingSource>(true);
    const auto settings = source->MakeSettings();
    settings->SetStringValue("FilePath", "missing");
    test::ExpectFailure("[no file] [ Condition is not true ]",
                        "kelCore/tests/AudioSourceBaseTests.cpp",
                        [&] { source->SetInitConfig(settings); });
    EXPECT_FALSE(source->IsMediaOpen());
    settings->SetStringValue("FilePath", "there");
    source->SetInitConfig(settings);
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_THAT(source->calls, ElementsAre("open \"missing\"", "open \"there\""));
}

TEST(ASourceBase, GoesToFramesWithinItsLimits) {
    const auto source = MakeCounter();
    for (const std::int64_t frame : {9, 0, 10}) {
        EXPECT_EQ(source->GotoTimeOffset(CounterFrame(frame), "").GetTimeNumber(), frame);
        const auto sample = source->GetSample();
        EXPECT_EQ(sample == nullptr, frame == 10);
    }
    source->GotoTimeOffset(CounterFrame(5), "");
    const auto refuses = [&](const MediaTime& time, const std::string& cause) {
        test::ExpectFailure("[Counter " + cause + "] [ Condition is not true ]", kSourceBase,
                            [&] { source->GotoTimeOffset(time, ""); });
    };
    refuses(CounterFrame(11), "has no frame 11, only 10");
    refuses(CounterFrame(-1), "has no frame -1, only 10");
    refuses(CounterFrame(0, 44100), "counts time in frames");
    EXPECT_EQ(ValuesOfSample(*source->GetSample()).front(), 5) << "a refusal does not move it";
}

TEST(ASourceBase, DeliversNothingWhileItsOutputIsOff) {
    const auto source = MakeCounter();
    EXPECT_EQ(source->GetActivatedOutputs(), source->GetAvailableOutputs());
    source->ActivateOutputs({});
    EXPECT_THAT(source->GetActivatedOutputs(), IsEmpty());
    EXPECT_EQ(source->GetSample(), nullptr);
    source->ActivateOutputs(source->GetAvailableOutputs());
    EXPECT_EQ(ValuesOfSample(*source->GetSample()).front(), 0);
}

TEST(ASourceBase, AnswersOrRefusesWhileItIsClosedAndStartsAgain) {
    const auto source = MakeCounter();
    source->GetSample();
    source->Release();
    source->Release();
    EXPECT_FALSE(source->IsMediaOpen());
    EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
    EXPECT_EQ(source->GetSample(), nullptr);
    EXPECT_THAT(source->GetAvailableOutputs(), IsEmpty());
    EXPECT_THAT(source->GetActivatedOutputs(), IsEmpty());
    const std::vector<std::function<void()>> refused{
        [&] { source->GetTimeLimits(""); },
        [&] { source->GotoTimeOffset(CounterFrame(0), ""); },
        [&] { source->ActivateOutputs({}); },
    };
    for (const auto& operation : refused) {
        test::ExpectFailure("[Counter is closed] [ Condition is not true ]", kSourceBase,
                            operation);
    }
    source->Open(L"");
    EXPECT_EQ(ValuesOfSample(*source->GetSample()).front(), 0);
    EXPECT_THAT(source->calls,
                ElementsAre("open \"\"", "4 from 0", "close", "open \"\"", "4 from 0"));
}

TEST(ASourceBase, RefusesWhatItCannotDo) {
    const auto source = std::make_shared<CountingSource>(false);
    const auto settings = source->MakeSettings();
    test::ExpectFailure("[Counter needs SetInitConfig first] [ Condition is not true ]",
                        kElementBase, [&] { source->Open(L""); });
    test::ExpectFailure("[Counter got no settings] [ Pointer is null ]", kElementBase,
                        [&] { source->SetInitConfig(nullptr); });
    EXPECT_THAT(source->calls, IsEmpty());
    source->SetInitConfig(settings);
    const std::string isOpen = "[Counter is open] [ Condition is not true ]";
    test::ExpectFailure(isOpen, kSourceBase, [&] { source->Open(L""); });
    test::ExpectFailure(isOpen, kSourceBase, [&] { source->SetInitConfig(settings); });
    test::ExpectFailure("[Counter does not change its settings]", kElementBase,
                        [&] { source->UpdateConfig(settings); });
    test::ExpectFailure("[Counter goes forward only] [ Condition is not true ]", kSourceBase,
                        [&] { source->SetDirection(MediaSourceDirection::Backward); });
}

TEST(ASourceBase, ClosesAMediumThatHasNoFrames) {
    const PCMFormat good{48000, 1, AudioPCMType::Integer, 2};
    struct Row {
        PCMFormat format;
        std::int64_t frames;
        std::uint32_t maxFrames;
        std::string text;
    };
    const std::vector<Row> rows{
        {{0, 1}, 10, 4, "32-bit float little-endian, 1 channel, 0 Hz, 10 frames, 4 in a sample"},
        {{1, 0}, 10, 4, "32-bit float little-endian, 0 channels, 1 Hz, 10 frames, 4 in a sample"},
        {{1, 0x40000000},
         10,
         4,
         "32-bit float little-endian, 1073741824 channels, 1 Hz, 10 frames, 4 in a sample"},
        {good, -1, 4,
         "16-bit integer little-endian, 1 channel, 48000 Hz, -1 frames, 4 in a sample"},
        {good, 10, 0,
         "16-bit integer little-endian, 1 channel, 48000 Hz, 10 frames, 0 in a sample"},
    };
    for (const Row& row : rows) {
        const auto source = std::make_shared<CountingSource>(false);
        source->format = row.format;
        source->length = row.frames;
        source->maxFrames = row.maxFrames;
        test::ExpectFailure("[Counter opened a medium without frames: " + row.text +
                                "] [ Condition is not true ]",
                            kSourceBase, [&] { source->SetInitConfig(source->MakeSettings()); });
        EXPECT_FALSE(source->IsMediaOpen());
        EXPECT_THAT(source->calls, ElementsAre("open \"\"", "close"));
    }
}

TEST(ASourceBase, ReadsFewerFramesWhenTheirBytesDoNotFitInto32Bits) {
    const auto source = std::make_shared<CountingSource>(false);
    source->format = {48000, 0x3FFFFFFF, AudioPCMType::Integer, 1};
    source->maxFrames = 5;
    source->lastFrame = 0;
    source->SetInitConfig(source->MakeSettings());
    EXPECT_EQ(source->GetSample(), nullptr);
    EXPECT_EQ(source->calls.back(), "4 from 0");
}

TEST(ASourceBase, ChecksIntegersOfItsSettings) {
    class Reader final : public AudioSourceBase {
    public:
        Reader() : AudioSourceBase("Reader", MakeSourceManifest(true)) {}
        std::int32_t Read() const { return IntegerSetting("Length", 2, 4); }

    protected:
        Medium OpenMedium(const std::string& /*path*/) override { return {}; }
        std::uint32_t ReadFrames(std::int64_t /*position*/, std::uint32_t /*frames*/,
                                 void* /*data*/) override {
            return 0;
        }
    };
    Reader reader;
    const auto settings =
        CreateParametersCollectionInstance(reader.GetManifest()->GetCollectionValue("init_config"));
    reader.SetInitConfig(settings);
    for (const std::int32_t value : {2, 4}) {
        settings->SetIntegerValue("Length", value);
        EXPECT_EQ(reader.Read(), value);
    }
    for (const std::int32_t value : {1, 5}) {
        settings->SetIntegerValue("Length", value);
        test::ExpectFailure("[Reader: Length is " + std::to_string(value) +
                                ", not from 2 to 4] [ Condition is not true ]",
                            kElementBase, [&] { static_cast<void>(reader.Read()); });
    }
}

TEST(ASourceBase, WorksOnNoFileWithoutAManifestOrDeclaredSettings) {
    for (const bool hasManifest : {false, true}) {
        class Empty final : public AudioSourceBase {
        public:
            explicit Empty(std::shared_ptr<const IParametersCollectionInstance> manifest)
                : AudioSourceBase("Empty", std::move(manifest)) {}

        protected:
            Medium OpenMedium(const std::string& /*path*/) override { return {{1, 1}, 0}; }
            std::uint32_t ReadFrames(std::int64_t /*position*/, std::uint32_t /*frames*/,
                                     void* /*data*/) override {
                return 0;
            }
        };
        const auto manifest = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
        Empty source(hasManifest ? manifest : nullptr);
        source.SetInitConfig(manifest);
        EXPECT_TRUE(source.IsMediaOpen());
        source.Release();
        EXPECT_FALSE(source.IsMediaOpen());
    }
}

} // namespace kel
