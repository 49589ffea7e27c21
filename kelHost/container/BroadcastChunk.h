/// The chunk "bext" of WAVE files. Pure functions.
///
/// Source of the layout: EBU Tech 3285, version 2 (2011).
#pragma once

#include "container/Metadata.h"
#include "container/StoredBytes.h"

#include <cstddef>
#include <string>

namespace kel::host {

/// The fields before the coding history, in bytes.
inline constexpr std::size_t kBroadcastBytes = 602;

/// Returns the fields of a chunk. Those that are missing from its end are empty or 0.
Broadcast ParseBroadcast(const StoredBytes& content);

/// Returns the content of a chunk. Texts longer than their fields are cut.
std::string FormatBroadcast(const Broadcast& broadcast, StoredOrder order);

/// True when no text is longer than its field.
bool FitsIntoFields(const Broadcast& broadcast);

} // namespace kel::host
