/// Completing the headers of finished outputs. One thread at a time for one file.
#pragma once

#include "audio/PeakMeter.h"
#include "base/FileName.h"

#include <cstdint>
#include <vector>

namespace kel::host {

/// Writes the speakers of the channels into a WAVE, RF64 or AIFF file. The sink leaves a mask by
/// the number of channels in the first two, and none in AIFF.
///
/// Sources of the layouts: WAVEFORMATEXTENSIBLE (Microsoft, "Multiple Channel Audio Data and WAVE
/// Files"), the chunk "CHAN" with a bitmap (Apple, "Core Audio Format Specification 1.0", Channel
/// Layout Chunk), whose bits are the same.
/// @param file a file that was just written; other kinds of files are left as they are
/// @param mask see StoredFormat::channelMask; 0 for no speakers, for which AIFF needs no chunk
/// @throws JobError when the file cannot be read or written
void WriteChannelMask(const FileName& file, std::uint32_t mask);

/// Writes peaks into the chunk "PEAK" of a WAVE file with floats, which the sink leaves empty.
///
/// The layout is that of libsndfile: a version, the time, and for each channel the magnitude as a
/// 32-bit float and the frame in 32 bits.
/// @param file a file that was just written; one without room for the peaks is left as it is
/// @param peaks of the channels; a frame beyond 32 bits becomes the largest that they hold
/// @param time of writing, in seconds since 1970
/// @throws JobError when the file cannot be read or written
void WritePeaks(const FileName& file, const std::vector<ChannelPeak>& peaks, std::uint32_t time);

/// Returns the time to write into files: that of the environment variable SOURCE_DATE_EPOCH, or 0,
/// so that the same work produces the same bytes.
/// @throws JobError when the variable is no integer of 32 bits
std::uint32_t TimeOfWriting();

} // namespace kel::host
