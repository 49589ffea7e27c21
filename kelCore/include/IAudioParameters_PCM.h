/// Parameters of a linear PCM stream.
/// One thread fills them; once shared as const, any number of threads may read them.
/// @ingroup formats
#pragma once

#include "AudioPCMType.h"
#include "Export.h"
#include "IAudioParameters.h"
#include "PCMEndianness.h"
#include "PCMMuxing.h"

#include <cstdint>
#include <memory>

namespace kel {

/// Parameters of a linear PCM stream. The setters may be called in any order and check nothing; a
/// new object has zeros and undefined values.
class KEL_CORE_EXPORT IAudioParameters_PCM : public IAudioParameters {
public:
    ~IAudioParameters_PCM() override;

    /// Sets the frames per second, in hertz.
    /// [any, one thread, does not throw]
    virtual void SetSampleRate(std::uint32_t hertz) = 0;
    /// Returns the frames per second, in hertz.
    /// [any, any thread, does not throw]
    virtual std::uint32_t GetSampleRate() const = 0;
    /// Returns the byte order of a sample value.
    /// [any, any thread, does not throw]
    virtual PCMEndianness GetEndianness() const = 0;
    /// Sets the byte order of a sample value.
    /// [any, one thread, does not throw]
    virtual void SetEndianness(PCMEndianness endianness) = 0;
    /// Returns the combination of the channels.
    /// [any, any thread, does not throw]
    virtual PCMMuxing GetMuxing() const = 0;
    /// Sets the combination of the channels.
    /// [any, one thread, does not throw]
    virtual void SetMuxing(PCMMuxing muxing) = 0;
    /// Returns the number type of a sample value.
    /// [any, any thread, does not throw]
    virtual AudioPCMType GetPCMType() const = 0;
    /// Sets the number type of a sample value.
    /// [any, one thread, does not throw]
    virtual void SetPCMType(AudioPCMType type) = 0;
    /// Returns the bytes per sample value in memory.
    /// [any, any thread, does not throw]
    virtual std::uint8_t GetSampleSize() const = 0;
    /// Sets the bytes per sample value in memory.
    /// [any, one thread, does not throw]
    virtual void SetSampleSize(std::uint8_t bytes) = 0;
    /// Returns the significant bits per sample value.
    /// [any, any thread, does not throw]
    virtual std::uint8_t GetBitsDepth() const = 0;
    /// Sets the significant bits per sample value.
    /// [any, one thread, does not throw]
    virtual void SetBitsDepth(std::uint8_t bits) = 0;
};

/// Linear PCM.
template <>
struct AudioParameters_trait<ACodecFamily::PCM> {
    using AudioParametersPtr = std::shared_ptr<IAudioParameters_PCM>; ///< handle of the parameters
};

} // namespace kel
