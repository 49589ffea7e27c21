/// Speakers of channels: names of layouts, and weights for loudness. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Returns the usual name of a layout: "stereo", "5.1(side)"; its speakers where it has none:
/// "FL+FR+TC". Channels beyond those in the mask are counted: "FL+FR and 2 others". Bits beyond the
/// last channel do not count.
/// @param channels number of channels
/// @param mask speakers of the channels, as bits of the field dwChannelMask of
/// WAVEFORMATEXTENSIBLE (Microsoft, "Multiple Channel Audio Data and WAVE Files"); missing or 0
/// where the file does not declare them
/// @return "no layout" where there is no mask
std::string DescribeLayout(std::uint32_t channels, std::optional<std::uint32_t> mask);

/// Weight of a channel in the loudness of a programme (ITU-R BS.1770-4, tables 3 and 4).
enum class LoudnessWeight {
    None,     ///< low frequencies, and channels without a speaker
    Full,     ///< 1.0
    Surround, ///< 1.41: speakers at 60 to 120 degrees to the side, at the height of the ears
};

/// Returns the weight of each channel, in the order of the bits. Without a mask, up to eight
/// channels have the usual speakers of WAVE: mono, stereo, 3.0, quad, 5.0, 5.1, 6.1, 7.1. More than
/// eight have none, and no weight.
/// @param mask as for DescribeLayout
std::vector<LoudnessWeight> LoudnessWeights(std::uint32_t channels,
                                            std::optional<std::uint32_t> mask);

/// Returns the weight of each channel where the channels have another order than the bits.
/// @param speakers bit of each channel; 0 for none
std::vector<LoudnessWeight> LoudnessWeights(const std::vector<std::uint32_t>& speakers);

} // namespace kel::host
