// Reading, call by call: what libsndfile and the framework are asked for, and what is left when one
// of them fails.

#include "FakeFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

constexpr int kBroken = SF_ERR_SYSTEM;

class LibsndfileSourceReadingFaults : public FakeFileTest {
protected:
    // Lets the next reads deliver so many frames, whatever is asked for.
    void Deliver(sf_count_t frames) {
        StandIn().readf_float = [frames](SNDFILE*, float*, sf_count_t) {
            return frames;
        };
    }

    static void Break(const char* text) {
        StandIn().error = [](SNDFILE*) {
            return kBroken;
        };
        StandIn().strerror = [text](SNDFILE*) {
            return text;
        };
    }
};

TEST_F(LibsndfileSourceReadingFaults, GoesFromTheSettingsToTheContainer) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    ExpectCalls({"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer", "Reserve 8192", "GetData",
                 "sf_readf_float", "sf_error", "SetSize 8192", "CreateAudioSample",
                 "CreateSampleContainer"},
                [&] { ASSERT_NE(source->GetSample(), nullptr); });
}

TEST_F(LibsndfileSourceReadingFaults, StopsAtTheReadWhereNothingIsLeft) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    Deliver(0);
    Break("not to be asked for");
    ExpectRecords({}, [&] {
        ExpectCalls({"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer", "Reserve 8192",
                     "GetData", "sf_readf_float"},
                    [&] { EXPECT_EQ(source->GetSample(), nullptr); });
    });
}

TEST_F(LibsndfileSourceReadingFaults, LeavesTheStampWhereNothingIsLeft) {
    const auto source = OpenFakeSource();
    Deliver(0);
    EXPECT_EQ(source->GetSample(), nullptr);
    Deliver(5);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 5, 40}));
}

TEST_F(LibsndfileSourceReadingFaults, CallsNothingWithoutAFileOrAnActiveOutput) {
    const auto source = MakeFakeSource();
    ExpectCalls({}, [&] { EXPECT_EQ(source->GetSample(), nullptr); });
    source->Open(kPath);
    source->ActivateOutputs({});
    ExpectCalls({}, [&] { EXPECT_EQ(source->GetSample(), nullptr); });
    source->ActivateOutputs({nullptr});
    source->Release();
    ExpectCalls({}, [&] { EXPECT_EQ(source->GetSample(), nullptr); });
}

TEST_F(LibsndfileSourceReadingFaults, ReadsOnceIntoTheReservedBuffer) {
    const auto source = OpenFakeSource();
    const auto sample = OnlySample(source->GetSample());
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(reads[0].file, File());
    EXPECT_EQ(reads[0].frames, 1024);
    EXPECT_EQ(static_cast<const void*>(reads[0].data), sample->GetBuffer()->GetData());
}

TEST_F(LibsndfileSourceReadingFaults, FetchesTheDataAfterItHasReserved) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    source->GetSample();
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(static_cast<const void*>(reads[0].data), std::as_const(*buffers[0]).GetData());
}

TEST_F(LibsndfileSourceReadingFaults, DoesNotReadAgainAfterAShortRead) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    Deliver(10);
    ExpectRecords({}, [&] {
        ExpectCalls({"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer", "Reserve 8192",
                     "GetData", "sf_readf_float", "sf_error", "SetSize 80", "CreateAudioSample",
                     "CreateSampleContainer"},
                    [&] {
                        EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
                    });
    });
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{10, 10, 80}));
}

TEST_F(LibsndfileSourceReadingFaults, PassesEachPieceOfTheSampleOn) {
    const auto source = OpenFakeSource();
    const auto announced = source->GetDefinedOutput("")->GetAudioInfos().at(0);
    std::shared_ptr<IBuffer> buffer;
    std::shared_ptr<IAudioSample> sample;
    std::shared_ptr<ISampleContainer> container;

    FrameworkFunctions& answers = FrameworkAnswers();
    answers.createBuffer = [&](const auto& allocator, const auto& block) {
        EXPECT_NE(allocator, nullptr);
        EXPECT_EQ(block, nullptr);
        return buffer = RealFramework().createBuffer(allocator, block);
    };
    answers.createAudioSample = [&](const auto& parameters, const auto& audioInfo, const auto& data,
                                    const auto& limits, const auto& metadata) {
        EXPECT_EQ(parameters, announced->GetAudioParameters());
        EXPECT_EQ(audioInfo, announced);
        EXPECT_EQ(data, buffer);
        EXPECT_EQ(limits.start.GetTimeNumber(), 0);
        EXPECT_EQ(limits.start.GetEditRate(), EditRate(44100, 1));
        EXPECT_EQ(limits.start.GetClockInfo(), nullptr);
        EXPECT_EQ(limits.duration, 1024);
        EXPECT_EQ(limits.attachment, nullptr);
        EXPECT_EQ(metadata.size(), 0U);
        return sample =
                   RealFramework().createAudioSample(parameters, audioInfo, data, limits, metadata);
    };
    answers.createSampleContainer = [&](const auto& content, const auto& packaging) {
        EXPECT_EQ(content, sample);
        EXPECT_EQ(packaging, nullptr);
        return container = RealFramework().createSampleContainer(content, packaging);
    };
    EXPECT_EQ(source->GetSample(), container);
    EXPECT_NE(container, nullptr);
}

