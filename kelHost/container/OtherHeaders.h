/// Headers of CAF, NIST SPHERE, 8SVX and WVE files, as far as they declare the number of samples.
/// One thread at a time for one file.
///
/// Sources of the layouts: Apple, "Apple Core Audio Format Specification 1.0"; NIST, "SPeech HEader
/// REsources", the page of sp_header; Electronic Arts, "8SVX: IFF 8-bit Sampled Voice", 1985;
/// Psion, "Sound file format of the Series 3a".
#pragma once

#include "container/HeaderReader.h"
#include "container/InputHeader.h"

#include <cstdint>
#include <optional>

namespace kel::host {

/// Reads and judges the header of such a file. libsndfile does not compare its sizes with the file.
/// It refuses CAF files that do not declare the size of their samples, and ends early where these
/// are cut off; both can be repaired. In the others, it reads bytes after the samples as samples.
/// @return none for other files
/// @throws JobError when it cannot be read
std::optional<InputHeader> JudgeOther(const HeaderReader& header, std::uint64_t fileBytes);

} // namespace kel::host
