/// Pages and streams of Ogg files. One thread at a time for one file.
///
/// Source of the layout: RFC 3533.
#pragma once

#include "base/FileName.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kel::host {

/// The header of a page.
struct OggPage {
    std::uint32_t stream = 0;  ///< its number
    std::uint32_t number = 0;  ///< of the page in its stream, from 0
    bool isFirst = false;      ///< the page begins its stream
    std::string pieces;        ///< their sizes in bytes, a byte for each
    std::uint64_t content = 0; ///< offset in the file, in bytes
    std::uint64_t end = 0;     ///< offset of the next page
};

/// Reads the header of a page.
/// @return none where no page begins
/// @throws JobError when it cannot be read
std::optional<OggPage> ReadOggPage(const HeaderReader& header, std::uint64_t offset);

/// True when other streams follow the first ones of an Ogg file ("chained"), as in recordings of
/// radio programmes. libsndfile reads only what precedes them.
///
/// The pages are not all read: few places are looked at, each about a tenth further than the one
/// before. A page of another stream shows that streams follow, and so does a lower number of a page
/// than before, where a stream begins between both places. That is noticed unless the pages of the
/// first stream are ten times as large as those of the second.
/// @throws JobError when it cannot be read
bool HasFurtherOggStreams(const FileName& file);

} // namespace kel::host
