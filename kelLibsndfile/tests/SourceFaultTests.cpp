// The source and a libsndfile that answers what files cannot: its calls, its failures and its
// extreme numbers.

#include "FakeFiles.h"
#include "SourceTestSupport.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

constexpr EditRate kRate{44100, 1};

const std::string kOtherRate =
    "[LibsndfileSource::GotoTimeOffset - must use same EditRate as the source TimeLimits]";

class LibsndfileSourceFaults : public FakeFilesTest {
protected:
    /// A source that has settings, and no file yet.
    std::shared_ptr<IAudioSource> MakeFakeSource() {
        auto source = MakeSource();
        source->SetInitConfig(settings);
        return source;
    }

    /// A source with a file.
    std::shared_ptr<IAudioSource> OpenFakeSource() {
        auto source = MakeFakeSource();
        source->Open(kPath);
        return source;
    }

    Line Opened() const {
        return OpenedLine(kName, fileInfo.channels, fileInfo.frames, fileInfo.format);
    }

    /// Lets each read end after so many frames.
    void Deliver(sf_count_t frames) {
        SndfileAnswers().readf_float = [frames](SNDFILE*, float*, sf_count_t) {
            return frames;
        };
    }

    /// Lets each read end with an error.
    static void Break(const char* text) {
        SndfileAnswers().error = [](SNDFILE*) {
            return 2;
        };
        SndfileAnswers().strerror = [text](SNDFILE*) {
            return text;
        };
    }

    /// Lets sf_seek return this number for each frame.
    void Reach(sf_count_t frame) {
        SndfileAnswers().seek = [this, frame](SNDFILE* file, sf_count_t frames, int whence) {
            seeks.emplace_back(file, frames, whence);
            return frame;
        };
    }

    static void ExpectSeekRefused(IAudioSource& source, const std::string& message,
                                  std::int64_t frame, const EditRate& rate) {
        ExpectSourceRefusal(message, [&] { source.GotoTimeOffset(Frames(frame, rate), ""); });
    }

    using Seek = std::tuple<SNDFILE*, sf_count_t, int>;

    const std::wstring kPath = L"/directory/file.wav";
    const std::string kName = "/directory/file.wav";
    const std::shared_ptr<IParametersCollectionInstance> settings = MakeReadSettings(1024);
    std::vector<Seek> seeks;
};

// Opening and closing

TEST_F(LibsndfileSourceFaults, OpensAFileForReadingWithAnEmptyDescription) {
    const auto source = MakeFakeSource();
    ExpectCalls({"sf_open"}, [&] {
        ExpectRecords({Opened(), AllocatorLine()}, [&] { source->Open(kPath); });
    });
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].path, kName);
    EXPECT_EQ(openings[0].mode, SFM_READ);
    EXPECT_EQ(openings[0].info, SfInfoFields(0, 0, 0, 0, 0, 0));
}

TEST_F(LibsndfileSourceFaults, HandsTheDescriptionOfTheLastFileToTheNextOpen) {
    const auto source = OpenFakeSource();
    const SfInfoFields last = FieldsOf(fileInfo);
    source->Release();
    fileInfo = {7, 8000, 1, 65539, 2, 0};
    source->Open(kPath);
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[1].info, last);
    EXPECT_EQ(source->GetTimeLimits("").duration, 7);
}

TEST_F(LibsndfileSourceFaults, HandsWhatAFailedOpenWroteToTheNextOpen) {
    const auto source = MakeFakeSource();
    SndfileAnswers().open = [this](const char* path, int mode, SF_INFO* passed) -> SNDFILE* {
        openings.push_back({path, mode, FieldsOf(*passed)});
        *passed = fileInfo;
        return nullptr;
    };
    EXPECT_THROW(source->Open(kPath), KELRuntimeError);
    EXPECT_THROW(source->Open(kPath), KELRuntimeError);
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[1].info, FieldsOf(fileInfo));
}

TEST_F(LibsndfileSourceFaults, SetsTheParametersInThisOrder) {
    const auto source = MakeFakeSource();
    source->Open(kPath);
    EXPECT_EQ(ParameterCalls(),
              Calls({"CreateAudioParameters 2", "SetMuxing 2", "SetSampleRate 44100",
                     "SetBitsDepth 32", "SetEndianness 1", "SetPCMType 2", "SetSampleSize 4"}));
}