TEST_F(LibsndfileSourceReadingFaults, GetsEveryBufferFromTheSameAllocator) {
    const auto source = OpenFakeSource();
    std::vector<std::shared_ptr<IMemoryBlockAllocator>> used;
    FrameworkAnswers().createBuffer = [&](const auto& allocator, const auto& block) {
        used.push_back(allocator);
        return RealFramework().createBuffer(allocator, block);
    };
    source->GetSample();
    source->GetSample();
    ASSERT_EQ(used.size(), 2U);
    EXPECT_NE(used[0], nullptr);
    EXPECT_EQ(used[0], used[1]);
}

TEST_F(LibsndfileSourceReadingFaults, ReportsAnErrorAndDeliversWhatWasRead) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    Deliver(10);
    Break("System error : Input/output error.");
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 1024 frames but could only read 10 -- libsndfile error "
                    "is System error : Input/output error."}},
                  [&] {
                      ExpectCalls({"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer",
                                   "Reserve 8192", "GetData", "sf_readf_float", "sf_error",
                                   "sf_strerror", "SetSize 80", "CreateAudioSample",
                                   "CreateSampleContainer"},
                                  [&] {
                                      EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 10, 80}));
                                  });
                  });
    StandIn().error = [](SNDFILE*) {
        return 0;
    };
    ExpectRecords({}, [&] { EXPECT_EQ(StampOf(source->GetSample()), (Stamp{10, 10, 80})); });
}

TEST_F(LibsndfileSourceReadingFaults, AsksTheFileForItsErrorAndItsText) {
    const auto source = OpenFakeSource();
    std::vector<SNDFILE*> asked;
    StandIn().error = [&](SNDFILE* file) {
        asked.push_back(file);
        return -1;
    };
    StandIn().strerror = [&](SNDFILE* file) {
        asked.push_back(file);
        return "100%s\nof it";
    };
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 1024 frames but could only read 1024 -- libsndfile "
                    "error is 100%s\nof it"}},
                  [&] { source->GetSample(); });
    EXPECT_EQ(asked, (std::vector<SNDFILE*>{File(), File()}));
}

TEST_F(LibsndfileSourceReadingFaults, SaysNothingWhereLibsndfileHasNoText) {
    const auto source = OpenFakeSource();
    Deliver(3);
    Break(nullptr);
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 1024 frames but could only read 3 -- libsndfile error "
                    "is "}},
                  [&] {
                      EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 3, 24}));
                  });
}

TEST_F(LibsndfileSourceReadingFaults, TellsTheFramesThatTheSettingsAskedFor) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    settings->SetIntegerValue("MaxSamplesPerBuffer", -1);
    Deliver(7);
    Break("text");
    ExpectRecords({{LogLevel::Error,
                    "Warning: tried to read 4294967295 frames but could only read 7 -- libsndfile "
                    "error is text"}},
                  [&] {
                      EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 7, 56}));
                  });
}

TEST_F(LibsndfileSourceReadingFaults, CountsFramesBeyond32BitsInItsStamps) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    const sf_count_t many = sf_count_t{1} << 40;
    Deliver(many);
    EXPECT_EQ(StampOf(source->GetSample()).start, 0);
    Deliver(1);
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{many, 1, 8}));
}

// A size that the settings ask for, what is reserved for it, and how many frames are read into
// that.
struct Bound {
    int channels;
    std::int32_t maxFrames;
    std::int64_t reserved;
    sf_count_t frames;
};

class LibsndfileSourceReadingBounds : public LibsndfileSourceReadingFaults,
                                      public ::testing::WithParamInterface<Bound> {};

INSTANTIATE_TEST_SUITE_P(
    Sizes, LibsndfileSourceReadingBounds,
    ::testing::Values( // everything fits
        Bound{1, 1024, 4096, 1024}, Bound{2, 1024, 8192, 1024}, Bound{1024, 1, 4096, 1},
        Bound{2, 0, 0, 0}, Bound{2, 536870911, 4294967288, 536870911},
        Bound{1, 1073741823, 4294967292, 1073741823}, Bound{3, 357913941, 4294967292, 357913941},
        // the reservation wraps
        Bound{2, 536870912, 0, 0}, Bound{2, 536870913, 8, 1}, Bound{2, 536870922, 80, 10},
        Bound{1, 1073741824, 0, 0}, Bound{1, 2147483647, 4294967292, 1073741823},
        Bound{3, 357913942, 8, 0}, Bound{3, 357913943, 20, 1}, Bound{1024, 1048576, 0, 0},
        Bound{1024, 1048579, 12288, 3},
        // negative numbers are large ones
        Bound{2, -1, 4294967288, 536870911}, Bound{1, -1, 4294967292, 1073741823},
        Bound{2, INT32_MIN, 0, 0}, Bound{3, -2, 4294967272, 357913939}));

