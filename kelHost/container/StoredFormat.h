/// Containers and encodings of files to read, as they are stored. One thread at a time for one
/// file.
#pragma once

#include "base/FileName.h"
#include "container/ChunkList.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Kinds of encodings, by what decoding them restores.
enum class Coding {
    Integer, ///< integers, also where they are packed without loss
    Float,
    Lossy, ///< an approximation of the recorded values
};

/// A container, and the encoding of the samples in it.
struct StoredFormat {
    std::string container; ///< "WAVE", "AIFF-C", "FLAC"
    std::string encoding;  ///< "24-bit integer", "ALAC 16-bit", "Vorbis"
    Coding coding = Coding::Lossy;
    std::uint32_t bits = 0;       ///< per value; 0 for lossy encodings
    std::uint32_t paddedBits = 0; ///< per value, with unused ones; 0 where values are packed

    /// Speakers of the channels, in the order of their bits, as in the field dwChannelMask of
    /// WAVEFORMATEXTENSIBLE (Microsoft, "Multiple Channel Audio Data and WAVE Files"). Missing
    /// where the file does not declare them, or has them in another order.
    std::optional<std::uint32_t> channelMask;

    /// Speakers of the channels that are not in this order, as bits of such a mask; 0 for one that
    /// has no bit. Empty where channelMask has them, and where they are not known.
    std::vector<std::uint32_t> speakers;
    std::string otherLayout; ///< a layout that channelMask cannot have: "C L R Ls Rs LFE"
};

/// Returns the format in words: "WAVE 24-bit integer", "FLAC 16-bit", "MP3".
std::string Describe(const StoredFormat& format);

/// Returns the format of a file with chunks and samples that are not compressed; none for others.
/// @throws JobError when the file cannot be read
std::optional<StoredFormat> ReadLinearFormat(const HeaderReader& header, const ChunkList& chunks);

/// Reads the format of a file: by its header, or by asking libsndfile.
/// @throws JobError when it cannot be opened or read
StoredFormat ReadStoredFormat(const FileName& file);

/// Does the same for a file that a source may read in another way: a format that libsndfile does
/// not know.
/// @return none for these
/// @throws JobError when the system fails to open or read the file
std::optional<StoredFormat> FindStoredFormat(const FileName& file);

} // namespace kel::host
