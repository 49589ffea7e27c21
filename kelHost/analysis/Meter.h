/// Measuring the samples of a file, several properties at the same time.
#pragma once

#include "audio/Samples.h"

#include <memory>
#include <vector>

namespace kel::host {

/// Measures one property. One thread at a time.
class Meter {
public:
    virtual ~Meter() = default;

    /// Adds the next values, whole frames.
    virtual void Add(const FloatView& floats) = 0;
};

/// Passes samples to meters, each of which works on a thread of its own. The results do not depend
/// on the number of threads, because each meter receives all samples in their order. Used by one
/// thread.
class MeterThreads {
public:
    /// @param meters outlive the object
    /// @param isThreaded false: meters work in Add, for work that is too short to be divided. So do
    /// those for which the system has no thread
    MeterThreads(const std::vector<Meter*>& meters, bool isThreaded);

    /// Ends the threads, which skip what they have not measured yet.
    ~MeterThreads();
    MeterThreads(const MeterThreads&) = delete;
    MeterThreads& operator=(const MeterThreads&) = delete;

    /// Adds a sample. Waits while a meter has several left to measure.
    /// @throws the exception of a meter
    void Add(const SampleHandle& sample);

    /// Waits until everything is measured.
    /// @throws the exception of a meter
    void Finish();

private:
    class Worker;

    std::vector<std::unique_ptr<Worker>> m_workers;
};

} // namespace kel::host
