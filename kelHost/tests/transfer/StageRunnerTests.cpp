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

// A sample that is known by the number that it was given because its duration.
SampleHandle Numbered(std::int64_t number) {
    return CreateSampleContainer(CreateAudioSample(nullptr, nullptr, CreateBuffer(nullptr, nullptr),
                                                   TimeLimits(MediaTime(), number), {}),
                                 nullptr);
}

std::int64_t NumberOf(const SampleHandle& sample) {
    return sample->GetAudioSamples(nullptr, nullptr).at(0)->GetTimeLimits().duration;
}

// Returns samples of the numbers 1 to count, then none.
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

// Stages that are functions of the test.
class FakeStages final : public Stages {
public:
    SampleHandle Pull() override { return pull(); }
    bool Converts() const override { return convert != nullptr; }
    SampleHandle Convert(const SampleHandle& sample) override { return convert(sample); }
    void Push(const SampleHandle& sample) override { push(sample); }

    std::function<SampleHandle()> pull;
    std::function<SampleHandle(const SampleHandle&)> convert;
    std::function<void(const SampleHandle&)> push;
};

std::string ErrorOf(const std::function<void(Stages&)>& run, Stages& stages) {
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
    std::function<void(Stages&)> run;
};

void PrintTo(const Runner& runner, std::ostream* stream) {
    *stream << runner.name;
}

// Properties on several threads as well as on one.
class Pipeline : public testing::TestWithParam<Runner> {};

std::string RunnerName(const testing::TestParamInfo<Runner>& info) {
    return info.param.name;
}

} // namespace

