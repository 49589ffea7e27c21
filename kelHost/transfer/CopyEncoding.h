/// The encoding of a copy, and the values that it changes. One thread at a time for one copy.
#pragma once

#include "audio/Formats.h"
#include "base/FileName.h"
#include "container/RoundedValues.h"
#include "container/StoredFormat.h"
#include "jobs/Job.h"
#include "jobs/Warnings.h"
#include "transfer/Copy.h"

#include <cstdint>
#include <optional>

namespace kel::host {

/// Returns the requested encoding, or the one that keeps the samples of the input.
/// @param stored the format of the input; none when it is unknown
/// @throws JobError when it does not suit CopyOptions::dither or CopyOptions::requireExact
const Encoding& ChooseEncoding(const CopyRequest& request,
                               const std::optional<StoredFormat>& stored);

/// Counts the values of the input that are rounded by the floats of the source, or by an encoding
/// that was not requested. Reads the input once more where there may be any, and warns of them.
/// @param encoding of the output
/// @param file the input, as it is read
/// @param values the copied part; integerBits are set here
/// @throws JobError when there are any and CopyOptions::requireExact forbids that, or when the
/// input cannot be read
std::uint64_t CountRoundedValues(const CopyRequest& request,
                                 const std::optional<StoredFormat>& stored,
                                 const Encoding& encoding, const FileName& file,
                                 CountedValues values, Reporter& reporter, Warnings& warnings);

} // namespace kel::host
