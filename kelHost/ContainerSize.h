/// What the header of a written file says of its size.
#pragma once

#include "Elements.h"

#include <cstdint>

namespace kel::host {

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
/// @throws JobError when a size is wrong, or the file can not be read
void CheckContainerSize(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames);

} // namespace kel::host
