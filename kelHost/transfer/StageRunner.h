/// Stages that overlap: reading, converting and writing at the same time.
#pragma once

#include <ISampleContainer.h>

#include <functional>
#include <memory>

namespace kel::host {

/// What travels between the stages.
using SampleHandle = std::shared_ptr<const ISampleContainer>;

/// What the stages do. Each is called by one thread only.
struct Stages {
    std::function<SampleHandle()> pull;                ///< the next samples; empty at the end
    std::function<SampleHandle(SampleHandle)> convert; ///< empty when there is nothing to convert
    std::function<void(SampleHandle)> push; ///< called on the thread that runs the stages
};

/// Runs the stages until pull gives an empty handle, each on a thread of its own with short queues
/// in between, so that memory does not grow with the length of the work. The first exception of any
/// stage ends all and is thrown from here; nobody waits for a stage that has ended.
/// @param processors how many there are to work on; with fewer than three, converting is done on
/// the reader's thread, where the samples still are in the caches
void RunOverlapped(const Stages& stages, unsigned processors);

/// Does the same on the calling thread alone, for work that is too short to be shared.
void RunInline(const Stages& stages);

} // namespace kel::host
