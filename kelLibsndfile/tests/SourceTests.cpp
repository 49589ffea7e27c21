// The source and real files: opening, settings, outputs, reading and seeking.

#include "SourceTestSupport.h"

#include <AudioFiles.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <locale>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// Opening

void ExpectAnnouncement(const IAudioSource& source, const Shape& shape,
                        const std::string& fileName) {
    const auto container = source.GetDefinedOutput("");
    ASSERT_NE(container, nullptr);
    ASSERT_EQ(container->GetInfos().size(), 1U);
    ASSERT_EQ(container->GetAudioInfos().size(), 1U);
    EXPECT_EQ(container->GetPackagingInfo(), nullptr);

    const auto info = container->GetAudioInfos()[0];
    EXPECT_EQ(info->GetMetadatas().size(), 0U);
    EXPECT_EQ(info->GetClockInfos().size(), 0U);

    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info->GetAudioParameters());
    ASSERT_NE(parameters, nullptr);
    EXPECT_EQ(parameters->GetCodecFamily(), ACodecFamily::PCM);
    EXPECT_EQ(parameters->GetMuxing(), PCMMuxing::Multi);
    EXPECT_EQ(parameters->GetSampleRate(), shape.rate);
    EXPECT_EQ(parameters->GetPCMType(), AudioPCMType::Float);
    EXPECT_EQ(parameters->GetSampleSize(), 4);
    EXPECT_EQ(parameters->GetBitsDepth(), 32);
    EXPECT_EQ(parameters->GetEndianness(), PCMEndianness::Little);

    EXPECT_EQ(info->GetChannelInfo()->GetNumberOfChannels(), shape.channels);
    const auto track = info->GetChannelInfo()->GetTrack();
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(track->GetContentType(), ContentType::Audio);
    EXPECT_EQ(track->GetNumberOfChannels(), shape.channels);
    EXPECT_EQ(track->GetLayout(), TrackLayout::Default);
    ASSERT_NE(track->GetTrackGroup(), nullptr);
    EXPECT_EQ(track->GetTrackGroup()->GetName(), fileName);
}

struct Format {
    std::string name;
    int word;
    Shape shape;
};

class LibsndfileSourceOpeningFormats : public ::testing::TestWithParam<Format> {};

INSTANTIATE_TEST_SUITE_P(
    Formats, LibsndfileSourceOpeningFormats,
    ::testing::Values(Format{"Wave", SF_FORMAT_WAV | SF_FORMAT_PCM_16, {2, 44100, 500}},
                      Format{"ExtensibleWave", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, {6, 48000, 7}},
                      Format{"RF64", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, {1, 96000, 1}},
                      Format{"AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_32, {3, 8000, 1234}}),
    [](const auto& format) { return format.param.name; });

TEST_P(LibsndfileSourceOpeningFormats, AreAnnouncedAsFloatSamples) {
    const TemporaryDirectory directory;
    const auto& [name, word, shape] = GetParam();
    const std::string path = directory / name;
    WriteAudio(path, word, static_cast<int>(shape.channels), static_cast<int>(shape.rate),
               std::vector<float>(std::size_t{shape.frames} * shape.channels));
    const auto source = MakeConfiguredSource();
    ExpectRecords(
        {OpenedLine(path, shape.channels, shape.frames, ReadAudio(path).format), AllocatorLine()},
        [&] { source->Open(Wide(path)); });
    EXPECT_TRUE(source->IsMediaOpen());
    ExpectAnnouncement(*source, shape, name);
}

TEST(LibsndfileSourceOpening, NamesTheTrackGroupAfterTheFileWithoutItsDirectories) {
    const TemporaryDirectory directory;
    std::filesystem::create_directories(directory.Path() / "one.wav" / "two");
    const std::string path = WriteWave(directory, {}, "one.wav/two/three.wav");
    ExpectAnnouncement(*OpenSource(path), {}, "three.wav");
}

TEST(LibsndfileSourceOpening, ReportsThatAFileIsMissing) {
    const TemporaryDirectory directory;
    const std::string path = directory / "missing.wav";
    const auto source = MakeConfiguredSource();
    ExpectSourceRefusal("[Unable to open file \"" + path +
                            "\" with libsndfile. Error is:\"System error : No such file or "
                            "directory.\"]",
                        [&] { source->Open(Wide(path)); });
}

TEST(LibsndfileSourceOpening, FailsForAPathWithoutANarrowForm) {
    const TemporaryDirectory directory;
    const std::wstring path = Wide(WriteWave(directory)) + std::wstring(1, L'\0') + L".wav";
    const auto source = MakeConfiguredSource();
    ExpectRefusal("[the wide text has no narrow form: character 0 at position " +
                      std::to_string(path.size() - 5) + "]",
                  kPlatformStringFile, [&] { source->Open(path); });
    EXPECT_FALSE(source->IsMediaOpen());
}

// File names

const std::vector<std::string> kNames = {
    "with spaces and  two.wav",
    "100% %s %n %d.wav",
    "quote\"d.wav",
    "back\\slash.wav",
    "two\nlines.wav",
    "tab\tand bell\a.wav",
    "\xC3\xA4\xC3\xB6\xC3\xBC \xE2\x82\xAC \xF0\x9F\x8E\xB5.wav", // UTF-8 of two to four bytes
    "a\xCC\x88.wav",                                              // not composed
    "latin \xE4\xF6\xFC.wav",                                     // no UTF-8
    "cut \xE2\x82.wav",
    "\x80\xFF.wav",
    "long form \xC0\xAF.wav",
    "half \xED\xB2\x80.wav", // a surrogate
    "-",
    " ",
    "no extension",
};

std::string TrackGroupOf(const IAudioSource& source) {
    const auto info = source.GetDefinedOutput("")->GetAudioInfos().at(0);
    return info->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName();
}

// Opens each file in both ways, and fails to open it when it is gone.
void ExpectNamesKept() {
    for (const std::string& name : kNames) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        const std::string path = WriteWave(directory, {2, 44100, 12345}, name);

        const auto settings = MakeReadSettings(1024);
        settings->SetStringValue("FilePath", path);
        const auto source = MakeSource();
        const Lines opened = {OpenedLine(path, 2, 12345, kWaveFormat), AllocatorLine()};
        ExpectRecords(opened, [&] { source->SetInitConfig(settings); });
        ASSERT_TRUE(source->IsMediaOpen());
        EXPECT_EQ(TrackGroupOf(*source), name);
        EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));

        source->Release();
        ExpectRecords(opened, [&] { source->Open(Wide(path)); });
        EXPECT_EQ(TrackGroupOf(*source), name);

        source->Release();
        std::filesystem::remove(path);
        ExpectSourceRefusal("[Unable to open file \"" + path +
                                "\" with libsndfile. Error is:\"System error : No such file or "
                                "directory.\"]",
                            [&] { source->Open(Wide(path)); });
    }
}

