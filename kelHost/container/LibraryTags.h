/// Tags that libsndfile reads. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "container/MetadataBuilder.h"

namespace kel::host {

/// Adds the texts that libsndfile finds in a file; none when it cannot open it.
void AddLibraryTags(const FileName& file, MetadataBuilder& builder);

} // namespace kel::host