TEST_P(Pipeline, KeepsTheOrderOfTheSamplesAndLosesNone) {
    for (const std::int64_t count : {0, 1, 2, 3, 4, 5, 6, 1000}) {
        for (const bool converts : {false, true}) {
            std::vector<std::int64_t> pushed;
            FakeStages stages;
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

TEST_P(Pipeline, ThrowsTheErrorOfAStage) {
    for (const int stage : {0, 1, 2}) { // pulling, converting, pushing
        for (const std::int64_t place : {1, 2, 7}) {
            const auto failAt = [&](int ownStage, std::int64_t number) {
                if (stage == ownStage && number == place) {
                    throw std::runtime_error("at " + std::to_string(number));
                }
            };
            FakeStages stages;
            stages.pull = [&, pull = Count(10), number = std::int64_t{0}]() mutable {
                failAt(0, ++number);
                return pull();
            };
            stages.convert = [&](const SampleHandle& sample) {
                failAt(1, NumberOf(sample));
                return sample;
            };
            stages.push = [&](const SampleHandle& sample) {
                failAt(2, NumberOf(sample));
            };
            EXPECT_EQ(ErrorOf(GetParam().run, stages), "at " + std::to_string(place)) << stage;
        }
    }
    FakeStages stages;
    stages.pull = []() -> SampleHandle {
        throw 42;
    };
    stages.push = [](const SampleHandle& /*sample*/) {
    };
    EXPECT_EQ(ErrorOf(GetParam().run, stages), "the number 42");
}

TEST_P(Pipeline, LetsGoOfEverySample) {
    std::vector<std::weak_ptr<const ISampleContainer>> samples;
    FakeStages stages;
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
void RunOnThree(Stages& stages) {
    RunOverlapped(stages, 3);
}

void RunOnTwo(Stages& stages) {
    RunOverlapped(stages, 2);
}

INSTANTIATE_TEST_SUITE_P(Runners, Pipeline,
                         testing::Values(Runner{"OverlappedOnThree", RunOnThree},
                                         Runner{"OverlappedOnTwo", RunOnTwo},
                                         Runner{"Inline", RunInline}),
                         RunnerName);

TEST(PipelineThreads, AreAsManyAsTheProcessors) {
    using Threads = std::set<std::thread::id>;
    const auto own = std::this_thread::get_id();
    const auto threadsOf = [](const std::function<void(Stages&)>& run) {
        std::vector<Threads> threads(3); // of pulling, converting, pushing
        const auto note = [&threads](std::size_t stage) {
            threads[stage].insert(std::this_thread::get_id());
        };
        FakeStages stages;
        stages.pull = [&, pull = Count(100)]() mutable {
            note(0);
            return pull();
        };
        stages.convert = [&](const SampleHandle& sample) {
            note(1);
            return sample;
        };
        stages.push = [&](const SampleHandle& /*sample*/) {
            note(2);
        };
        run(stages);
        for (const Threads& stage : threads) {
            EXPECT_EQ(stage.size(), 1U);
        }
        return threads;
    };
    EXPECT_EQ(threadsOf(RunInline), (std::vector<Threads>(3, {own})));

    const auto two = threadsOf(RunOnTwo);
    EXPECT_EQ(two[0], two[1]) << "the reader converts";
    EXPECT_NE(two[0], two[2]);
    EXPECT_EQ(two[2], Threads{own});

    const auto three = threadsOf(RunOnThree);
    EXPECT_EQ(three[2], Threads{own});
    EXPECT_NE(three[0], three[1]);
    EXPECT_NE(three[0], three[2]);
    EXPECT_NE(three[1], three[2]);
}

TEST(PipelineOverlapped, RunsAllStagesAtTheSameTime) {
    // Each stage waits within a call until all of them are: run one after the other, none would
    // end.
    std::atomic<int> waiting{0};
    const auto meet = [&waiting](bool isPlace) {
        if (isPlace) {
            ++waiting;
            WaitFor([&waiting] { return waiting == 3; });
        }
    };
    FakeStages stages;
    stages.pull = [&, pull = Count(3)]() mutable {
        SampleHandle sample = pull();
        meet(sample != nullptr && NumberOf(sample) == 3);
        return sample;
    };
    stages.convert = [&](const SampleHandle& sample) {
        meet(NumberOf(sample) == 2);
        return sample;
    };
    stages.push = [&](const SampleHandle& sample) {
        meet(NumberOf(sample) == 1);
    };
    RunOnThree(stages);
    EXPECT_EQ(waiting, 3);
}

TEST(PipelineOverlapped, HoldsFewSamples) {
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
        FakeStages stages;
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

TEST(PipelineOverlapped, FreesAReaderThatWaitsForRoomWhenAnotherStageFails) {
    struct Row {
        bool converts;
        bool conversionFails;
        std::int64_t queued; // until the reader waits
    };
    for (const Row& row : {Row{false, false, 5}, Row{true, false, 9}, Row{true, true, 5}}) {
        SCOPED_TRACE(testing::Message() << row.converts << row.conversionFails);
        std::atomic<std::int64_t> pulled{0};
        const auto fail = [&] {
            WaitFor([&] { return pulled >= row.queued; });
            throw std::runtime_error("the disk is full");
        };
        FakeStages stages;
        stages.pull = [&]() -> SampleHandle {
            return Numbered(++pulled); // without end
        };
        if (row.converts) {
            stages.convert = [&](const SampleHandle& sample) {
                if (row.conversionFails) {
                    fail();
                }
                return sample;
            };
        }
        stages.push = [&](const SampleHandle& /*sample*/) {
            EXPECT_FALSE(row.conversionFails) << "nothing was converted";
            fail();
        };
        EXPECT_EQ(ErrorOf(RunOnThree, stages), "the disk is full");
    }
}

namespace {

// Sets a flag when its thread has ended, with the error of its stage kept.
struct EndOfThread {
    ~EndOfThread() { *hasEnded = true; }
    std::atomic<bool>* hasEnded;
};

} // namespace

TEST(PipelineOverlapped, PushesNothingMoreOnceAnErrorIsKnown) {
    std::atomic<bool> hasEnded{false};
    std::vector<std::int64_t> pushed;
    FakeStages stages;
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

TEST(PipelineOverlapped, ThrowsTheFirstOfSeveralErrors) {
    std::atomic<bool> pushes{false};
    std::atomic<bool> hasEnded{false};
    FakeStages stages;
    stages.pull = [&, pull = Count(2)]() mutable -> SampleHandle {
        static thread_local const EndOfThread end{&hasEnded};
        SampleHandle sample = pull();
        if (NumberOf(sample) == 2) {
            WaitFor([&] { return pushes.load(); });
            throw std::runtime_error("first");
        }
        return sample;
    };
    stages.push = [&](const SampleHandle& /*sample*/) {
        pushes = true;
        WaitFor([&] { return hasEnded.load(); });
        throw std::runtime_error("second");
    };
    EXPECT_EQ(ErrorOf(RunOnThree, stages), "first");
}

} // namespace kel::host
