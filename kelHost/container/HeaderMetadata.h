/// Metadata of small containers, whose texts libsndfile does not report. One thread at a time.
///
/// Sources of the layouts: 8SVX and 16SV (Electronic Arts, "8SVX IFF 8-Bit Sampled Voice", 1985),
/// NIST SPHERE (National Institute of Standards and Technology, "SPeech HEader REsources"), IRCAM
/// (Berkeley/IRCAM/CARL sound files, "sfheader.h"), AVR (Audio Visual Research, header of 128
/// bytes), MPC2000 (Akai, sound files of the MPC2000), SDS (MIDI Manufacturers Association, "Sample
/// Dump Standard"), XI (FastTracker 2, extended instrument).
#pragma once

#include "container/HeaderReader.h"
#include "container/MetadataBuilder.h"

#include <cstdint>

namespace kel::host {

/// Adds the texts of 8SVX, NIST SPHERE, IRCAM, AVR, MPC2000, SDS and XI files, and the kinds of
/// their other items.
/// @return false for files of other containers
/// @throws JobError when the file cannot be read
bool AddHeaderMetadata(const HeaderReader& header, std::uint64_t fileBytes,
                       MetadataBuilder& builder);

} // namespace kel::host