TEST_F(LibsndfileSourceFaults, KeepsTheNewParametersWhereTheRestOfTheDescriptionFails) {
    const auto source = OpenFakeSource();
    const auto former = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    source->Release();
    fileInfo.samplerate = 8000;
    FailingParameterCall() = "SetSampleSize";
    EXPECT_THROW(source->Open(kPath), std::domain_error);
    const auto sample = OnlySample(source->GetSample());
    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(sample->GetAudioParameters());
    EXPECT_EQ(parameters->GetSampleRate(), 8000U);
    EXPECT_EQ(sample->GetAudioInfo(), former);
}

TEST_F(LibsndfileSourceFaults, IsNotOpenYetWhenItLogsTheOpening) {
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

TEST_F(LibsndfileSourceFaults, WritesLargeNumbersInFull) {
    const auto source = MakeFakeSource();
    fileInfo = {INT64_MAX, INT_MAX, 1024, INT_MIN, 1, 1};
    ExpectRecords({OpenedLine(kName, 1024, INT64_MAX, INT_MIN), AllocatorLine()},
                  [&] { source->Open(kPath); });
    EXPECT_EQ(source->GetTimeLimits("").duration, INT64_MAX);
    EXPECT_EQ(source->GetTimeLimits("").start.GetEditRate(), EditRate(INT_MAX, 1));
}

TEST_F(LibsndfileSourceFaults, RefusesAFileWithoutChannelsAndLeavesItsHandle) {
    for (const int channels : {0, -1, INT_MIN}) {
        SCOPED_TRACE(channels);
        auto source = MakeFakeSource();
        fileInfo.channels = channels;
        const std::string message =
            "[The following file \"" + kName + "\" has " + std::to_string(channels) + " channels.]";
        ExpectCalls({"sf_open"},
                    [&] { ExpectSourceRefusal(message, [&] { source->Open(kPath); }); });
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

TEST_F(LibsndfileSourceFaults, QuotesTheGlobalTextOfLibsndfileWhereAFileDoesNotOpen) {
    const auto source = MakeFakeSource();
    const std::vector<std::pair<const char*, std::string>> texts{
        {"100%s\nof \"it\"", "100%s\nof \"it\""}, {nullptr, ""}};
    for (const auto& [text, quoted] : texts) {
        RefuseToOpen(text);
        const std::string message =
            "[Unable to open file \"" + kName + "\" with libsndfile. Error is:\"" + quoted + "\"]";
        ExpectCalls({"sf_open", "sf_strerror"},
                    [&] { ExpectSourceRefusal(message, [&] { source->Open(kPath); }); });
        EXPECT_FALSE(source->IsMediaOpen());
    }
}

TEST_F(LibsndfileSourceFaults, ClosesEachFileOnceByReleaseOrByItsDestructor) {
    auto source = OpenFakeSource();
    ExpectCalls({"sf_close"}, [&] {
        source->Release();
        source->Release();
    });
    source->Open(kPath);
    ExpectCalls({"sf_close"}, [&] { ExpectRecords({}, [&] { source.reset(); }); });
    EXPECT_EQ(closings, (std::vector<SNDFILE*>{File(0), File(1)}));
}

TEST_F(LibsndfileSourceFaults, GivesItsFileUpWhateverTheCloseReturns) {
    const auto source = OpenFakeSource();
    SndfileAnswers().close = [](SNDFILE* /*file*/) {
        return -1;
    };
    ExpectCalls({"sf_close"}, [&] { ExpectRecords({}, [&] { source->Release(); }); });
    EXPECT_FALSE(source->IsMediaOpen());
    ExpectCalls({}, [&] { source->Release(); });
}

// Reading

TEST_F(LibsndfileSourceFaults, ReportsAnErrorAndDeliversWhatWasRead) {
    const auto source = OpenFakeSource();
    Deliver(10);
    Break("System error : Input/output error.");
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 1024 frames but could only read 10 -- libsndfile error "
                    "is System error : Input/output error.",
                    kSourceFile}},
                  [&] {
                      ExpectCalls({"sf_readf_float", "sf_error", "sf_strerror"}, [&] {
                          EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
                      });
                  });
    SndfileAnswers().error = [](SNDFILE*) {
        return 0;
    };
    ExpectRecords({}, [&] { EXPECT_EQ(StampOf(source->GetSample()), (Stamp{10, 10, 80})); });
}

