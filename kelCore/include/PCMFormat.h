/// The format of interleaved PCM frames as one value.
/// A small value type: any thread may use its own copy. Header-only.
/// @ingroup formats
#pragma once

#include "ACodecFamily.h"
#include "AudioPCMType.h"
#include "ContentType.h"
#include "IAudioInfo.h"
#include "IAudioParameters_PCM.h"
#include "IChannelInfo.h"
#include "ITrack.h"
#include "ITrackGroup.h"
#include "PCMEndianness.h"
#include "PCMMuxing.h"
#include "TrackLayout.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kel {

/// The format of interleaved PCM frames. Without changes the values are 32-bit float,
/// little-endian: `PCMFormat{48000, 2}` is complete.
struct PCMFormat {
    std::uint32_t rate = 0;                           ///< frames per second, in hertz
    std::uint32_t channels = 0;                       ///< values in a frame
    AudioPCMType type = AudioPCMType::Float;          ///< number type of a value
    std::uint8_t bytesPerValue = 4;                   ///< in memory
    PCMEndianness endianness = PCMEndianness::Little; ///< byte order of a value
};

/// Returns true when all members are equal.
constexpr bool operator==(const PCMFormat& left, const PCMFormat& right) {
    return left.rate == right.rate && left.channels == right.channels && left.type == right.type &&
           left.bytesPerValue == right.bytesPerValue && left.endianness == right.endianness;
}

/// Returns the opposite of operator==.
constexpr bool operator!=(const PCMFormat& left, const PCMFormat& right) {
    return !(left == right);
}

/// Returns the bytes of a frame.
constexpr std::uint64_t BytesPerFrame(const PCMFormat& format) {
    return std::uint64_t{format.channels} * format.bytesPerValue;
}

/// Returns a text for messages: "32-bit float little-endian, 2 channels, 48000 Hz".
inline std::string ToString(const PCMFormat& format) {
    std::string text = std::to_string(8 * format.bytesPerValue) + "-bit";
    if (format.type != AudioPCMType::Undefined) {
        text += format.type == AudioPCMType::Float ? " float" : " integer";
    }
    if (format.endianness != PCMEndianness::Undefined) {
        text += format.endianness == PCMEndianness::Big ? " big-endian" : " little-endian";
    }
    text += ", " + std::to_string(format.channels);
    text += format.channels == 1 ? " channel, " : " channels, ";
    return text + std::to_string(format.rate) + " Hz";
}

/// Makes codec parameters of a format, with all bits of a value significant and the channels
/// multiplexed.
inline std::shared_ptr<IAudioParameters_PCM> CreateAudioParameters(const PCMFormat& format) {
    auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetSampleRate(format.rate);
    parameters->SetPCMType(format.type);
    parameters->SetSampleSize(format.bytesPerValue);
    parameters->SetBitsDepth(static_cast<std::uint8_t>(8 * format.bytesPerValue));
    parameters->SetEndianness(format.endianness);
    parameters->SetMuxing(PCMMuxing::Multi);
    return parameters;
}

/// Describes one stream of PCM.
/// @param format the format of its frames
/// @param group name of the group of its track
inline std::shared_ptr<IAudioInfo> CreateAudioInfo(const PCMFormat& format,
                                                   const std::string& group) {
    const auto track = CreateTrack(ContentType::Audio, format.channels, CreateTrackGroup(group),
                                   TrackLayout::Default);
    return CreateAudioInfo(CreateAudioParameters(format), CreateChannelInfo(track), {}, {});
}

/// Returns the format of a stream; empty when it is not PCM, or its frames have no bytes.
inline std::optional<PCMFormat> ReadFormat(const IAudioInfo& info) {
    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info.GetAudioParameters());
    const auto channels = info.GetChannelInfo();
    if (parameters == nullptr || channels == nullptr) {
        return std::nullopt;
    }
    const PCMFormat format{parameters->GetSampleRate(), channels->GetNumberOfChannels(),
                           parameters->GetPCMType(), parameters->GetSampleSize(),
                           parameters->GetEndianness()};
    return BytesPerFrame(format) != 0 ? std::optional(format) : std::nullopt;
}

} // namespace kel
