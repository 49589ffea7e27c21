#include "analysis/Meter.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kel::host {

// A meter, its thread, and the samples that wait for it.
class MeterThreads::Worker {
public:
    Worker(Meter& meter, bool isThreaded) : m_meter(meter) {
        if (!isThreaded) {
            return;
        }
        try {
            m_thread = std::thread([this] { Run(); });
        } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch): works in Add
        }
    }

    ~Worker() { End(false); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Add(const SampleHandle& sample) {
        if (!m_thread.joinable()) {
            m_meter.Add(FloatsIn(*sample));
            return;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasSpace.wait(lock,
                        [this] { return m_samples.size() < kMaxQueued || m_error != nullptr; });
        if (m_error != nullptr) {
            std::rethrow_exception(m_error);
        }
        m_samples.push_back(sample);
        m_hasSamples.notify_one();
    }

    // Waits for the thread. The samples that are left are measured or skipped.
    void End(bool measuresRest) {
        if (!m_thread.joinable()) {
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isClosed = true;
            if (!measuresRest) {
                m_samples.clear();
            }
            m_hasSamples.notify_one();
        }
        m_thread.join();
        if (measuresRest && m_error != nullptr) {
            std::rethrow_exception(m_error);
        }
    }

private:
    static constexpr std::size_t kMaxQueued = 4;

    void Run() {
        try {
            while (const SampleHandle sample = Take()) {
                m_meter.Add(FloatsIn(*sample));
            }
        } catch (...) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_error = std::current_exception();
            m_hasSpace.notify_one();
        }
    }

    // Waits for a sample. Returns an empty handle at the end.
    SampleHandle Take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasSamples.wait(lock, [this] { return !m_samples.empty() || m_isClosed; });
        if (m_samples.empty()) {
            return nullptr;
        }
        SampleHandle sample = std::move(m_samples.front());
        m_samples.pop_front();
        m_hasSpace.notify_one();
        return sample;
    }

    Meter& m_meter;
    std::mutex m_mutex;
    std::condition_variable m_hasSpace;
    std::condition_variable m_hasSamples;
    std::deque<SampleHandle> m_samples;
    bool m_isClosed = false;
    std::exception_ptr m_error;
    std::thread m_thread;
};

MeterThreads::MeterThreads(const std::vector<Meter*>& meters, bool isThreaded) {
    for (Meter* meter : meters) {
        m_workers.push_back(std::make_unique<Worker>(*meter, isThreaded));
    }
}

MeterThreads::~MeterThreads() = default;

void MeterThreads::Add(const SampleHandle& sample) {
    for (const auto& worker : m_workers) {
        worker->Add(sample);
    }
}

void MeterThreads::Finish() {
    for (const auto& worker : m_workers) {
        worker->End(true);
    }
}

} // namespace kel::host
