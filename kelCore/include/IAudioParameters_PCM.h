/// Parameters of a linear PCM stream.
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
/// fresh object has zeros and undefined values. One thread fills it; once shared as const it is
/// only read.
class KEL_CORE_EXPORT IAudioParameters_PCM : public IAudioParameters {
public:
    ~IAudioParameters_PCM() override;

    /// Sets the frames per second, in hertz.
    virtual void SetSampleRate(std::uint32_t hertz) = 0;
    /// Frames per second, in hertz.
    virtual std::uint32_t GetSampleRate() const = 0;
    /// Byte order of a sample value.
    virtual PCMEndianness GetEndianness() const = 0;
    /// Sets the byte order of a sample value.
    virtual void SetEndianness(PCMEndianness endianness) = 0;
    /// How the channels are combined.
    virtual PCMMuxing GetMuxing() const = 0;
    /// Sets how the channels are combined.
    virtual void SetMuxing(PCMMuxing muxing) = 0;
    /// Number type of a sample value.
    virtual AudioPCMType GetPCMType() const = 0;
    /// Sets the number type of a sample value.
    virtual void SetPCMType(AudioPCMType type) = 0;
    /// Bytes per sample value in memory.
    virtual std::uint8_t GetSampleSize() const = 0;
    /// Sets the bytes per sample value in memory.
    virtual void SetSampleSize(std::uint8_t bytes) = 0;
    /// Significant bits per sample value.
    virtual std::uint8_t GetBitsDepth() const = 0;
    /// Sets the significant bits per sample value.
    virtual void SetBitsDepth(std::uint8_t bits) = 0;
};

/// Linear PCM.
template <>
struct AudioParameters_trait<ACodecFamily::PCM> {
    using AudioParametersPtr = std::shared_ptr<IAudioParameters_PCM>; ///< what it is held by
};

} // namespace kel
