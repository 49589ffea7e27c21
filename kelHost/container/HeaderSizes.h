/// What the header of a file says of its size, before and after it is written.
#pragma once

#include "audio/Formats.h"
#include "elements/Elements.h"

#include <cstdint>
#include <string>

namespace kel::host {

/// The most bytes that a file with so many bytes of samples takes, the chunks around them included.
/// @param channels values per frame: a chunk of peaks grows with them
std::uint64_t MaxFileSize(std::uint64_t sampleBytes, std::uint32_t channels);

/// True when every size in such a file fits into the 32 bits that WAVE and AIFF have for them.
bool FitsInto32Bits(std::uint64_t sampleBytes, std::uint32_t channels);

/// Makes sure that a container can hold so many bytes of samples.
/// @param output the file that is to be written, as the user knows it
/// @param instead what to use otherwise
/// @throws JobError when it cannot
void RequireFits(const Container& container, const std::string& output, std::uint64_t sampleBytes,
                 std::uint32_t channels, const std::string& instead);

/// Makes sure that the sizes in a WAVE, RF64 or AIFF file are right: that of the whole, that of the
/// sample data, and the number of frames where it is told. A header that could not be rewritten at
/// the end is forgiven by readers that go by the file's length, and not by others.
///
/// Where they stand: RIFF and its chunks "data" and "fact" (IBM and Microsoft, "Multimedia
/// Programming Interface and Data Specifications 1.0", 1991), RF64 and "ds64" (EBU Tech 3306), FORM
/// and its chunks "COMM" and "SSND" (Apple, "Audio Interchange File Format AIFF-C", 1991).
/// @param file the file; one of another kind is not looked at
/// @param sampleBytes how many bytes of samples are in it
/// @param frames how many frames these are
/// @throws JobError when a size is wrong, or the file cannot be read
void VerifyHeaderSizes(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames);

} // namespace kel::host
