/// Headers of files to read: where the samples are, and whether the file contains what its header
/// declares. One thread at a time for one file.
#pragma once

#include "base/FileName.h"
#include "container/ChunkList.h"
#include "container/FormatChunk.h"
#include "container/StoredFormat.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Position and amount of the samples in a file.
struct SampleLayout {
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;  ///< frames per second
    std::int64_t frames = 0; ///< that the file has, of those that the header declares
    std::uint64_t first = 0; ///< offset of the first sample, in bytes
};

/// The samples of one data chunk or block, as far as the file has them.
struct SamplePart {
    std::uint64_t offset = 0; ///< in bytes
    std::uint64_t bytes = 0;
    std::optional<std::uint8_t> silence; ///< value of the bytes, where the file has only a number
};

/// A part of a file that is missing at its end.
struct Truncation {
    std::uint64_t declared = 0; ///< frames, or bytes where the size of a frame is unknown
    std::uint64_t present = 0;  ///< of the same kind
    bool isInFrames = false;    ///< false: both are bytes
    bool hasAllSamples = false; ///< only chunks after the samples are missing; bytes of the file
};

/// A header, and the facts that follow from it.
struct InputHeader {
    std::uint64_t fileBytes = 0;
    std::string container;             ///< "WAVE", "RF64", "AIFF-C", "AU", "VOC", "CAF"
    bool isBigEndian = false;          ///< the numbers in the header
    std::optional<ChunkList> chunks;   ///< see ReadAllChunks; missing for others
    std::optional<FormatChunk> format; ///< missing when it is damaged
    std::vector<SamplePart> parts;     ///< one for each data chunk or block
    bool declaresLength = true;        ///< false when the size of the samples means "unknown"
    bool declaresNone = false;         ///< the declared size is 0, and samples follow
    std::uint64_t trailingBytes = 0;   ///< chunks that follow samples of unknown size
    std::uint64_t unreadBytes = 0;     ///< that follow the samples of an AU file
    std::optional<Truncation> truncation;
    std::optional<StoredFormat> stored; ///< of linear samples; missing where it needs libsndfile
    std::string obstacle;               ///< of VOC files, see Obstacle
    bool isRepairable = true;           ///< false for an obstacle without a remedy

    /// Bytes of samples that the file has.
    std::uint64_t SampleBytes() const;

    /// Compares the parts and the length of the file with what the header declares, and sets
    /// `truncation` where the file ends before.
    /// @param sampleBytes declared bytes of samples
    /// @param end declared end of the file, as an offset in bytes; 0 where it is unknown
    void FindTruncation(std::uint64_t sampleBytes, std::uint64_t end);

    /// Bytes per frame; 0 where that is unknown, or the values are compressed.
    std::uint64_t FrameBytes() const;

    /// The reason, beginning with "it", why programs do not open the file although it contains
    /// samples; empty for none.
    std::string Obstacle() const;

    /// The reason, beginning with "it", why a source that declares this number of frames does not
    /// deliver the samples; empty where it does, and where that cannot be known.
    std::string Misreading(std::int64_t frames) const;

    /// The number of frames that "COMM" declares, where the samples have another; none where both
    /// agree, or one is unknown.
    std::optional<std::uint64_t> OtherFrames() const;

    /// The layout of linear samples in one data chunk; none for others.
    std::optional<SampleLayout> Layout() const;

private:
    const char* OtherContent() const; // what follows the samples
};

/// Reads the chunks of a file like ReadChunkList, and also those after samples of unknown size.
/// Such samples have the size that they are found to have.
/// @return none for files that do not consist of chunks
/// @throws JobError when a header cannot be read
std::optional<ChunkList> ReadAllChunks(HeaderReader& header, std::uint64_t fileBytes);

/// Returns both counts in words: "declares 48000 frames and contains 12000".
std::string DescribeCounts(const Truncation& truncation);

/// Reads and judges the header of a file of chunks (see ChunkList.h), of AU, or of those in
/// VOCBlocks.h and OtherHeaders.h. All chunks but those of samples are read; of files without a
/// layout, the beginning and the end, which can contain a header. A library may take bytes that it
/// cannot read for zeros; here that is an error. Files that cannot be opened, and those that are
/// not regular files, are left to the source.
///
/// A size of the samples that reaches beyond the end of the file means truncation, except sizes
/// that programs write when they cannot go back to the header: 0, 0x7F000000, 0x7FFFF000,
/// 0x7FFFFFFF, 0x80000000 and 0xFFFFFFFF, and less by a part of a frame. Then the samples continue
/// to the end of the file, or to the first chunk of a known name from which chunks do.
///
/// Sources of the layouts: see ChunkList.h; AU: the header file of Sun's "audio" interface,
/// <multimedia/audio_filehdr.h>.
/// @return none for other files
/// @throws JobError when a part cannot be read
std::optional<InputHeader> ReadInputHeader(const FileName& file);

} // namespace kel::host
