// Opening: what a source says of the file that it has opened, and how it fails.

#include "SourceTestSupport.h"

#include <cstdint>
#include <filesystem>
#include <locale>
#include <memory>
#include <sndfile.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// libsndfile's own text for a file that it does not open.
std::string ErrorTextFor(const std::string& path) {
    SF_INFO info{};
    if (sf_open(path.c_str(), SFM_READ, &info) != nullptr) {
        throw std::runtime_error("libsndfile opens " + path);
    }
    return sf_strerror(nullptr);
}

std::string UnableToOpen(const std::string& path) {
    return "[Unable to open file \"" + path + "\" with libsndfile. Error is:\"" +
           ErrorTextFor(path) + "\"]";
}

// Writes a silent file of a libsndfile format.
void WriteSilence(const std::string& path, int format, const Shape& shape) {
    SF_INFO info{};
    info.format = format;
    info.channels = static_cast<int>(shape.channels);
    info.samplerate = static_cast<int>(shape.rate);
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        throw std::runtime_error(sf_strerror(nullptr));
    }
    const std::vector<float> silence(std::size_t{shape.frames} * shape.channels);
    const sf_count_t written = sf_writef_float(file, silence.data(), shape.frames);
    sf_close(file);
    if (written != shape.frames) {
        throw std::runtime_error("cannot write " + path);
    }
}

// What a source announces of its one output.
std::shared_ptr<const IAudioInfo> AnnouncedBy(const IAudioSource& source) {
    return source.GetDefinedOutput("")->GetAudioInfos().at(0);
}

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
    WriteSilence(path, word, shape);
    SF_INFO info{};
    sf_close(sf_open(path.c_str(), SFM_READ, &info));

    const auto source = MakeConfiguredSource();
    ExpectRecords({OpenedLine(path, shape.channels, shape.frames, info.format), AllocatorLine()},
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); });
    EXPECT_TRUE(source->IsMediaOpen());
    ExpectAnnouncement(*source, shape, name);
}

TEST(LibsndfileSourceOpening, LogsWhatItFound) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeConfiguredSource();
    const LogCapture log;
    source->Open(ConvertPlatformStringToWideString(path));
    const auto records = log->Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].level, LogLevel::Info);
    EXPECT_EQ(records[0].message, "Successfully opened \"" + path +
                                      "\" -- nb channels: 2 nb samples (in each channel): 2500 "
                                      "format: 65538");
    EXPECT_EQ(records[0].file, kSourceFile);
    EXPECT_EQ(records[0].reserved, "");
    EXPECT_GT(std::stoi(records[0].line), 0);
    EXPECT_EQ(records[0].threadId, GetThreadId());
    EXPECT_EQ(records[0].context, GetCurrentContextString());
}

TEST(LibsndfileSourceOpening, TakesTheSameFileWhateverTheRegisteredFormat) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    for (const std::string type : {"AIFF", "WAVE", "BWAVE"}) {
        SCOPED_TRACE(type);
        const auto source = MakeSource(type);
        source->SetInitConfig(MakeSourceSettings());
        source->Open(ConvertPlatformStringToWideString(path));
        ExpectAnnouncement(*source, {}, "audio.wav");
    }
}

TEST(LibsndfileSourceOpening, TakesAFileWithoutFrames) {
    const TemporaryDirectory directory;
    const Shape shape{1, 44100, 0};
    const std::string path = WriteWave(directory, shape);
    const auto source = MakeConfiguredSource();
    ExpectRecords({OpenedLine(path, 1, 0, kWaveFormat), AllocatorLine()},
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); });
    ExpectAnnouncement(*source, shape, "audio.wav");
}

TEST(LibsndfileSourceOpening, NamesTheTrackGroupAfterTheFileWithoutItsDirectories) {
    const TemporaryDirectory directory;
    std::filesystem::create_directories(directory.Path() / "one.wav" / "two");
    const std::string path = WriteWave(directory, {}, "one.wav/two/three.wav");
    ExpectAnnouncement(*OpenSource(path), {}, "three.wav");
}

TEST(LibsndfileSourceOpening, NamesTheTrackGroupAfterAPathThatIsAFileName) {
    const TemporaryDirectory directory;
    WriteWave(directory, {}, "here.wav");
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path());
    const auto source = MakeConfiguredSource();
    ExpectRecords({OpenedLine("here.wav", 2, 2500, kWaveFormat), AllocatorLine()},
                  [&] { source->Open(L"here.wav"); });
    ExpectAnnouncement(*source, {}, "here.wav");
    std::filesystem::current_path(former);
}

TEST(LibsndfileSourceOpening, DescribesEachFileAnew) {
    const TemporaryDirectory directory;
    const Shape other{1, 8000, 10};
    const std::string path = WriteWave(directory);
    const std::string otherPath = WriteWave(directory, other, "other.wav");
    const auto source = OpenSource(path);
    const auto former = AnnouncedBy(*source);
    source->Release();
    source->Open(ConvertPlatformStringToWideString(otherPath));
    ExpectAnnouncement(*source, other, "other.wav");
    EXPECT_NE(AnnouncedBy(*source), former);
    EXPECT_EQ(former->GetChannelInfo()->GetNumberOfChannels(), 2U);
}

TEST(LibsndfileSourceOpening, RefusesASecondFileAndKeepsTheFirst) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const std::string otherPath = WriteWave(directory, {1, 8000, 10}, "other.wav");
    const auto source = OpenSource(path);
    const auto info = AnnouncedBy(*source);
    for (const std::string& second : {path, otherPath, directory / "missing.wav", std::string()}) {
        SCOPED_TRACE(second);
        ExpectRefusal(kOpenedTwice,
                      [&] { source->Open(ConvertPlatformStringToWideString(second)); });
        EXPECT_TRUE(source->IsMediaOpen());
        EXPECT_EQ(AnnouncedBy(*source), info);
    }
    EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
}

