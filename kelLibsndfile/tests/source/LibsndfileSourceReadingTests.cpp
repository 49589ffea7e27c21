// Reading: samples of at most so many frames, one after the other, each with its stamp.

#include "SourceTestSupport.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel::test {
namespace {

struct Reading {
    Shape shape;
    std::int32_t maxFrames;
    std::vector<Stamp> stamps;
};

void PrintTo(const Reading& reading, std::ostream* stream) {
    *stream << reading.shape.frames << " frames of " << reading.shape.channels << " channels, "
            << reading.maxFrames << " at a time";
}

class LibsndfileSourceReadings : public ::testing::TestWithParam<Reading> {};

INSTANTIATE_TEST_SUITE_P(
    Files, LibsndfileSourceReadings,
    ::testing::Values(
        Reading{{1, 48000, 2500}, 1024, {{0, 1024, 4096}, {1024, 1024, 4096}, {2048, 452, 1808}}},
        Reading{{2, 44100, 2500}, 1024, {{0, 1024, 8192}, {1024, 1024, 8192}, {2048, 452, 3616}}},
        Reading{{2, 44100, 2048}, 1024, {{0, 1024, 8192}, {1024, 1024, 8192}}},
        Reading{{6, 96000, 3}, 1, {{0, 1, 24}, {1, 1, 24}, {2, 1, 24}}},
        Reading{{3, 8000, 100}, 100, {{0, 100, 1200}}},
        Reading{{3, 8000, 100}, 101, {{0, 100, 1200}}},
        Reading{{3, 8000, 100}, 99, {{0, 99, 1188}, {99, 1, 12}}},
        Reading{{1, 44100, 0}, 1024, {}}));

TEST_P(LibsndfileSourceReadings, DeliverTheWholeFileInOrder) {
    const auto& [shape, maxFrames, stamps] = GetParam();
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, shape), maxFrames);
    ExpectRecords({}, [&, &shape = shape, &stamps = stamps] {
        for (const Stamp& stamp : stamps) {
            const auto container = source->GetSample();
            ASSERT_NE(container, nullptr);
            EXPECT_EQ(StampOf(container), stamp);
            EXPECT_EQ(ValuesOf(container),
                      ExpectedValues(shape, static_cast<std::uint32_t>(stamp.start),
                                     static_cast<std::uint32_t>(stamp.duration)));
        }
        EXPECT_EQ(source->GetSample(), nullptr);
    });
}

TEST(LibsndfileSourceReading, StampsInFramesOfTheFilesRate) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, {2, 22050, 2500}));
    source->GetSample();
    const TimeLimits limits = OnlySample(source->GetSample())->GetTimeLimits();
    EXPECT_EQ(limits.start.GetTimeNumber(), 1024);
    EXPECT_EQ(limits.start.GetEditRate(), EditRate(22050, 1));
    EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
    EXPECT_EQ(limits.duration, 1024);
    EXPECT_EQ(limits.attachment, nullptr);
}

TEST(LibsndfileSourceReading, SharesTheAnnouncedDescription) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory));
    const auto info = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    for (int i = 0; i < 2; ++i) {
        const auto sample = OnlySample(source->GetSample());
        ASSERT_NE(sample, nullptr);
        EXPECT_EQ(sample->GetAudioInfo(), info);
        EXPECT_EQ(sample->GetAudioParameters(), info->GetAudioParameters());
    }
}

TEST(LibsndfileSourceReading, DeliversOneSampleWithoutMetadataOrPackaging) {
    const TemporaryDirectory directory;
    const auto container = OpenSource(WriteWave(directory))->GetSample();
    EXPECT_EQ(container->GetAudioSamples(nullptr, nullptr).size(), 1U);
    EXPECT_EQ(container->GetPackagingInfo(), nullptr);
    EXPECT_EQ(OnlySample(container)->GetMetadatas().size(), 0U);
}

TEST(LibsndfileSourceReading, GivesEachSampleABufferOfItsOwn) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory), 500);
    std::vector<std::shared_ptr<const ISampleContainer>> containers;
    std::set<const void*> data;
    for (int i = 0; i < 5; ++i) {
        const auto container = source->GetSample();
        ASSERT_NE(container, nullptr);
        containers.push_back(container);
        data.insert(OnlySample(container)->GetBuffer()->GetData());
    }
    EXPECT_EQ(data.size(), 5U);
    for (std::uint32_t i = 0; i < containers.size(); ++i) {
        EXPECT_EQ(ValuesOf(containers[i]), ExpectedValues({}, 500 * i, 500));
    }
}

