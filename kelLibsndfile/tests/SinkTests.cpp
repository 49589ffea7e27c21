// The sink from its creation to its end, and the samples that it writes.

#include "FakeFiles.h"
#include "ForeignSamples.h"
#include "SinkTestSupport.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using Samples = std::vector<std::shared_ptr<const ISample>>;

class LibsndfileSink : public FakeFilesTest {};

// Lifecycle

TEST_F(LibsndfileSink, MayBeMadeWithoutAManifest) {
    ExpectRecords({}, [] { EXPECT_EQ(MakeSinkFrom(nullptr)->GetManifest(), nullptr); });
}

TEST_F(LibsndfileSink, ReturnsTheSameManifestThroughEachInterface) {
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
}

TEST_F(LibsndfileSink, DoesNotReportAFileThatLibsndfileCannotClose) {
    const std::vector<std::function<void(IAudioSink&)>> endings{
        [](IAudioSink& sink) { sink.Close(true); },
        [](IAudioSink& sink) { sink.Close(false); },
        [](IAudioSink& sink) { sink.Release(); },
    };
    SndfileAnswers().close = [](SNDFILE*) {
        return -1;
    };
    for (const auto& end : endings) {
        const auto sink = MakeWritingSink("take");
        ExpectCalls({"sf_close"}, [&] {
            ExpectRecords({}, [&] {
                end(*sink);
                end(*sink);
            });
        });
    }
}

// Samples

std::string TooMany(const std::string& count) {
    return "[More than one audio sample received! This is forbidden] [ value1 (" + count +
           ") is not == value2 (1) ]";
}

std::shared_ptr<IBuffer> MakeBuffer(const std::string& bytes) {
    auto buffer = CreateBuffer(nullptr, nullptr);
    buffer->Reserve(static_cast<std::uint32_t>(bytes.size()));
    bytes.copy(reinterpret_cast<char*>(buffer->GetData()), bytes.size());
    buffer->SetSize(static_cast<std::uint32_t>(bytes.size()));
    return buffer;
}

std::shared_ptr<const ISample> MakeSample(std::shared_ptr<const IBuffer> buffer) {
    return CreateAudioSample(nullptr, nullptr, std::move(buffer), TimeLimits(), {});
}

// A buffer of another library that declares bytes and has none.
class BufferWithoutData final : public IBuffer {
public:
    std::uint8_t* GetData() override { return nullptr; }
    const std::uint8_t* GetData() const override { return nullptr; }
    std::uint32_t GetSize() const override { return 4; }
    void SetSize(std::uint32_t /*bytes*/) override {}
    void Reserve(std::uint32_t /*bytes*/) override {}
};

class LibsndfileSinkPushSample : public FakeFilesTest {
protected:
    LibsndfileSinkPushSample() { SndfileCalls().clear(); }

    /// The list with one entry that it has when so many bytes of this buffer were written.
    std::vector<Writing> WritingOf(const IBuffer& buffer, sf_count_t bytes) {
        return {{File(0), buffer.GetData(), bytes}};
    }

    std::shared_ptr<IAudioSink> sink = MakeWritingSink("take");
};

TEST_F(LibsndfileSinkPushSample, WritesTheBufferInOneCallWithoutACopy) {
    for (const std::size_t size : {1U, 4U, 5U, 4096U, 1000003U}) {
        SCOPED_TRACE(size);
        const auto buffer = MakeBuffer(std::string(size, 'x'));
        writings.clear();
        SndfileCalls().clear();
        ExpectRecords(
            {}, [&] { sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr)); });
        EXPECT_EQ(writings, WritingOf(*buffer, static_cast<sf_count_t>(size)));
        EXPECT_EQ(SndfileCalls(), Calls{"sf_write_raw"});
    }
}