TEST(LibsndfileSourceOpening, FailsWithTheTextOfLibsndfile) {
    const TemporaryDirectory directory;
    WriteFile(directory / "empty.wav", "");
    WriteFile(directory / "text.wav", "This is no audio file.");
    WriteFile(directory / "cut.wav", WaveBytes({}).substr(0, 36));
    for (const std::string& path :
         {directory / "missing.wav", directory / "empty.wav", directory / "text.wav",
          directory / "cut.wav", directory / ""}) {
        SCOPED_TRACE(path);
        const std::string message = UnableToOpen(path);
        const auto source = MakeConfiguredSource();
        ExpectRefusal(message, [&] { source->Open(ConvertPlatformStringToWideString(path)); });
        EXPECT_FALSE(source->IsMediaOpen());
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetSample(), nullptr);
    }
}

TEST(LibsndfileSourceOpening, SaysThatAFileIsMissing) {
    const TemporaryDirectory directory;
    const std::string path = directory / "missing.wav";
    const auto source = MakeConfiguredSource();
    ExpectRefusal("[Unable to open file \"" + path +
                      "\" with libsndfile. Error is:\"System error : No such file or "
                      "directory.\"]",
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); });
}

TEST(LibsndfileSourceOpening, FailsForAnEmptyPath) {
    const std::string message = UnableToOpen("");
    const auto source = MakeConfiguredSource();
    ExpectRefusal(message, [&] { source->Open(L""); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceOpening, FailsForAPathWithoutANarrowForm) {
    const TemporaryDirectory directory;
    const std::wstring path =
        ConvertPlatformStringToWideString(WriteWave(directory)) + std::wstring(1, L'\0') + L".wav";
    const auto source = MakeConfiguredSource();
    ExpectRefusal(
        "[the wide text has no narrow form: character 0 at position " +
            std::to_string(path.size() - 5) + "]",
        [&] { source->Open(path); }, {}, "kelCore/PlatformString.cpp");
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceOpening, FailsOutOfTheSettingsWithTheSameText) {
    const TemporaryDirectory directory;
    const std::string path = directory / "missing.wav";
    const std::string message = UnableToOpen(path);
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("FilePath", path);
    const auto source = MakeSource();
    ExpectRefusal(message, [&] { source->SetInitConfig(settings); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceOpening, SucceedsAfterAFailure) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeConfiguredSource();
    EXPECT_THROW(source->Open(ConvertPlatformStringToWideString(directory / "missing.wav")),
                 KELRuntimeError);
    source->Open(ConvertPlatformStringToWideString(path));
    ExpectAnnouncement(*source, {}, "audio.wav");
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
}

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
    ExpectRefusal("[could not find allocator nowhere] [ Pointer is null ]",
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); },
                  {OpenedLine(path, 2, 2500, kWaveFormat)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceAllocatorName, FailsAfterTheFileHasBeenOpened) {
    const TemporaryDirectory directory;
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("AllocatorRef", "nowhere");
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    const std::string missing = directory / "missing.wav";
    const std::string message = UnableToOpen(missing);
    ExpectRefusal(message, [&] { source->Open(ConvertPlatformStringToWideString(missing)); });
    EXPECT_FALSE(source->IsMediaOpen());
}

TEST(LibsndfileSourceAllocatorName, LeavesAnOpenFileWithoutOutputsWhenItIsUnknown) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("FilePath", path);
    settings->SetStringValue("AllocatorRef", "nowhere");
    const auto source = MakeSource();
    EXPECT_THROW(source->SetInitConfig(settings), KELRuntimeError);

    ExpectRefusal(kOpenedTwice, [&] { source->Open(ConvertPlatformStringToWideString(path)); });
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
    EXPECT_THROW(source->Open(ConvertPlatformStringToWideString(path)), KELRuntimeError);
    source->Release();
    settings->SetStringValue("AllocatorRef", "");
    source->Open(ConvertPlatformStringToWideString(path));
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
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); });
    EXPECT_EQ(named.use_count(), held);
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
    EXPECT_EQ(named->allocations, 0);
}

TEST(LibsndfileSourceWithoutSettings, OpensTheFileButFails) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    ExpectRefusal(kNotConfigured, [&] { source->Open(ConvertPlatformStringToWideString(path)); },
                  {OpenedLine(path, 2, 2500, kWaveFormat)});
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceWithoutSettings, AnswersEmptyAndDeliversNothing) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    EXPECT_THROW(source->Open(ConvertPlatformStringToWideString(path)), KELRuntimeError);
    ExpectRecords({}, [&] {
        EXPECT_EQ(source->GetDefinedOutput(""), nullptr);
        EXPECT_EQ(source->GetAvailableOutputs().size(), 0U);
        EXPECT_EQ(source->GetActivatedOutputs().size(), 0U);
        EXPECT_EQ(source->GetTimeLimits("").duration, 2500);
    });
    ExpectRefusal(kNotConfigured, [&] { source->GetSample(); });
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST(LibsndfileSourceWithoutSettings, OpensAFileAfterItsReleaseAndItsSettings) {
    const TemporaryDirectory directory;
    const std::string path = WriteWave(directory);
    const auto source = MakeSource();
    EXPECT_THROW(source->Open(ConvertPlatformStringToWideString(path)), KELRuntimeError);
    source->Release();
    source->SetInitConfig(MakeSourceSettings());
    source->Open(ConvertPlatformStringToWideString(path));
    EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));
}

} // namespace
} // namespace kel::test
