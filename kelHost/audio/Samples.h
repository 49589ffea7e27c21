/// Samples (runs of frames) as the host handles them. Pure functions.
#pragma once

#include <ISampleContainer.h>

#include <cstddef>
#include <memory>

namespace kel {
class IAudioSample;
class IInfoContainer;
} // namespace kel

namespace kel::host {

/// One sample on its way from a source to a sink; empty at the end.
using SampleHandle = std::shared_ptr<const ISampleContainer>;

/// The values of a sample, interleaved 32-bit floats; 1.0 is full scale.
struct FloatView {
    const float* values = nullptr;
    std::size_t count = 0;
};

/// Magnitude from which a value counts as clipped: the largest positive value of 16 bits.
inline constexpr float kFullScale = 32767.0F / 32768.0F;

/// Returns the audio sample in a container that holds one.
std::shared_ptr<const IAudioSample> AudioSampleIn(const ISampleContainer& container);

/// Returns the values of a source's sample. They live as long as the container.
FloatView FloatsIn(const ISampleContainer& container);

} // namespace kel::host