TEST_F(LibsndfileSourceFaults, AsksTheFileForItsErrorAndItsText) {
    const auto source = OpenFakeSource();
    std::vector<SNDFILE*> asked;
    SndfileAnswers().error = [&](SNDFILE* file) {
        asked.push_back(file);
        return -1;
    };
    SndfileAnswers().strerror = [&](SNDFILE* file) {
        asked.push_back(file);
        return "100%s\nof it";
    };
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 1024 frames but could only read 1024 -- libsndfile "
                    "error is 100%s\nof it",
                    kSourceFile}},
                  [&] { source->GetSample(); });
    EXPECT_EQ(asked, (std::vector<SNDFILE*>{File(), File()}));
}

TEST_F(LibsndfileSourceFaults, ReportsTheNumberOfFramesThatTheSettingsAskFor) {
    const auto source = OpenFakeSource();
    settings->SetIntegerValue("MaxSamplesPerBuffer", -536870902); // reserves 10 frames
    Deliver(7);
    Break("text");
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 3758096394 frames but could only read 7 -- libsndfile "
                    "error is text",
                    kSourceFile}},
                  [&] {
                      EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 7, 56}));
                  });
}

TEST_F(LibsndfileSourceFaults, CountsFramesBeyond32BitsInItsStamps) {
    const auto source = OpenFakeSource();
    const sf_count_t many = sf_count_t{1} << 40;
    Deliver(many);
    EXPECT_EQ(StampOf(source->GetSample()).start, 0);
    Deliver(1);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{many, 1, 8}));
}

