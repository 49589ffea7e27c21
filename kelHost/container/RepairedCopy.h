/// Copies of files with wrong headers, for sources that go by the header. One thread at a time.
#pragma once

#include "base/Descriptor.h"
#include "base/FileName.h"
#include "container/InputHeader.h"
#include "container/StepRunner.h"

#include <string>

namespace kel::host {

struct MPEGStream;

/// A file without a name, in the temporary directory. It exists as long as this object.
struct RepairedCopy {
    Descriptor descriptor;

    /// Path under which this process can open it.
    std::string Path() const;
};

/// Writes a new header with right sizes and the samples of a file after it. WAVE, RF64, BW64 and
/// W64 become WAVE, or RF64 where the samples need it; others keep their container. Metadata is not
/// copied. The copy shares the bytes of the samples with the file where the file system can do
/// that; holes stay holes.
/// @param header of the file
/// @param run runs the steps of the copying, each of at most 64 MiB
/// @throws JobError when the header lacks what a copy needs, the file cannot be read, or the
/// temporary directory (TMPDIR, else /tmp) has no room
RepairedCopy MakeRepairedCopy(const FileName& file, const InputHeader& header,
                              const StepRunner& run);

/// Writes the frames of an MPEG stream after one that declares their number.
/// @param run runs the steps of the copying, each of at most 64 MiB; empty: they are run here
/// @throws JobError when the file cannot be read, or the temporary directory has no room
RepairedCopy MakeCountedCopy(const FileName& file, const MPEGStream& stream, const StepRunner& run);

} // namespace kel::host
