/// Waveforms as lines of characters, for terminals. Pure functions.
#pragma once

#include "analysis/Envelope.h"
#include "analysis/LevelAxis.h"

#include <cstddef>
#include <string>

namespace kel::host {

/// Characters of a plot.
enum class CharacterSet {
    Unicode, ///< blocks in eighths of a line
    ASCII,   ///< for terminals that do not show UTF-8
};

/// Returns the number of columns of a waveform.
/// @param width characters in a line; a plot is never narrower than 20
std::size_t CharacterColumns(std::size_t width);

/// Returns a lane for each channel: bars of the peak levels, with the level at the top of each line
/// in front and the number of the channel in front of the last one. "!" marks full scale. If each
/// column of the envelope is a frame, the bars follow a line through the frames over the whole
/// width.
/// @param columns number of columns of the waveform
std::string DrawCharacters(const Envelope& envelope, const LevelAxis& axis, std::size_t columns,
                           CharacterSet characters);

} // namespace kel::host