TEST_F(LibsndfileSourceFaults, KeepsItsStampWhereASampleCannotBeMade) {
    const auto source = OpenFakeSource();
    SndfileAnswers().error = [](SNDFILE*) -> int {
        throw std::domain_error("sf_error");
    };
    EXPECT_THROW(source->GetSample(), std::domain_error);
    SndfileAnswers().error = [](SNDFILE*) {
        return 0;
    };
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

/// A number of frames that the settings ask for, and the number that the source reads.
struct Bound {
    int channels;
    std::int32_t maxFrames;
    sf_count_t frames;
};

void PrintTo(const Bound& bound, std::ostream* stream) {
    *stream << bound.maxFrames << " frames of " << bound.channels << " channels";
}

class LibsndfileSourceReadBounds : public LibsndfileSourceFaults,
                                   public testing::WithParamInterface<Bound> {};

INSTANTIATE_TEST_SUITE_P(Sizes, LibsndfileSourceReadBounds,
                         testing::Values( // everything fits
                             Bound{1, 1024, 1024}, Bound{1024, 1, 1}, Bound{2, 0, 0},
                             // the size of the reservation wraps
                             Bound{2, 536870912, 0}, Bound{2, 536870913, 1},
                             Bound{2, 536870922, 10}, Bound{3, 357913942, 0},
                             Bound{3, 357913943, 1}, Bound{1024, 1048579, 3},
                             // negative numbers are large ones
                             Bound{2, -536870902, 10}, Bound{1, -1073741823, 1},
                             Bound{2, INT32_MIN, 0},
                             // the bytes of a frame wrap
                             Bound{1 << 30, 1024, 0}));

TEST_P(LibsndfileSourceReadBounds, AreKept) {
    const Bound& bound = GetParam();
    fileInfo.channels = bound.channels;
    settings->SetIntegerValue("MaxSamplesPerBuffer", bound.maxFrames);
    OpenFakeSource()->GetSample();
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(reads[0].file, File());
    EXPECT_EQ(reads[0].frames, bound.frames);
}

// Time limits and seeking

TEST_F(LibsndfileSourceFaults, PassesANegativeNumberOfFramesOnInItsTimeLimits) {
    fileInfo.frames = -1;
    EXPECT_EQ(OpenFakeSource()->GetTimeLimits("").duration, -1);
}

TEST_F(LibsndfileSourceFaults, SeeksOnceFromTheStartOfTheFile) {
    const auto source = OpenFakeSource();
    Reach(77);
    ExpectCalls({"sf_seek"}, [&] { source->GotoTimeOffset(Frames(77, kRate), ""); });
    EXPECT_EQ(seeks, (std::vector<Seek>{{File(), 77, SEEK_SET}}));
}

TEST_F(LibsndfileSourceFaults, ReturnsTheFrameThatLibsndfileReached) {
    const auto source = OpenFakeSource();
    for (const sf_count_t reached : {0, 99, 101, 1000}) {
        Reach(reached);
        const MediaTime time(EditRate(88200, 2), 100, nullptr);
        ExpectRecords({}, [&] {
            const MediaTime result = source->GotoTimeOffset(time, "");
            EXPECT_EQ(result.GetTimeNumber(), reached);
            EXPECT_EQ(result.GetEditRate(), EditRate(88200, 2));
        });
    }
}

TEST_F(LibsndfileSourceFaults, FailsWhereTheSeekFails) {
    const auto source = OpenFakeSource();
    for (const sf_count_t reached : {sf_count_t{-1}, sf_count_t{-2}, INT64_MIN}) {
        Reach(reached);
        ExpectCalls({"sf_seek"}, [&] {
            ExpectSeekRefused(*source,
                              "[LibsndfileSource::GotoTimeOffset - returned frame offset < 0]", 5,
                              kRate);
        });
    }
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceFaults, FailsWhereTheSeekGoesPastTheEnd) {
    const auto source = OpenFakeSource();
    for (const sf_count_t reached : {sf_count_t{1001}, INT64_MAX}) {
        Reach(reached);
        ExpectCalls({"sf_seek"}, [&] {
            ExpectSeekRefused(
                *source,
                "[LibsndfileSource::GotoTimeOffset - returned frame offset past file end!]", 5,
                kRate);
        });
    }
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceFaults, KeepsTheStampsWhetherASeekFailsOrNot) {
    const auto source = OpenFakeSource();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
    for (const sf_count_t reached : {sf_count_t{-1}, sf_count_t{1001}}) {
        Reach(reached);
        EXPECT_THROW(source->GotoTimeOffset(Frames(5, kRate), ""), KELRuntimeError);
    }
    Reach(5);
    source->GotoTimeOffset(Frames(5, kRate), "");
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{1024, 1024, 8192}));
}

TEST_F(LibsndfileSourceFaults, AcceptsEveryNullRateForAFileWithoutARate) {
    fileInfo.samplerate = 0;
    const auto source = OpenFakeSource();
    Reach(5);
    for (const EditRate& rate : {EditRate(0, 0), EditRate(0, 1), EditRate(44100, 0)}) {
        ExpectRecords({}, [&] {
            EXPECT_EQ(source->GotoTimeOffset(Frames(5, rate), "").GetEditRate(), rate);
        });
    }
    ExpectSeekRefused(*source, kOtherRate, 5, kRate);
    ExpectSeekRefused(*source, kOtherRate, 5, {1, 4294967295}); // almost nothing, but not null
}

TEST_F(LibsndfileSourceFaults, ComparesRatesAsQuotientsNotAsNumbers) {
    fileInfo.samplerate = 1;
    const auto source = OpenFakeSource();
    Reach(5);
    for (const EditRate& rate : {EditRate(4294967295, 4294967295), EditRate(4294967294, 4294967295),
                                 EditRate(16668, 16667), EditRate(16666, 16667)}) {
        EXPECT_EQ(source->GotoTimeOffset(Frames(5, rate), "").GetEditRate(), rate);
    }
    for (const EditRate& rate : {EditRate(16667, 16666), EditRate(16665, 16666), EditRate(2, 1)}) {
        ExpectSeekRefused(*source, kOtherRate, 5, rate);
    }
}

} // namespace
} // namespace kel::test
