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

} // namespace kel::host
