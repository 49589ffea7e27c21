#include "transfer/StageRunner.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace kel::host {

namespace {

// A queue between two stages, so short that its samples are still in the processor's caches. A
// waiting stage is woken when there is work for a while, not for each sample: waking a thread takes
// longer than converting a sample.
class Queue {
public:
    // Waits for space. Returns false when the queue is closed and the sample was not added.
    bool Push(SampleHandle sample) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasSpace.wait(lock, [this] { return m_samples.size() < kMaxQueued || m_closed; });
        if (m_closed) {
            return false;
        }
        m_samples.push_back(std::move(sample));
        if (m_samples.size() == 1) {
            m_hasSamples.notify_one();
        }
        return true;
    }

    // Waits for a sample. Returns an empty handle at the end.
    SampleHandle Pop() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasSamples.wait(lock, [this] { return !m_samples.empty() || m_closed; });
        if (m_samples.empty()) {
            return nullptr;
        }
        SampleHandle sample = std::move(m_samples.front());
        m_samples.pop_front();
        if (m_samples.size() == kResumeBelow) {
            m_hasSpace.notify_one();
        }
        return sample;
    }

    // Accepts no more samples; those in the queue can still be taken.
    void Close() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        m_hasSpace.notify_one();
        m_hasSamples.notify_one();
    }

private:
    static constexpr std::size_t kMaxQueued = 4;
    static constexpr std::size_t kResumeBelow = 2; // samples left when a waiting stage resumes

    std::mutex m_mutex;
    std::condition_variable m_hasSpace;
    std::condition_variable m_hasSamples;
    std::deque<SampleHandle> m_samples;
    bool m_closed = false;
};

// Keeps the first exception of all stages.
class FirstError {
public:
    void Keep(std::exception_ptr error) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_error == nullptr) {
            m_error = std::move(error);
        }
    }

    bool IsSet() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_error != nullptr;
    }

    void Throw() {
        if (m_error != nullptr) {
            std::rethrow_exception(m_error);
        }
    }

private:
    std::mutex m_mutex;
    std::exception_ptr m_error;
};

} // namespace

void RunInline(Stages& stages) {
    while (SampleHandle sample = stages.Pull()) {
        stages.Push(stages.Converts() ? stages.Convert(sample) : sample);
    }
}

void RunOverlapped(Stages& stages, unsigned processors) {
    constexpr unsigned kStages = 3;
    const bool hasConverter = stages.Converts() && processors >= kStages;
    const bool convertsHere = stages.Converts() && !hasConverter;
    Queue pulled;
    Queue converted;
    FirstError firstError;
    // Runs a stage. In any case, closes the queues on both sides of it at its end.
    const auto runStage = [&firstError](auto body, Queue* before, Queue* after) {
        try {
            body();
        } catch (...) {
            firstError.Keep(std::current_exception());
        }
        for (Queue* queue : {before, after}) {
            if (queue != nullptr) {
                queue->Close();
            }
        }
    };

    std::thread reader;
    std::thread converter;
    try {
        reader = std::thread([&] {
            runStage(
                [&] {
                    while (SampleHandle sample = stages.Pull()) {
                        if (convertsHere) {
                            sample = stages.Convert(sample);
                        }
                        if (!pulled.Push(std::move(sample))) {
                            return;
                        }
                    }
                },
                nullptr, &pulled);
        });
        if (hasConverter) {
            converter = std::thread([&] {
                runStage(
                    [&] {
                        while (SampleHandle sample = pulled.Pop()) {
                            if (!converted.Push(stages.Convert(sample))) {
                                return;
                            }
                        }
                    },
                    &pulled, &converted);
            });
        }
    } catch (const std::system_error& error) {
        // One that was started finds its queue closed.
        firstError.Keep(std::make_exception_ptr(
            std::runtime_error("cannot start a thread: " + error.code().message() +
                               "; the number of processes and threads is limited (ulimit -u)")));
        pulled.Close();
        converted.Close();
    } catch (...) {
        firstError.Keep(std::current_exception());
        pulled.Close();
        converted.Close();
    }
    Queue& last = hasConverter ? converted : pulled;
    runStage(
        [&] {
            while (SampleHandle sample = last.Pop()) {
                // Samples that are queued after an error are not written.
                if (firstError.IsSet()) {
                    return;
                }
                stages.Push(sample);
            }
        },
        &last, nullptr);
    for (std::thread* thread : {&reader, &converter}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
    firstError.Throw();
}

} // namespace kel::host
