/// Overlapped stages: reading, converting and writing at the same time.
#pragma once

#include "audio/Samples.h"

namespace kel::host {

/// The stages of a transfer. Each function is called by one thread.
class Stages {
public:
    virtual ~Stages() = default;

    /// Returns the next sample; empty at the end.
    virtual SampleHandle Pull() = 0;

    /// True when samples are to be converted.
    virtual bool Converts() const = 0;

    /// Returns the converted sample.
    virtual SampleHandle Convert(const SampleHandle& sample) = 0;

    /// Writes a sample. Called on the thread that runs the stages.
    virtual void Push(const SampleHandle& sample) = 0;
};

/// Runs the stages until Pull returns an empty handle, each on a thread of its own with short
/// queues in between, so that memory does not grow with the length of the work. The first exception
/// of any stage ends all of them and is thrown from here.
/// @param processors number of processors; with fewer than three, the reader's thread converts,
/// while the samples are still in its caches
void RunOverlapped(Stages& stages, unsigned processors);

/// Runs the stages on the calling thread, for work that is too short to be divided.
void RunInline(Stages& stages);

} // namespace kel::host
