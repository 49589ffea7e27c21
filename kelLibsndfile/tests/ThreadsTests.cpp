// One process, many elements: no element uses the files, errors or memory of another one.

#include "Noise.h"

#include <AudioFiles.h>
#include <CapturingWriter.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The thread checker looks for this name in the program. libsndfile writes and returns its text
// about a failed open without a lock. That race is known and is not ours.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "race:libsndfile.so\n";
}

namespace kel::test {
namespace {

constexpr std::size_t kThreads = 8;

// Releases the waiting threads when all of them wait, so that they start at once.
class StartingLine {
public:
    explicit StartingLine(std::size_t threads) : m_missing(threads) {}

    void Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (--m_missing == 0) {
            m_allWait.notify_all();
        }
        m_allWait.wait(lock, [this] { return m_missing == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_allWait;
    std::size_t m_missing;
};

// Runs an operation on so many threads at once and waits for all of them.
// @param operation gets the number of the thread; must not throw
void RunOnThreads(std::size_t threads, const std::function<void(std::size_t)>& operation) {
    StartingLine line(threads);
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            line.Wait();
            operation(i);
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

// Copies a file by a source and a sink of its own.
// @throws KELRuntimeError as the elements do
void CopyByNewElements(const std::string& in, const std::string& out) {
    const auto source = OpenSource(in, 256);
    auto settings = MakeSinkSettings();
    settings->SetStringValue("FilePath", out);
    const auto sink = MakeSink();
    sink->SetInitConfig(settings);
    sink->DefineInput(source->GetDefinedOutput(""), "");
    while (const auto container = source->GetSample()) {
        sink->PushSample(container);
    }
    sink->Close(false);
}

// A copy that succeeds, or one that fails with a message that names its own file.
struct Job {
    std::string in;
    std::string out;
    std::vector<float> values; //< of the file that comes out
    std::string failedFile;    //< empty when the copy succeeds
    std::string failure;       //< up to libsndfile's own words
};

// Gives a WAVE file an unknown encoding.
void ForgetEncoding(const std::string& path) {
    constexpr std::size_t kEncodingTag = 20;
    std::string bytes = ReadFile(path);
    bytes.replace(kEncodingTag, 2, "\x34\x12");
    WriteFile(path, bytes);
}

// Jobs in a directory: those with even numbers copy, the others fail in five ways.
std::vector<Job> MakeJobs(const TemporaryDirectory& directory, std::size_t count) {
    std::vector<Job> jobs(count);
    for (std::size_t i = 0; i < count; ++i) {
        Job& job = jobs[i];
        const std::string name = "job" + std::to_string(i);
        job.in = directory / (name + "-in.wav");
        job.out = directory / (name + "-out.wav");
        // The files differ in channels and length, and in the noise.
        const auto channels = static_cast<int>(i % 4) + 1;
        job.values = FloatsOf(MakeNoise(static_cast<std::size_t>(channels) * (3000 + 100 * i),
                                        static_cast<std::uint32_t>(i)));
        WriteAudio(job.in, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000, job.values);
        if (i % 2 == 0) {
            continue;
        }
        switch (i / 2 % 5) {
        case 0: // missing
            job.in = directory / (name + "-missing.wav");
            job.failedFile = job.in;
            break;
        case 1: // no audio file at all
            WriteFile(job.in, "a text file");
            job.failedFile = job.in;
            break;
        case 2: // ends in its header
            std::filesystem::resize_file(job.in, 40);
            job.failedFile = job.in;
            break;
        case 3: // nowhere to write to
            job.out = directory / (name + "-directory/out.wav");
            job.failedFile = job.out;
            break;
        default: // not to be decoded
            ForgetEncoding(job.in);
            job.failedFile = job.in;
            break;
        }
        job.failure =
            "[Unable to open file \"" + job.failedFile + "\" with libsndfile. Error is:\"";
    }
    return jobs;
}

// The failure of a job, or "".
std::string RunJob(const Job& job) {
    try {
        CopyByNewElements(job.in, job.out);
        return "";
    } catch (const KELRuntimeError& error) {
        return error.what();
    }
}

// Expects the outcome of a job. libsndfile keeps one text about a failed open for all threads, so
// the text may be that of another file and is not compared.
void ExpectOutcome(const Job& job, const std::string& message) {
    SCOPED_TRACE(job.in);
    if (job.failedFile.empty()) {
        EXPECT_EQ(message, "");
        EXPECT_EQ(BitsOf(ReadAudio(job.out).values), BitsOf(job.values));
        return;
    }
    EXPECT_EQ(message.substr(0, job.failure.size()), job.failure);
    ASSERT_GE(message.size(), job.failure.size() + 2);
    EXPECT_EQ(message.substr(message.size() - 2), "\"]");
}

std::vector<std::string> Sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

// Runs jobs at once, several times over.
// @param threads each has a job of its own
// @param run returns the failure of a job, as RunJob does
void RunJobsAtOnce(std::size_t threads, int rounds,
                   const std::function<std::string(const Job&)>& run) {
    LoadPlugin();
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        const TemporaryDirectory directory;
        const std::vector<Job> jobs = MakeJobs(directory, threads);
        const LogCapture log;
        std::vector<std::string> messages(threads);
        RunOnThreads(threads, [&](std::size_t i) { messages[i] = run(jobs[i]); });

        std::vector<std::string> failures;
        for (std::size_t i = 0; i < threads; ++i) {
            ExpectOutcome(jobs[i], messages[i]);
            if (!messages[i].empty()) {
                failures.push_back(messages[i]);
            }
        }
        EXPECT_EQ(Sorted(log->Messages(LogLevel::Error)), Sorted(failures));
        EXPECT_EQ(log->Messages(LogLevel::Warning), std::vector<std::string>());
    }
}

TEST(ElementsOfManyThreads, CopyTheirOwnFilesOrFailWithTheirOwnErrors) {
    RunJobsAtOnce(64, 2, RunJob);
}

// Samples on their way from a reading to a writing thread. The writing thread takes all of them at
// once, so that it then releases blocks while only the pool itself separates the threads.
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
        WriteAudio(in, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, pipeline.values);
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
        EXPECT_EQ(BitsOf(ReadAudio(pipeline.out).values), BitsOf(pipeline.values));
    }
}

} // namespace
} // namespace kel::test
