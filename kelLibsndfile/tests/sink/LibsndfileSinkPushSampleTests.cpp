// How a sink writes what is pushed.

#include "FakeFiles.h"
#include "FrameworkDoubles.h"

#include <TemporaryDirectory.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace kel::test {
namespace {

using Samples = std::vector<std::shared_ptr<const ISample>>;

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

class LibsndfileSinkPushSample : public FakeFilesTest {
protected:
    LibsndfileSinkPushSample() { SndfileCalls().clear(); }

    /// The list with one entry that it has when so many bytes of this buffer were written.
    std::vector<FakeFiles::Writing> WritingOf(const IBuffer& buffer, sf_count_t bytes) {
        return {{files.File(0), buffer.GetData(), bytes}};
    }

    std::shared_ptr<IAudioSink> sink = MakeWritingSink("take");
};

TEST_F(LibsndfileSinkPushSample, WritesTheBytesOfTheBufferWhereTheyLieInOneCall) {
    for (const std::size_t size : {1U, 4U, 5U, 4096U, 1000003U}) {
        SCOPED_TRACE(size);
        const auto buffer = MakeBuffer(std::string(size, 'x'));
        files.writings.clear();
        SndfileCalls().clear();
        ExpectRecords(
            {}, [&] { sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr)); });
        EXPECT_EQ(files.writings, WritingOf(*buffer, static_cast<sf_count_t>(size)));
        EXPECT_EQ(SndfileCalls(), Times(1, "sf_write_raw"));
    }
}

TEST_F(LibsndfileSinkPushSample, WritesTheValidBytesOnlyAndNotWhatIsReserved) {
    const auto buffer = MakeBuffer(std::string(100, 'x'));
    buffer->SetSize(40);
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(files.writings, WritingOf(*buffer, 40));
}

TEST_F(LibsndfileSinkPushSample, KeepsNoHandleToTheSample) {
    const auto buffer = MakeBuffer("abcd");
    const auto sample = MakeSample(buffer);
    const auto container = CreateSampleContainer(sample, nullptr);
    const auto usersOfContainer = container.use_count();
    const auto usersOfSample = sample.use_count();
    const auto usersOfBuffer = buffer.use_count();
    sink->PushSample(container);
    EXPECT_EQ(files.writings, WritingOf(*buffer, 4));
    EXPECT_EQ(container.use_count(), usersOfContainer);
    EXPECT_EQ(sample.use_count(), usersOfSample);
    EXPECT_EQ(buffer.use_count(), usersOfBuffer);
}

TEST_F(LibsndfileSinkPushSample, DoesNotCompareTheBytesWithTheInput) {
    // Three bytes are no frame of two channels of 16 bits.
    const auto buffer = MakeBuffer("abc");
    ExpectRecords({},
                  [&] { sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr)); });
    EXPECT_EQ(files.writings, WritingOf(*buffer, 3));
}