TEST_F(LibsndfileSinkPushSample, IgnoresSamplesThatAreNotAudio) {
    class OtherSample final : public ISample {};
    const auto buffer = MakeBuffer("abcd");
    const auto other = std::make_shared<OtherSample>();
    ExpectRecords({}, [&] {
        sink->PushSample(CreateSampleContainer(other, nullptr));
        sink->PushSample(CreateSampleContainer(Samples{other, MakeSample(buffer), other}, nullptr));
    });
    EXPECT_EQ(writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, RefusesMoreThanOneSampleAndWritesNoneOfThem) {
    for (const std::size_t count : {2U, 3U, 100U}) {
        const Samples samples(count, MakeSample(MakeBuffer("abcd")));
        const auto container = CreateSampleContainer(samples, nullptr);
        ExpectSinkRefusal(TooMany(std::to_string(count)), [&] { sink->PushSample(container); });
    }
    EXPECT_EQ(SndfileCalls(), Calls());
    // The next one is written.
    const auto buffer = MakeBuffer("efgh");
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, NeedsAContainer) {
    ExpectSinkRefusal("[LibsndfileSink got no sample container] [ Pointer is null ]",
                      [&] { sink->PushSample(nullptr); });
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSinkPushSample, RefusesAnEmptyHandleInTheContainerOfAnotherLibrary) {
    ExpectSinkRefusal("[LibsndfileSink got no audio sample] [ Pointer is null ]", [&] {
        sink->PushSample(std::make_shared<ForeignContainer>(AudioSamples{nullptr}));
    });
    // The number of samples is checked first.
    ExpectSinkRefusal(TooMany("2"), [&] {
        sink->PushSample(std::make_shared<ForeignContainer>(AudioSamples{nullptr, nullptr}));
    });
    EXPECT_EQ(SndfileCalls(), Calls());
}

TEST_F(LibsndfileSinkPushSample, RefusesASampleOfAnotherLibraryWithoutABuffer) {
    const auto container =
        std::make_shared<ForeignContainer>(AudioSamples{std::make_shared<ForeignSample>(nullptr)});
    ExpectSinkRefusal("[LibsndfileSink got an audio sample without a buffer] [ Pointer is null ]",
                      [&] { sink->PushSample(container); });
    EXPECT_EQ(SndfileCalls(), Calls());
    // The next one is written.
    const auto buffer = MakeBuffer("abcd");
    sink->PushSample(
        std::make_shared<ForeignContainer>(AudioSamples{std::make_shared<ForeignSample>(buffer)}));
    EXPECT_EQ(writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, LogsEveryCountThatIsNotTheSizeAsASignedNumber) {
    for (const sf_count_t written :
         std::vector<sf_count_t>{0, 7, 9, -1, std::numeric_limits<sf_count_t>::max(),
                                 std::numeric_limits<sf_count_t>::min()}) {
        SndfileAnswers().write_raw = [written](SNDFILE*, const void*, sf_count_t) {
            return written;
        };
        ExpectRecords({ShortWrite("8", std::to_string(written))},
                      [&] { sink->PushSample(MakeContainer("abcdefgh")); });
    }
}

TEST_F(LibsndfileSinkPushSample, PassesANullHandleToLibsndfileWithoutAFile) {
    const auto buffer = MakeBuffer("abcd");
    sink->Close(false);
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    MakeSink("WAVE")->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(writings, std::vector<Writing>(
                            {{nullptr, buffer->GetData(), 4}, {nullptr, buffer->GetData(), 4}}));
}

// Real files

// With libsndfile's own answers.
class LibsndfileSinkRealFile : public SndfileTest {
protected:
    std::string SampleBytes() const { return ReadFile(path).substr(80); }

    TemporaryDirectory directory;
    std::string path = directory / "take.wav";
};

TEST_F(LibsndfileSinkRealFile, RefusesAnUnsupportedLayoutAndLeavesTheFileOfThatName) {
    WriteFile(directory / "take.wav", "precious");
    const auto sink = MakeConfiguredSink("WAVE", directory / "take.wav");
    ExpectSinkRefusal(kInputRefused, [&] { sink->DefineInput(MakeInput(BigEndian()), ""); },
                      {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(SndfileCalls(), Calls{"sf_format_check"});
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    EXPECT_EQ(ReadFile(directory / "take.wav"), "precious");
}

TEST_F(LibsndfileSinkRealFile, FailsOnAFullDevice) {
    const auto sink = MakeConfiguredSink("WAVE", "/dev/full");
    ExpectSinkRefusal(UnableToOpen("/dev/full", "System error : No space left on device."),
                      [&] { sink->DefineInput(MakeInput({}), ""); }, {Info(kFromType + "WAVE")});
}

TEST_F(LibsndfileSinkRealFile, FailsAtRateZeroWhichTheCheckAccepts) {
    Layout layout;
    layout.rate = 0;
    const auto sink = MakeConfiguredSink("WAVE", path);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(), 0);
    ExpectSinkRefusal(UnableToOpen(path, "Internal error : SF_INFO struct incomplete."),
                      [&] { sink->DefineInput(MakeInput(layout), ""); },
                      {Info(kFromBoth + "WAVE")});
}

TEST_F(LibsndfileSinkRealFile, ReplacesAFileOfThatName) {
    WriteFile(path, std::string(1000, 'x'));
    const auto sink = MakeWritingSink(path);
    sink->Close(false);
    EXPECT_EQ(ReadFile(path).size(), 80U);
    EXPECT_EQ(ReadFile(path).substr(0, 4), "RIFF");
}

TEST_F(LibsndfileSinkRealFile, CreatesFilesWithNamesOfAnyBytes) {
    for (const std::string name : {"Gr\xC3\xBC\xC3\x9F"
                                   "e.wav",
                                   "\xFF\xC3.wav", "new\nline.wav"}) {
        const auto fromSettings = MakeWritingSink(directory / name);
        fromSettings->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);

        const auto fromOpen = MakeConfiguredSink("WAVE");
        fromOpen->Open(ConvertPlatformStringToWideString(directory / name));
        fromOpen->DefineInput(MakeInput({}), "");
        fromOpen->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);
    }
}

TEST_F(LibsndfileSinkRealFile, CreatesASecondFileWhileTheFirstStaysUnfinished) {
    std::vector<SNDFILE*> opened;
    SndfileAnswers().open = [&opened](const char* name, int mode, SF_INFO* passed) {
        opened.push_back(RealSndfile().open(name, mode, passed));
        return opened.back();
    };
    const auto sink = MakeWritingSink(directory / "first.wav");
    sink->PushSample(MakeContainer("abcd"));
    sink->SetInitConfig(MakeSettingsFor(directory / "second.wav"));
    sink->DefineInput(MakeInput({}), "");
    sink->PushSample(MakeContainer("efghijkl"));
    sink->Close(false);
    const auto& calls = SndfileCalls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sf_close"), 1);

    const std::string second = ReadFile(directory / "second.wav");
    EXPECT_EQ(second.substr(80), "efghijkl");
    const std::string unfinished = ReadFile(directory / "first.wav");
    EXPECT_EQ(unfinished.substr(76, 4), std::string(4, '\0'));
    ASSERT_EQ(opened.size(), 2U);
    EXPECT_EQ(RealSndfile().close(opened[0]), 0);
    const std::string first = ReadFile(directory / "first.wav");
    EXPECT_EQ(first.substr(76), std::string("\4\0\0\0abcd", 8));
}

TEST_F(LibsndfileSinkRealFile, LogsAWriteWithoutAFile) {
    const auto sink = MakeConfiguredSink("WAVE", path);
    const Lines expected{ShortWrite("4", "0")};
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->DefineInput(MakeInput({}), "");
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->Close(false);
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    EXPECT_EQ(SampleBytes(), "abcd");
}

TEST_F(LibsndfileSinkRealFile, LogsABufferOfAnotherLibraryThatHasNoData) {
    const auto sink = MakeWritingSink(path);
    const auto container = std::make_shared<ForeignContainer>(
        AudioSamples{std::make_shared<ForeignSample>(std::make_shared<BufferWithoutData>())});
    ExpectRecords({ShortWrite("4", "0")}, [&] { sink->PushSample(container); });
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), "");
}

