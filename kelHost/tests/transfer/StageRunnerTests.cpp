#include "transfer/StageRunner.h"

#include <IAudioSample.h>
#include <IBuffer.h>
#include <TimeLimits.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kel::host {

namespace {

// A sample that is known by the number that it was given as its duration.
SampleHandle Numbered(std::int64_t number) {
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, CreateBuffer(nullptr, nullptr),
                                                   TimeLimits(MediaTime(), number), {}),
                                 nullptr);
}

std::int64_t NumberOf(const SampleHandle& sample) {
    return sample->GetAudioSamples(nullptr, nullptr).at(0)->GetTimeLimits().duration;
}

// Gives samples of the numbers 1 to count, then none.
std::function<SampleHandle()> Count(std::int64_t count) {
    return [count, next = std::int64_t{0}]() mutable -> SampleHandle {
        return next < count ? Numbered(++next) : nullptr;
    };
}

SampleHandle Double(const SampleHandle& sample) {
    return Numbered(2 * NumberOf(sample));
}

void WaitFor(const std::function<bool()>& condition) {
    while (!condition()) {
        std::this_thread::yield();
    }
}

std::string ErrorOf(const std::function<void(const Stages&)>& run, const Stages& stages) {
    try {
        run(stages);
    } catch (const std::exception& error) {
        return error.what();
    } catch (int number) {
        return "the number " + std::to_string(number);
    }
    return "no error";
}

struct Runner {
    std::string name;
    std::function<void(const Stages&)> run;
};

void PrintTo(const Runner& runner, std::ostream* stream) {
    *stream << runner.name;
}

// What holds on several threads as well as on one.
class Pipeline : public testing::TestWithParam<Runner> {};

std::string RunnerName(const testing::TestParamInfo<Runner>& info) {
    return info.param.name;
}

} // namespace

TEST_P(Pipeline, KeepsTheOrderOfTheSamplesAndLosesNone) {
    for (const std::int64_t count : {0, 1, 2, 3, 4, 5, 6, 1000}) {
        for (const bool converts : {false, true}) {
            std::vector<std::int64_t> pushed;
            Stages stages;
            stages.pull = Count(count);
            if (converts) {
                stages.convert = Double;
            }
            stages.push = [&](const SampleHandle& sample) {
                pushed.push_back(NumberOf(sample));
            };
            GetParam().run(stages);
            std::vector<std::int64_t> expected;
            for (std::int64_t number = 1; number <= count; ++number) {
                expected.push_back(converts ? 2 * number : number);
            }
            EXPECT_EQ(pushed, expected);
        }
    }
}

TEST_P(Pipeline, ThrowsWhatAStageHasThrown) {
    for (const std::int64_t place : {1, 2, 7}) {
        const auto failAt = [place](std::int64_t number) {
            if (number == place) {
                throw std::runtime_error("at " + std::to_string(number));
            }
        };
        const std::string expected = "at " + std::to_string(place);
        Stages stages;
        stages.pull = [&, pull = Count(10), number = std::int64_t{0}]() mutable {
            failAt(++number);
            return pull();
        };
        stages.convert = Double;
        stages.push = [](const SampleHandle& /*sample*/) {
        };
        EXPECT_EQ(ErrorOf(GetParam().run, stages), expected);

        stages.pull = Count(10);
        stages.convert = [&](const SampleHandle& sample) {
            failAt(NumberOf(sample));
            return sample;
        };
        EXPECT_EQ(ErrorOf(GetParam().run, stages), expected);

        stages.pull = Count(10);
        stages.convert = nullptr;
        stages.push = [&](const SampleHandle& sample) {
            failAt(NumberOf(sample));
        };
        EXPECT_EQ(ErrorOf(GetParam().run, stages), expected);
    }
}

TEST_P(Pipeline, PassesExceptionsOfEveryTypeOn) {
    Stages stages;
    stages.pull = []() -> SampleHandle {
        throw 42;
    };
    stages.push = [](const SampleHandle& /*sample*/) {
    };
    EXPECT_EQ(ErrorOf(GetParam().run, stages), "the number 42");
}