TEST(LibsndfileSourceReading, ReadsTheSettingAtEachCall) {
    const TemporaryDirectory directory;
    const auto settings = MakeReadSettings(10);
    settings->SetStringValue("FilePath", WriteWave(directory));
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
    settings->SetIntegerValue("MaxSamplesPerBuffer", 20);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{10, 20, 160}));
    settings->SetIntegerValue("MaxSamplesPerBuffer", 0);
    EXPECT_EQ(source->GetSample(), nullptr);
    settings->SetIntegerValue("MaxSamplesPerBuffer", 3000);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{30, 2470, 19760}));
}

TEST(LibsndfileSourceReading, DeliversNothingInBuffersOfNoFrames) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory), 0);
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetSample(), nullptr);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceReading, GoesOnDeliveringNothingAtTheEnd) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory), 2500);
    ASSERT_NE(source->GetSample(), nullptr);
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetSample(), nullptr);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
}

TEST(LibsndfileSourceReading, KeepsItsStampAtTheEnd) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory), 2500);
    source->GetSample();
    EXPECT_EQ(source->GetSample(), nullptr);
    source->GotoTimeOffset(Frames(0, {44100, 1}), "");
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{2500, 2500, 20000}));
}

TEST(LibsndfileSourceReading, DeliversNothingWithoutAFile) {
    const auto source = MakeConfiguredSource();
    ExpectRecords({}, [&] { EXPECT_EQ(source->GetSample(), nullptr); });
    const auto unconfigured = MakeSource();
    ExpectRecords({}, [&] { EXPECT_EQ(unconfigured->GetSample(), nullptr); });
}

TEST(LibsndfileSourceReading, ResumesWhereItStoppedWhenTheOutputIsActivatedAgain) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory), 1000);
    source->GetSample();
    source->ActivateOutputs({});
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetSample(), nullptr);
        EXPECT_EQ(source->GetSample(), nullptr);
    });
    source->ActivateOutputs(source->GetAvailableOutputs());
    const auto container = source->GetSample();
    EXPECT_EQ(StampOf(container), (Stamp{1000, 1000, 8000}));
    EXPECT_EQ(ValuesOf(container), ExpectedValues({}, 1000, 1000));
}

TEST(LibsndfileSourceReading, GoesOnWithTheStampsAfterASeek) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory));
    source->GetSample();
    source->GetSample();
    source->GotoTimeOffset(Frames(0, {44100, 1}), "");
    const auto container = source->GetSample();
    EXPECT_EQ(StampOf(container), (Stamp{2048, 1024, 8192}));
    EXPECT_EQ(ValuesOf(container), ExpectedValues({}, 0, 1024));
}

TEST(LibsndfileSourceReading, IsNotChangedByWhatTheSourceHasNoUseFor) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory));
    source->GetSample();
    ExpectRecords({}, [&] {
        source->Interrupt();
        source->ClearInternalBuffer();
        source->SetOutputMediator(std::make_shared<IOutputMediator>(), "output", "name");
    });
    const auto container = source->GetSample();
    EXPECT_EQ(StampOf(container), (Stamp{1024, 1024, 8192}));
    EXPECT_EQ(ValuesOf(container), ExpectedValues({}, 1024, 1024));
}

TEST(LibsndfileSourceReading, FailsWhereTheSettingsDoNotDeclareTheSize) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto prototype = CreateParametersCollectionPrototype();
    prototype->AddStringParameter("FilePath", "");
    prototype->AddStringParameter("AllocatorRef", "");
    const auto settings = CreateParametersCollectionInstance(prototype);
    settings->SetStringValue("FilePath", path);
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    ExpectRefusal(
        "[parameter \"MaxSamplesPerBuffer\" is not declared (wanted: integer)]",
        [&] { source->GetSample(); }, {}, "kelCore/ParametersCollection.cpp");
    source->SetInitConfig(MakeReadSettings(1024));
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

TEST(LibsndfileSourceReading, DoesNotReportAFileThatEndsEarly) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path, 1000);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - std::uintmax_t{4} * 1000);
    ExpectRecords({}, [&] {
        EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1000, 8000}));
        EXPECT_EQ(StampOf(source->GetSample()), (Stamp{1000, 500, 4000}));
        EXPECT_EQ(source->GetSample(), nullptr);
    });
    EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
}

} // namespace
} // namespace kel::test