TEST_F(LibsndfileSinkRealFile, WritesOnlyWholeFramesAndLogsTheRest) {
    const auto sink = MakeWritingSink(path);
    sink->PushSample(MakeContainer("abcd"));
    ExpectRecords({ShortWrite("5", "0")}, [&] { sink->PushSample(MakeContainer("efghi")); });
    sink->PushSample(MakeContainer("jklm"));
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), "abcdjklm");
}

// The size that files of this process may have, for as long as it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN); // so that the write fails, and not the process
        getrlimit(RLIMIT_FSIZE, &m_former);
        const rlimit limit{bytes, m_former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, SIG_DFL);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_former{};
};

TEST_F(LibsndfileSinkRealFile, KeepsThePartThatWasWrittenAndAppendsTheNextSample) {
    const auto sink = MakeWritingSink(path);
    std::string tooMuch(400, 'x');
    {
        const FileSizeLimit limit(80 + 100);
        ExpectRecords({ShortWrite("400", "100")},
                      [&] { sink->PushSample(MakeContainer(tooMuch)); });
        ExpectRecords({ShortWrite("4", "0")}, [&] { sink->PushSample(MakeContainer("lost")); });
    }
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), std::string(100, 'x') + "abcd");
}

} // namespace
} // namespace kel::test