TEST_P(Pipeline, LetsGoOfEverySample) {
    std::vector<std::weak_ptr<const ISampleContainer>> samples;
    Stages stages;
    stages.pull = [&, pull = Count(50)]() mutable {
        const SampleHandle sample = pull();
        samples.push_back(sample);
        return sample;
    };
    stages.push = [](const SampleHandle& sample) {
        if (NumberOf(sample) == 20) {
            throw std::runtime_error("enough");
        }
    };
    EXPECT_EQ(ErrorOf(GetParam().run, stages), "enough");
    for (const auto& sample : samples) {
        EXPECT_TRUE(sample.expired());
    }
}

// Each stage on a thread of its own, and converting on that of the reader.
void RunOnThree(const Stages& stages) {
    RunOverlapped(stages, 3);
}

void RunOnTwo(const Stages& stages) {
    RunOverlapped(stages, 2);
}

INSTANTIATE_TEST_SUITE_P(Runners, Pipeline,
                         testing::Values(Runner{"OverlappedOnThree", RunOnThree},
                                         Runner{"OverlappedOnTwo", RunOnTwo},
                                         Runner{"Inline", RunInline}),
                         RunnerName);

TEST(PipelineInline, StaysOnOneThread) {
    std::set<std::thread::id> threads;
    Stages stages;
    const auto note = [&threads] {
        threads.insert(std::this_thread::get_id());
    };
    stages.pull = [&, pull = Count(10)]() mutable {
        note();
        return pull();
    };
    stages.convert = [&](const SampleHandle& sample) {
        note();
        return sample;
    };
    stages.push = [&](const SampleHandle& /*sample*/) {
        note();
    };
    RunInline(stages);
    EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST(PipelineOverlapped, GivesEachStageOneThreadOfItsOwn) {
    std::set<std::thread::id> pulling;
    std::set<std::thread::id> converting;
    std::set<std::thread::id> pushing;
    Stages stages;
    stages.pull = [&, pull = Count(100)]() mutable {
        pulling.insert(std::this_thread::get_id());
        return pull();
    };
    stages.convert = [&](const SampleHandle& sample) {
        converting.insert(std::this_thread::get_id());
        return sample;
    };
    stages.push = [&](const SampleHandle& /*sample*/) {
        pushing.insert(std::this_thread::get_id());
    };
    RunOnThree(stages);
    EXPECT_EQ(pulling.size(), 1U);
    EXPECT_EQ(converting.size(), 1U);
    EXPECT_EQ(pushing, std::set<std::thread::id>{std::this_thread::get_id()});
    std::set<std::thread::id> all = pulling;
    all.insert(converting.begin(), converting.end());
    all.insert(pushing.begin(), pushing.end());
    EXPECT_EQ(all.size(), 3U);
}

TEST(PipelineOverlapped, ConvertsOnTheReadersThreadWhereThereAreTwoProcessors) {
    std::set<std::thread::id> reading;
    std::set<std::thread::id> writing;
    Stages stages;
    stages.pull = [&, pull = Count(100)]() mutable {
        reading.insert(std::this_thread::get_id());
        return pull();
    };
    stages.convert = [&](const SampleHandle& sample) {
        reading.insert(std::this_thread::get_id());
        return sample;
    };
    stages.push = [&](const SampleHandle& /*sample*/) {
        writing.insert(std::this_thread::get_id());
    };
    RunOnTwo(stages);
    EXPECT_EQ(reading.size(), 1U);
    EXPECT_EQ(reading.count(std::this_thread::get_id()), 0U);
    EXPECT_EQ(writing, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST(PipelineOverlapped, RunsAllStagesAtTheSameTime) {
    // Each stage waits within its first call until the next one is in its own, and the reader, with
    // its second sample, until both are: nobody would come through one after the other.
    std::atomic<bool> converts{false};
    std::atomic<bool> pushes{false};
    std::atomic<bool> pullsAgain{false};
    std::atomic<bool> convertsAgain{false};
    Stages stages;
    stages.pull = [&, pull = Count(3)]() mutable {
        SampleHandle sample = pull();
        if (sample != nullptr && NumberOf(sample) == 3) {
            pullsAgain = true;
            WaitFor([&] { return converts && pushes && convertsAgain; });
        }
        return sample;
    };
    stages.convert = [&](const SampleHandle& sample) {
        if (NumberOf(sample) == 2) {
            convertsAgain = true;
            WaitFor([&] { return pushes && pullsAgain; });
        }
        converts = true;
        return sample;
    };
    stages.push = [&](const SampleHandle& sample) {
        if (NumberOf(sample) == 1) {
            pushes = true;
            WaitFor([&] { return pullsAgain && convertsAgain; });
        }
    };
    RunOnThree(stages);
    EXPECT_TRUE(converts && pushes && pullsAgain && convertsAgain);
}

TEST(PipelineOverlapped, HoldsAFewSamplesHoweverMuchThereIs) {
    struct Row {
        bool converts;
        std::int64_t most; // four in each queue, and one in the hands of each stage
        std::int64_t few;  // three in each queue: no stage is woken for a single place
    };
    for (const Row& row : {Row{false, 4 + 2, 3 + 2}, Row{true, 4 + 4 + 3, 3 + 3 + 3}}) {
        SCOPED_TRACE(row.converts);
        std::atomic<std::int64_t> pulled{0};
        std::atomic<std::int64_t> pushed{0};
        std::atomic<std::int64_t> largest{0};
        Stages stages;
        stages.pull = [&, pull = Count(2000)]() mutable {
            SampleHandle sample = pull();
            if (sample != nullptr) {
                const std::int64_t held = ++pulled - pushed;
                largest = std::max<std::int64_t>(largest, held);
            }
            return sample;
        };
        if (row.converts) {
            stages.convert = Double;
        }
        stages.push = [&](const SampleHandle& /*sample*/) {
            if (pushed == 0) {
                // Until everything before this stage is full.
                WaitFor([&] { return pulled >= row.few; });
            }
            ++pushed;
        };
        RunOnThree(stages);
        EXPECT_EQ(pushed, 2000);
        EXPECT_GE(largest, row.few);
        EXPECT_LE(largest, row.most);
    }
}

TEST(PipelineOverlapped, FreesAReaderThatWaitsForRoomWhenWritingFails) {
    for (const bool converts : {false, true}) {
        std::atomic<std::int64_t> pulled{0};
        Stages stages;
        stages.pull = [&]() -> SampleHandle {
            return Numbered(++pulled); // without end
        };
        if (converts) {
            stages.convert = Double;
        }
        stages.push = [&](const SampleHandle& /*sample*/) {
            WaitFor([&] { return pulled >= (converts ? 9 : 5); });
            throw std::runtime_error("the disk is full");
        };
        EXPECT_EQ(ErrorOf(RunOnThree, stages), "the disk is full");
    }
}

TEST(PipelineOverlapped, FreesAReaderThatWaitsForRoomWhenConvertingFails) {
    std::atomic<std::int64_t> pulled{0};
    Stages stages;
    stages.pull = [&]() -> SampleHandle {
        return Numbered(++pulled); // without end
    };
    stages.convert = [&](const SampleHandle& /*sample*/) -> SampleHandle {
        WaitFor([&] { return pulled >= 5; });
        throw std::runtime_error("beyond full scale");
    };
    stages.push = [](const SampleHandle& /*sample*/) {
        ADD_FAILURE() << "nothing was converted";
    };
    EXPECT_EQ(ErrorOf(RunOnThree, stages), "beyond full scale");
}

TEST(PipelineOverlapped, PushesNothingMoreOnceAnErrorIsKnown) {
    // Set when the reader's thread has ended, with its error kept and four samples in the queue.
    struct EndOfThread {
        ~EndOfThread() { *hasEnded = true; }
        std::atomic<bool>* hasEnded;
    };
    std::atomic<bool> hasEnded{false};
    std::vector<std::int64_t> pushed;
    Stages stages;
    stages.pull = [&, pull = Count(5)]() mutable -> SampleHandle {
        static thread_local const EndOfThread end{&hasEnded};
        SampleHandle sample = pull();
        if (NumberOf(sample) == 5) {
            throw std::runtime_error("damaged");
        }
        return sample;
    };
    stages.push = [&](const SampleHandle& sample) {
        pushed.push_back(NumberOf(sample));
        WaitFor([&] { return hasEnded.load(); });
    };
    EXPECT_EQ(ErrorOf(RunOnThree, stages), "damaged");
    // The error may have come before the first one was taken.
    EXPECT_LE(pushed.size(), 1U);
}

} // namespace kel::host
