// One process, many elements: no element knows of another one's files, errors or memory.

#include "ElementThreads.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

// The failures take turns: libsndfile keeps its words about them for all threads together and
// without a lock, and a race of its own would hide one of ours.
TEST(ElementsOfManyThreads, CopyTheirOwnFilesWhileOthersFailOneAfterTheOther) {
    std::mutex failing;
    RunJobsAtOnce(kThreads, 10, [&failing](const Job& job) {
        std::unique_lock<std::mutex> lock(failing, std::defer_lock);
        if (!job.failure.empty()) {
            lock.lock();
        }
        return RunJob(job);
    });
}

// What a reading thread hands to a writing one. The writing thread takes all that is there at once,
// so that it then gives blocks back for a while in which nothing but the pool itself keeps the two
// apart.
class SampleQueue {
public:
    // An empty handle is the end.
    void Push(std::shared_ptr<const ISampleContainer> container) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_containers.push_back(std::move(container));
        m_filled.notify_one();
    }

    // Waits until there is something.
    std::deque<std::shared_ptr<const ISampleContainer>> TakeAll() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_filled.wait(lock, [this] { return !m_containers.empty(); });
        return std::exchange(m_containers, {});
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_filled;
    std::deque<std::shared_ptr<const ISampleContainer>> m_containers;
};

void ReadAll(IAudioSource& source, SampleQueue& queue) {
    bool more = true;
    while (more) {
        auto container = source.GetSample();
        more = container != nullptr;
        queue.Push(std::move(container));
    }
}

void WriteAll(SampleQueue& queue, IAudioSink& sink) {
    bool more = true;
    while (more) {
        auto containers = queue.TakeAll();
        more = containers.back() != nullptr;
        if (!more) {
            containers.pop_back();
        }
        while (!containers.empty()) {
            sink.PushSample(containers.front());
            containers.pop_front();
        }
    }
    sink.Close(false);
}

TEST(ElementsOfManyThreads, HandSamplesFromAReadingToAWritingThread) {
    struct Pipeline {
        std::string out;
        std::vector<float> values;
        std::shared_ptr<IAudioSource> source;
        std::shared_ptr<IAudioSink> sink;
        SampleQueue queue;
    };
    const TemporaryDirectory directory;
    std::vector<Pipeline> pipelines(kThreads / 2);
    for (std::size_t i = 0; i < pipelines.size(); ++i) {
        Pipeline& pipeline = pipelines[i];
        const std::string name = std::to_string(i);
        const std::string in = directory / ("in" + name);
        pipeline.out = directory / ("out" + name);
        pipeline.values = FloatsOf(MakeNoise(100000, static_cast<std::uint32_t>(i)));
        WriteAudioFile(in, MakeSfInfo(SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000), pipeline.values);
        pipeline.source = OpenSource(in, 16);
        pipeline.sink = MakeSink();
        pipeline.sink->SetInitConfig(MakeSinkSettings());
        pipeline.sink->Open(ConvertPlatformStringToWideString(pipeline.out));
        pipeline.sink->DefineInput(pipeline.source->GetDefinedOutput(""), "");
    }

    RunOnThreads(kThreads, [&pipelines](std::size_t i) {
        Pipeline& pipeline = pipelines[i / 2];
        if (i % 2 == 0) {
            ReadAll(*pipeline.source, pipeline.queue);
        } else {
            WriteAll(pipeline.queue, *pipeline.sink);
        }
    });

    for (const Pipeline& pipeline : pipelines) {
        EXPECT_EQ(BitsOf(DecodeAudioFile(pipeline.out).values), BitsOf(pipeline.values));
    }
}

} // namespace
} // namespace kel::test
