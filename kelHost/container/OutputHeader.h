/// Completing the headers of finished outputs. One thread at a time for one file.
#pragma once

#include "base/FileName.h"

#include <cstdint>

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

} // namespace kel::host
