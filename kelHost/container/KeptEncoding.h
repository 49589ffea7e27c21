/// The encoding of an output that keeps the samples of its input. Pure functions.
#pragma once

#include "audio/Formats.h"
#include "container/StoredFormat.h"

#include <optional>

namespace kel::host {

/// Returns the input's encoding where a container has it; otherwise the smallest one that holds the
/// same values: 16 bits for 8 and 12, 24 for 20. Lossy encodings become the floats that they are
/// decoded to. AIFF holds no floats here: they become 24-bit integers, which round them.
/// @param stored the format of the input; none when it is unknown: the floats that the source
/// delivers are kept
const Encoding& KeptEncoding(const std::optional<StoredFormat>& stored, const Container& container);

/// True when an encoding has a value for each of a stored format. For lossy encodings, these are
/// the floats that they are decoded to.
bool HoldsEveryValue(const Encoding& encoding, const StoredFormat& stored);

} // namespace kel::host
