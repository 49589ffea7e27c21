/// Waveforms as pictures: PNG, SVG and PDF. One thread at a time for one picture.
#pragma once

#include "analysis/Envelope.h"
#include "analysis/LevelAxis.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::host {

/// Size of a picture in pixels or points.
struct PictureSize {
    std::size_t width = 0;
    std::size_t height = 0;
};

/// Texts and times of a picture.
struct PictureCaption {
    std::string name;        ///< of the file, escaped; shortened where it does not fit
    std::string facts;       ///< follows the name
    double startSeconds = 0; ///< beginning of the part that is drawn
    double seconds = 0;      ///< its duration, more than 0
};

/// Verifies that the extension of a name is one of a picture: .png, .svg or .pdf.
/// @throws UsageError when it is not
void RequirePictureExtension(const std::string& name);

/// Largest width and height that a user can choose.
constexpr std::size_t kMaxPictureSide = 30000;

/// Verifies that a picture of this size can be drawn, before anything is read or written. A .png
/// cannot be higher or wider than 32767 pixels, and needs four bytes of memory for each.
/// @param name its extension selects the kind of picture
/// @throws JobError with the cause and a remedy
void RequireDrawable(const std::string& name, const PictureSize& size);

/// Returns the usual size for a number of channels.
PictureSize DefaultPictureSize(std::uint32_t channels);

/// Returns the number of columns that a waveform has in a picture.
std::size_t PictureColumns(const PictureSize& size, std::size_t channels);

/// Draws a waveform: a lane for each channel with the peaks and, darker, the RMS level, red marks
/// where values reach full scale, and a time axis.
/// @param name the picture as the user named it; its extension selects the kind
/// @param path the file to write, under any name
/// @return why the picture could not be drawn or written; empty when it was
std::string WritePicture(const std::string& name, const std::string& path, const PictureSize& size,
                         const Envelope& envelope, const LevelAxis& axis,
                         const PictureCaption& caption);

} // namespace kel::host
