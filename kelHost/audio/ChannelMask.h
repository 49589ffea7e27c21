/// Speakers of channels. Pure functions.
#pragma once

#include <cstdint>
#include <vector>

namespace kel::host {

/// Returns the field dwChannelMask of an output. The bits of a mask are the speakers of the
/// channels, in ascending order; further channels have no speaker.
/// @param mask of the input; 0 for none
/// @param channels number of the input's
/// @param picked indices of the channels to copy, from 0; empty: all
/// @return the mask of the input if all channels are kept in order, and the bits of the picked
/// channels if these are ascending; otherwise 0
std::uint32_t PickSpeakers(std::uint32_t mask, std::uint32_t channels,
                           const std::vector<std::uint32_t>& picked);

/// Does the same where the channels of the input have another order than the bits.
/// @param speakers bit of each channel of the input; 0 for none
/// @return the bits of the picked channels if these are ascending; otherwise 0
std::uint32_t PickSpeakers(const std::vector<std::uint32_t>& speakers,
                           const std::vector<std::uint32_t>& picked);

/// Returns the channels in the order of their bits, from 0; empty where one has no bit, or the bit
/// of another.
std::vector<std::uint32_t> OrderBySpeakers(const std::vector<std::uint32_t>& speakers);

} // namespace kel::host