TEST(LibsndfileSourceFileNames, AreKeptByteByByte) {
    ExpectNamesKept();
}

// Settings and manifest

// An allocator that counts what is asked of it.
class CountingAllocator final : public IMemoryBlockAllocator {
public:
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t /*bytes*/) override {
        ++allocations;
        return nullptr;
    }

    int allocations = 0;
};

TEST(LibsndfileSourceAllocatorName, HasToExist) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("AllocatorRef", "nowhere");
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    ExpectSourceRefusal("[could not find allocator nowhere] [ Pointer is null ]",
                        [&] { source->Open(Wide(path)); },
                        {OpenedLine(path, 2, 2500, kWaveFormat)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceAllocatorName, LeavesAnOpenFileWithoutOutputsWhenItIsUnknown) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("FilePath", path);
    settings->SetStringValue("AllocatorRef", "nowhere");
    const auto source = MakeSource();
    EXPECT_THROW(source->SetInitConfig(settings), KELRuntimeError);

    ExpectSourceRefusal(kOpenedTwice, [&] { source->Open(Wide(path)); });
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 0U);
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
        EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
        EXPECT_EQ(source->GotoTimeOffset(Frames(7, {44100, 1}), "").GetTimeNumber(), 7);
        source->ActivateOutputs({});
        source->ActivateOutputs({nullptr});
    });
    source->Release();
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceAllocatorName, IsReadWhenAFileIsOpened) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto settings = MakeSourceSettings();
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    settings->SetStringValue("AllocatorRef", "nowhere");
    EXPECT_THROW(source->Open(Wide(path)), KELRuntimeError);
    source->Release();
    settings->SetStringValue("AllocatorRef", "");
    source->Open(Wide(path));
    ExpectAnnouncement(*source, {}, "audio.wav");
}

TEST(LibsndfileSourceAllocatorName, DoesNotDecideWhereTheBuffersComeFrom) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto named = std::make_shared<CountingAllocator>();
    RegisterAllocator("named", named);
    const auto held = named.use_count();
    const auto settings = MakeReadSettings(1024);
    settings->SetStringValue("AllocatorRef", "named");
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    ExpectRecords({OpenedLine(path, 2, 2500, kWaveFormat), AllocatorLine()},
                  [&] { source->Open(Wide(path)); });
    EXPECT_EQ(named.use_count(), held);
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
    EXPECT_EQ(named->allocations, 0);
}

TEST(LibsndfileSourceWithoutSettings, OpensTheFileButFails) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    ExpectSourceRefusal(kSourceNotConfigured, [&] { source->Open(Wide(path)); },
                        {OpenedLine(path, 2, 2500, kWaveFormat)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceWithoutSettings, HasNoOutputsAndDeliversNothing) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    EXPECT_THROW(source->Open(Wide(path)), KELRuntimeError);
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 0U);
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
        EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
    });
    ExpectSourceRefusal(kSourceNotConfigured, [&] { source->GetSample(); });
    EXPECT_TRUE(source->IsMediaOpen());
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

TEST(LibsndfileSourceSettings, HaveDefaultsThatSuffice) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    source->SetInitConfig(MakeSourceSettings());
    source->Open(Wide(path));
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