TEST_P(LibsndfileSourceReadingBounds, AreKept) {
    const Bound& bound = GetParam();
    info.channels = bound.channels;
    settings->SetIntegerValue("MaxSamplesPerBuffer", bound.maxFrames);
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    source->GetSample();
    const Calls expected = {"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer",
                            "Reserve " + std::to_string(bound.reserved), "GetData",
                            "sf_readf_float"};
    ASSERT_GE(SndfileCalls().size(), expected.size());
    EXPECT_EQ(Calls(SndfileCalls().begin(), SndfileCalls().begin() + 5), expected);
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(reads[0].frames, bound.frames);
}

TEST_F(LibsndfileSourceReadingFaults, SurvivesFramesWhoseBytesCanNotBeCounted) {
    info.channels = 1 << 30;
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    EXPECT_EQ(source->GetSample(), nullptr);
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(reads[0].frames, 0);
}

class LibsndfileSourceReadingSteps : public LibsndfileSourceReadingFaults,
                                     public ::testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Calls, LibsndfileSourceReadingSteps,
                         ::testing::Values("GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer",
                                           "Reserve 8192", "GetData", "SetSize 8192",
                                           "CreateAudioSample", "CreateSampleContainer"),
                         [](const auto& step) {
                             return step.param.substr(0, step.param.find(' '));
                         });

TEST_P(LibsndfileSourceReadingSteps, PassTheirFailureOn) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    FailAt(GetParam());
    ExpectRecords({}, [&] { ExpectFailureOf(GetParam(), [&] { source->GetSample(); }); });
    EXPECT_EQ(SndfileCalls().back(), GetParam());
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_P(LibsndfileSourceReadingSteps, LeaveTheStampWhenTheyFail) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
    FailAt(GetParam());
    ExpectFailureOf(GetParam(), [&] { source->GetSample(); });
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{1024, 1024, 8192}));
}

TEST_P(LibsndfileSourceReadingSteps, DropTheBufferWhenTheyFail) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    FailAt(GetParam());
    ExpectFailureOf(GetParam(), [&] { source->GetSample(); });
    for (const auto& buffer : buffers) {
        EXPECT_EQ(buffer.use_count(), 1);
    }
}

TEST_F(LibsndfileSourceReadingFaults, DropsTheBufferAtTheEnd) {
    const auto source = OpenFakeSource();
    UseBufferDoubles();
    Deliver(0);
    EXPECT_EQ(source->GetSample(), nullptr);
    ASSERT_EQ(buffers.size(), 1U);
    EXPECT_EQ(buffers[0].use_count(), 1);
}

TEST_F(LibsndfileSourceReadingFaults, PassesTheFailureOfItsAllocatorOnAndReadsNothing) {
    using AllocatorFactory = ElementFactory<ElementFactoryType::MemoryBlockAllocator>;
    const auto source = MakeFakeSource();
    FrameworkAnswers().getFactory = [](auto, const auto&, const auto&) {
        return std::make_shared<AllocatorFactory>(
            [](const auto&) { return std::make_shared<EmptyAllocator>(); });
    };
    source->Open(kPath);
    ExpectCalls({"GetIntegerValue MaxSamplesPerBuffer", "CreateBuffer", "Allocate 8192"},
                [&] { ExpectFailureOf("no memory", [&] { source->GetSample(); }); });
    UseBufferDoubles();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
}

TEST_F(LibsndfileSourceReadingFaults, DeliversAlsoAfterAnOpenThatFailedHalfway) {
    const auto source = MakeFakeSource();
    FailAt("CreateAudioParameters");
    ExpectFailureOf("CreateAudioParameters", [&] { source->Open(kPath); });
    std::shared_ptr<IMemoryBlockAllocator> used = std::make_shared<EmptyAllocator>();
    FrameworkAnswers().createBuffer = [&](const auto& allocator, const auto& block) {
        used = allocator;
        return RealFramework().createBuffer(allocator, block);
    };
    const auto container = source->GetSample();
    EXPECT_EQ(used, nullptr);
    EXPECT_EQ(StampOf(container), (Stamp{0, 1024, 8192}));
    EXPECT_EQ(OnlySample(container)->GetAudioInfo(), nullptr);
    EXPECT_EQ(OnlySample(container)->GetAudioParameters(), nullptr);
}

} // namespace
} // namespace kel::test
