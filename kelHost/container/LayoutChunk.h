/// The chunks "chan" of CAF and "CHAN" of AIFF files: speakers of the channels. One thread at a
/// time for one file.
///
/// Sources: Apple, "Apple Core Audio Format Specification 1.0", Channel Layout Chunk; the layouts
/// and labels that the header CoreAudioBaseTypes.h lists.
#pragma once

#include "base/FileName.h"
#include "container/ChunkList.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Speakers as a file declares them.
struct SpeakerLayout {
    /// Speakers of the channels, as the field dwChannelMask of WAVEFORMATEXTENSIBLE has them.
    /// Missing where some have no bit in it, or another order than the bits.
    std::optional<std::uint32_t> mask;
    std::vector<std::uint32_t> speakers; ///< bit of each channel, 0 for none; empty: see mask
    std::string name;                    ///< "C L R Ls Rs LFE" or "0x00910010"; empty: see mask
};

/// Reads the layout of an AIFF file.
/// @param channels number of the file's
/// @return none where it declares no speakers
/// @throws JobError when it cannot be read
std::optional<SpeakerLayout> ReadAIFFLayout(const HeaderReader& header, const ChunkList& chunks,
                                            std::uint32_t channels);

/// Reads the layout of a CAF or AIFF file.
/// @return none for other files, and where it declares no speakers
/// @throws JobError when it cannot be read
std::optional<SpeakerLayout> ReadSpeakerLayout(const FileName& file, std::uint32_t channels);

} // namespace kel::host