TEST(LibsndfileSourceSettings, AreReplacedAlsoWhenTheirFileDoesNotOpen) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = OpenSource(path, 1000);
    const auto settings = MakeReadSettings(10);
    settings->SetStringValue("FilePath", path);
    ExpectSourceRefusal(kOpenedTwice, [&] { source->SetInitConfig(settings); });
    EXPECT_TRUE(source->IsMediaOpen());
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
}

TEST(LibsndfileSourceSettings, MustDeclareAFilePath) {
    const auto source = MakeSource();
    const auto other = CreateParametersCollectionInstance(CreateParametersCollectionPrototype());
    ExpectRefusal("[parameter \"FilePath\" is not declared (wanted: string)]", kParametersFile,
                  [&] { source->SetInitConfig(other); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceSettings, CannotBeMissing) {
    const auto source = MakeSource();
    ExpectSourceRefusal(kSourceNotConfigured, [&] { source->SetInitConfig(nullptr); });
    EXPECT_FALSE(source->IsMediaOpen());
}

// Release

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
    source->Open(Wide(path));
    const TimeLimits limits = source->GetTimeLimits("");
    EXPECT_EQ(limits.duration, 2 * bytes);
    EXPECT_EQ(limits.start.GetEditRate(), EditRate(8000, 1));
    EXPECT_EQ(source->GetAvailableOutputs().at(0)->GetNumberOfChannels(), 1U);
    EXPECT_EQ(OpenSource(path)->GetTimeLimits("").duration, 2500);
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

// Reading

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
    ExpectRefusal("[parameter \"MaxSamplesPerBuffer\" is not declared (wanted: integer)]",
                  kParametersFile, [&] { source->GetSample(); });
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

// Time limits and seeking

constexpr EditRate kRate{44100, 1};

const std::string kOtherRate =
    "[LibsndfileSource::GotoTimeOffset - must use same EditRate as the source TimeLimits]";

class Clock final : public IClockInfo {};

class LibsndfileSourceSeeking : public ::testing::Test {
protected:
    void ExpectRefused(const std::string& message, std::int64_t number, const EditRate& rate) {
        ExpectSourceRefusal(message, [&] { source->GotoTimeOffset(Frames(number, rate), ""); });
    }

    // The next sample starts at this frame.
    void ExpectReadsFrom(std::uint32_t frame) {
        EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, frame, 100));
    }

    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const std::shared_ptr<IAudioSource> source = OpenSource(path, 100);
};

TEST(LibsndfileSourceTimeLimits, AreTheFramesOfTheFile) {
    const TemporaryDirectory directory;
    const auto source = OpenSource(WriteWave(directory, {1, 44100, 441000}));
    ExpectRecords({}, [&] {
        const TimeLimits limits = source->GetTimeLimits("");
        EXPECT_EQ(limits.start.GetTimeNumber(), 0);
        EXPECT_EQ(limits.start.GetEditRate(), kRate);
        EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
        EXPECT_EQ(limits.duration, 441000);
        EXPECT_EQ(limits.attachment, nullptr);
    });
}

TEST_F(LibsndfileSourceSeeking, KeepsTheClock) {
    const auto clock = std::make_shared<Clock>();
    const MediaTime time(kRate, 2050, clock);
    const MediaTime reached = source->GotoTimeOffset(time, "");
    EXPECT_EQ(reached.GetTimeNumber(), 2050);
    EXPECT_EQ(reached.GetEditRate(), kRate);
    EXPECT_EQ(reached.GetClockInfo(), clock);
    EXPECT_EQ(time.GetTimeNumber(), 2050);
}

TEST_F(LibsndfileSourceSeeking, AcceptsTheSameRateInOtherNumbersAndKeepsThem) {
    for (const EditRate& rate :
         {EditRate(88200, 2), EditRate(4410000, 100), EditRate(44100U * 97391U, 97391)}) {
        const MediaTime reached = source->GotoTimeOffset(Frames(2000, rate), "");
        EXPECT_EQ(reached.GetTimeNumber(), 2000);
        EXPECT_EQ(reached.GetEditRate(), rate);
        ExpectReadsFrom(2000);
    }
}

TEST_F(LibsndfileSourceSeeking, AcceptsARateWithinTheTolerance) {
    // One divisor-th of a hertz more or less: just under, then just over 0.00006.
    constexpr std::uint32_t kNear = 16667;
    constexpr std::uint32_t kFar = 16666;
    for (const std::uint32_t offset : {0U, 2U}) {
        const EditRate near{44100 * kNear - 1 + offset, kNear};
        ExpectRecords({}, [&] {
            EXPECT_EQ(source->GotoTimeOffset(Frames(3, near), "").GetEditRate(), near);
        });
        ExpectRefused(kOtherRate, 3, {44100 * kFar - 1 + offset, kFar});
    }
}

TEST_F(LibsndfileSourceSeeking, ChecksTheRateBeforeTheNumber) {
    ExpectRefused(kOtherRate, -1, {48000, 1});
    ExpectRefused(kOtherRate, 2501, {48000, 1});
}

} // namespace
} // namespace kel::test