TEST_F(LibsndfileSinkPushSample, IgnoresAnEmptyContainer) {
    const auto empty = CreateSampleContainer(Samples{}, nullptr);
    ExpectRecords({}, [&] { sink->PushSample(empty); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkPushSample, IgnoresAnEmptyContainerAlsoWithoutAFile) {
    const auto fresh = MakeSink("WAVE");
    const auto empty = CreateSampleContainer(Samples{}, nullptr);
    ExpectRecords({}, [&] { fresh->PushSample(empty); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkPushSample, IgnoresSamplesThatAreNotAudio) {
    class OtherSample final : public ISample {};
    const auto buffer = MakeBuffer("abcd");
    const auto other = std::make_shared<OtherSample>();
    ExpectRecords({}, [&] {
        sink->PushSample(CreateSampleContainer(other, nullptr));
        sink->PushSample(CreateSampleContainer(Samples{other, MakeSample(buffer), other}, nullptr));
    });
    EXPECT_EQ(files.writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, RefusesMoreThanOneSampleAndWritesNoneOfThem) {
    for (const std::size_t count : {2U, 3U, 100U}) {
        const Samples samples(count, MakeSample(MakeBuffer("abcd")));
        const auto container = CreateSampleContainer(samples, nullptr);
        ExpectRefusal(TooMany(std::to_string(count)), [&] { sink->PushSample(container); });
    }
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
    // The next one is written.
    const auto buffer = MakeBuffer("efgh");
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(files.writings, WritingOf(*buffer, 4));
}

TEST_F(LibsndfileSinkPushSample, RefusesTwoSamplesAlsoWithoutAFile) {
    const auto fresh = MakeSink("WAVE");
    const Samples samples(2, MakeSample(MakeBuffer("abcd")));
    const auto container = CreateSampleContainer(samples, nullptr);
    ExpectRefusal(TooMany("2"), [&] { fresh->PushSample(container); });
}

TEST_F(LibsndfileSinkPushSample, RefusesTwoSamplesBeforeItLooksIntoThem) {
    Script script;
    const auto sample = std::make_shared<SampleDouble>(script, MakeBuffer("abcd"));
    const auto container = std::make_shared<SampleContainerDouble>(
        script, std::vector<std::shared_ptr<const IAudioSample>>{sample, sample});
    ExpectRefusal(TooMany("2"), [&] { sink->PushSample(container); });
    EXPECT_EQ(script.calls, Times(1, "GetAudioSamples"));
}

TEST_F(LibsndfileSinkPushSample, NeedsAContainer) {
    ExpectRefusal("[LibsndfileSink got no sample container] [ Pointer is null ]",
                  [&] { sink->PushSample(nullptr); });
    EXPECT_EQ(SndfileCalls(), Times(0, ""));
}

TEST_F(LibsndfileSinkPushSample, AsksForAllAudioSamplesOnce) {
    Script script;
    const auto container = std::make_shared<SampleContainerDouble>(
        script, std::vector<std::shared_ptr<const IAudioSample>>());
    sink->PushSample(container);
    EXPECT_EQ(script.calls, Times(1, "GetAudioSamples"));
}

TEST_F(LibsndfileSinkPushSample, PassesOnEveryFailureOfTheFrameworkUnchanged) {
    Script script;
    const auto sample =
        std::make_shared<SampleDouble>(script, std::make_shared<BufferDouble>(script, 4));
    const auto container = std::make_shared<SampleContainerDouble>(
        script, std::vector<std::shared_ptr<const IAudioSample>>{sample});
    for (std::size_t failing = 1; failing <= 4; ++failing) {
        script.calls.clear();
        script.failing = failing;
        const LogCapture log;
        EXPECT_THROW(sink->PushSample(container), std::domain_error);
        EXPECT_EQ(script.calls.size(), failing);
        EXPECT_EQ(LinesOf(log), Lines());
    }
    EXPECT_EQ(files.writings.size(), 0U);
    script.failing = 0;
    script.calls.clear();
    sink->PushSample(container);
    EXPECT_EQ(script.calls.size(), 4U);
    EXPECT_EQ(files.writings.size(), 1U);
}

TEST_F(LibsndfileSinkPushSample, LogsAShortWriteAndGoesOnWithTheNextSample) {
    StandIn().write_raw = [this](SNDFILE* file, const void* data, sf_count_t bytes) {
        files.writings.push_back({file, data, bytes});
        return files.writings.size() == 1 ? 3 : bytes;
    };
    const auto first = MakeBuffer("abcdefgh");
    const auto second = MakeBuffer("ijkl");
    ExpectRecords({ShortWrite("8", "3")}, [&] {
        sink->PushSample(CreateSampleContainer(MakeSample(first), nullptr));
        sink->PushSample(CreateSampleContainer(MakeSample(second), nullptr));
    });
    EXPECT_EQ(files.writings, std::vector<FakeFiles::Writing>({
                                  {files.File(0), first->GetData(), 8},
                                  {files.File(0), second->GetData(), 4},
                              }));
    // Neither a second try nor a question for the reason.
    EXPECT_EQ(SndfileCalls(), Times(2, "sf_write_raw"));
}

TEST_F(LibsndfileSinkPushSample, LogsEveryCountThatIsNotTheSizeAsASignedNumber) {
    for (const sf_count_t written :
         std::vector<sf_count_t>{0, 7, 9, -1, std::numeric_limits<sf_count_t>::max(),
                                 std::numeric_limits<sf_count_t>::min()}) {
        StandIn().write_raw = [written](SNDFILE*, const void*, sf_count_t) {
            return written;
        };
        ExpectRecords({ShortWrite("8", std::to_string(written))},
                      [&] { sink->PushSample(MakeContainer("abcdefgh")); });
    }
}

TEST_F(LibsndfileSinkPushSample, TakesTheSizeForAnUnsignedNumber) {
    Script script;
    for (const std::uint32_t size : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        const auto sample =
            std::make_shared<SampleDouble>(script, std::make_shared<BufferDouble>(script, size));
        const auto container = std::make_shared<SampleContainerDouble>(
            script, std::vector<std::shared_ptr<const IAudioSample>>{sample});
        files.writings.clear();
        ExpectRecords({}, [&] { sink->PushSample(container); });
        ASSERT_EQ(files.writings.size(), 1U);
        EXPECT_EQ(files.writings[0].bytes, static_cast<sf_count_t>(size));

        const auto whole = StandIn().write_raw;
        StandIn().write_raw = [size](SNDFILE*, const void*, sf_count_t) {
            // What the size would be if it were taken for a signed number of 32 bits.
            return static_cast<sf_count_t>(size) - 0x100000000;
        };
        ExpectRecords({ShortWrite(std::to_string(size),
                                  std::to_string(static_cast<std::int64_t>(size) - 0x100000000))},
                      [&] { sink->PushSample(container); });
        StandIn().write_raw = whole;
    }
}

TEST_F(LibsndfileSinkPushSample, HandsOnAnEmptyBufferWithoutARecord) {
    const auto buffer = MakeBuffer("");
    ExpectRecords({},
                  [&] { sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr)); });
    ASSERT_EQ(files.writings.size(), 1U);
    EXPECT_EQ(files.writings[0].bytes, 0);
}

TEST_F(LibsndfileSinkPushSample, HandsLibsndfileItsNullHandleWithoutAFile) {
    const auto buffer = MakeBuffer("abcd");
    sink->Close(false);
    sink->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    MakeSink("WAVE")->PushSample(CreateSampleContainer(MakeSample(buffer), nullptr));
    EXPECT_EQ(files.writings, std::vector<FakeFiles::Writing>({{nullptr, buffer->GetData(), 4},
                                                               {nullptr, buffer->GetData(), 4}}));
}

// With libsndfile's own answers.
class LibsndfileSinkRealWrite : public StandInTest {
protected:
    std::string SampleBytes() const { return ReadFile(path).substr(80); }

    TemporaryDirectory directory;
    std::string path = directory / "take.wav";
};

TEST_F(LibsndfileSinkRealWrite, IsLoggedWithoutAFile) {
    const auto sink = MakeConfiguredSink("WAVE", path);
    const Lines expected{ShortWrite("4", "0")};
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->DefineInput(MakeInput({}), "");
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("abcd")); });
    sink->Close(false);
    ExpectRecords(expected, [&] { sink->PushSample(MakeContainer("abcd")); });
    EXPECT_EQ(SampleBytes(), "abcd");
}

