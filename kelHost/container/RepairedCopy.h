/// Copies of files with wrong headers, for sources that go by the header. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "base/TemporaryFile.h"
#include "container/InputHeader.h"
#include "container/StepRunner.h"

#include <string>

namespace kel::host {

struct MPEGStream;

/// Writes a new header with right sizes and the samples of a file after it. WAVE, RF64, BW64, W64
/// and VOC become WAVE, or RF64 where the samples need it; others keep their container. Metadata is
/// not copied. The copy shares the bytes of the samples with the file where the file system can do
/// that; holes stay holes. Silences of VOC are written out.
/// @param header of the file
/// @param directory of the copy
/// @param run runs the steps of the copying, each of at most 64 MiB
/// @throws JobError when the header lacks what a copy needs, the file cannot be read, or the
/// directory has no room
TemporaryFile MakeRepairedCopy(const FileName& file, const InputHeader& header,
                               const std::string& directory, const StepRunner& run);

/// Writes the frames of an MPEG stream after one that declares their number. Where none can,
/// programs estimate the number, and a hole follows the frames so that they do not end too early.
/// @param directory of the copy
/// @param run runs the steps of the copying, each of at most 64 MiB; empty: they are run here
/// @throws JobError when the file cannot be read, or the directory has no room
TemporaryFile MakeCountedCopy(const FileName& file, const MPEGStream& stream,
                              const std::string& directory, const StepRunner& run);

} // namespace kel::host
