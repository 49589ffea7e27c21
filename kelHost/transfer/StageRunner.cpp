#include "transfer/StageRunner.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace kel::host {

namespace {

// A queue of so few samples that what is in it is still in the processor's caches, between one
// stage and the next. A stage that had to wait is woken when there is work for a while, not for
// each sample: waking a thread takes longer than converting a sample.
class Queue {
public:
    /// Waits for room. False when nobody will take the sample any more.
    bool Push(SampleHandle sample) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasRoom.wait(lock, [this] { return m_samples.size() < kMost || m_closed; });
        if (m_closed) {
            return false;
        }
        m_samples.push_back(std::move(sample));
        if (m_samples.size() == 1) {
            m_hasSamples.notify_one();
        }
        return true;
    }

    /// Waits for a sample. Empty at the end.
    SampleHandle Pop() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasSamples.wait(lock, [this] { return !m_samples.empty() || m_closed; });
        if (m_samples.empty()) {
            return nullptr;
        }
        SampleHandle sample = std::move(m_samples.front());
        m_samples.pop_front();
        if (m_samples.size() == kFew) {
            m_hasRoom.notify_one();
        }
        return sample;
    }

    /// No more samples come; those in the queue can still be taken.
    void Close() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        m_hasRoom.notify_one();
        m_hasSamples.notify_one();
    }

private:
    static constexpr std::size_t kMost = 4;
    static constexpr std::size_t kFew = 2; // when a stage that waits for room goes on

    std::mutex m_mutex;
    std::condition_variable m_hasRoom;
    std::condition_variable m_hasSamples;
    std::deque<SampleHandle> m_samples;
    bool m_closed = false;
};

// The first exception of all stages.
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

void RunInline(const Stages& stages) {
    while (SampleHandle sample = stages.pull()) {
        if (stages.convert) {
            sample = stages.convert(std::move(sample));
        }
        stages.push(std::move(sample));
    }
}

void RunOverlapped(const Stages& stages, unsigned processors) {
    constexpr unsigned kStages = 3;
    const bool hasConverter = stages.convert && processors >= kStages;
    Queue pulled;
    Queue converted;
    FirstError firstError;
    // Runs a stage; whatever way it ends, the queues on both sides of it are closed.
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
                    while (SampleHandle sample = stages.pull()) {
                        if (stages.convert && !hasConverter) {
                            sample = stages.convert(std::move(sample));
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
                            if (!converted.Push(stages.convert(std::move(sample)))) {
                                return;
                            }
                        }
                    },
                    &pulled, &converted);
            });
        }
    } catch (...) {
        // The system has no thread to spare; one that was started finds its queue closed.
        firstError.Keep(std::current_exception());
        pulled.Close();
        converted.Close();
    }
    Queue& last = hasConverter ? converted : pulled;
    runStage(
        [&] {
            while (SampleHandle sample = last.Pop()) {
                // What is still in the queues after an error is not written.
                if (firstError.IsSet()) {
                    return;
                }
                stages.push(std::move(sample));
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