TEST_F(LibsndfileSinkRealWrite, IsSilentForAnEmptyBufferWithAndWithoutAFile) {
    const auto sink = MakeConfiguredSink("WAVE", path);
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("")); });
    sink->DefineInput(MakeInput({}), "");
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("")); });
    sink->PushSample(MakeContainer("abcd"));
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("")); });
    sink->Close(false);
    ExpectRecords({}, [&] { sink->PushSample(MakeContainer("")); });
    EXPECT_EQ(SampleBytes(), "abcd");
}

TEST_F(LibsndfileSinkRealWrite, AppendsTheBytesOfEachSample) {
    const auto sink = MakeWritingSink(path);
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        const std::string bytes(static_cast<std::size_t>(4 * i), static_cast<char>(i));
        const std::size_t before = ReadFile(path).size();
        sink->PushSample(MakeContainer(bytes));
        EXPECT_EQ(ReadFile(path).size(), before + bytes.size());
        expected += bytes;
    }
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), expected);
}

TEST_F(LibsndfileSinkRealWrite, LeavesTheFileAsItIsWhereTwoSamplesArePushed) {
    const auto sink = MakeWritingSink(path);
    sink->PushSample(MakeContainer("abcd"));
    const std::string before = ReadFile(path);
    const Samples samples(2, MakeSample(MakeBuffer("efgh")));
    ExpectRefusal(TooMany("2"), [&] { sink->PushSample(CreateSampleContainer(samples, nullptr)); });
    EXPECT_EQ(ReadFile(path), before);
    sink->PushSample(MakeContainer("ijkl"));
    sink->Close(false);
    EXPECT_EQ(SampleBytes(), "abcdijkl");
}

TEST_F(LibsndfileSinkRealWrite, LeavesOutWhatIsNoWholeFrameWithARecord) {
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

TEST_F(LibsndfileSinkRealWrite, KeepsThePartThatWasWrittenAndAppendsTheNextSample) {
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
