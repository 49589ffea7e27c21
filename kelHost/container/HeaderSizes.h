/// Sizes in the headers of audio files, before and after writing. One thread at a time for one
/// file.
#pragma once

#include "audio/Formats.h"
#include "base/FileName.h"

#include <cstdint>
#include <string>

namespace kel::host {

/// Returns an upper bound of the size, in bytes, of a file with the given samples, its headers
/// included.
/// @param channels values per frame: a chunk of peaks grows with them
/// @param metadataBytes of chunks after the samples
std::uint64_t MaxFileSize(std::uint64_t sampleBytes, std::uint32_t channels,
                          std::uint64_t metadataBytes = 0);

/// True when every size in such a file fits into the 32 bits that WAVE and AIFF have for it.
bool FitsInto32Bits(std::uint64_t sampleBytes, std::uint32_t channels,
                    std::uint64_t metadataBytes = 0);

/// Verifies that a container can hold so many bytes of samples.
/// @param output the file to write, as the user knows it
/// @param alternative what to use instead, for the error
/// @param metadataBytes of chunks after the samples
/// @throws JobError when it cannot
void RequireFits(const Container& container, const std::string& output, std::uint64_t sampleBytes,
                 std::uint32_t channels, const std::string& alternative,
                 std::uint64_t metadataBytes = 0);

/// Verifies the sizes in a WAVE, RF64 or AIFF file: of the whole file, of the sample data, of the
/// chunks after it, and the number of frames where the header has it. Readers that go by the length
/// of the file accept a header that could not be rewritten at the end; other readers do not.
///
/// Sources of the layouts: RIFF and its chunks "data" and "fact" (IBM and Microsoft, "Multimedia
/// Programming Interface and Data Specifications 1.0", 1991), RF64 and "ds64" (EBU Tech 3306), FORM
/// and its chunks "COMM" and "SSND" (Apple, "Audio Interchange File Format AIFF-C", 1991).
/// @param file the file; other kinds of files are accepted unread
/// @param sampleBytes bytes of samples in it
/// @param frames frames in it
/// @throws JobError when a size is wrong, or the file cannot be read
void VerifyHeaderSizes(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames);

} // namespace kel::host
