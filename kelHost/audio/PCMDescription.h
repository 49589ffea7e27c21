/// Descriptions of PCM audio for sinks. Pure functions.
#pragma once

#include "audio/Formats.h"

#include <IAudioInfo.h>
#include <IInfoContainer.h>

#include <cstdint>
#include <memory>

namespace kel::host {

/// Returns the description of a PCM stream.
/// @param rate frames per second
std::shared_ptr<const IAudioInfo> DescribePCM(const Encoding& encoding, PCMEndianness byteOrder,
                                              std::uint32_t rate, std::uint32_t channels);

/// Returns the number of channels of the first stream.
std::uint32_t ChannelsOf(const IInfoContainer& description);

/// Returns the rate, in frames per second, of the first stream, which is PCM.
std::uint32_t RateOf(const IInfoContainer& description);

} // namespace kel::host
