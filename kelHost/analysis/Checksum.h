/// Checksums of the samples of files. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "container/InputPolicy.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"
#include "jobs/Warnings.h"

#include <string>

namespace kel::host {

/// Returns the MD5 of a file's samples as StoredSamples delivers them, in hexadecimal digits. That
/// of a FLAC file equals the one in its header. That of other integers and floats equals the one
/// that ffmpeg's muxer "md5" computes for the file's encoding in little-endian order.
/// @param policy which files are accepted
/// @param log the current logger writer
/// @param reporter receives the progress
/// @param warnings receives those about what the policy accepts
/// @throws JobError when the file cannot be read, or ends early
std::string SampleMD5(const FileName& file, const InputPolicy& policy, const HostLogger& log,
                      Reporter& reporter, Warnings& warnings);

} // namespace kel::host
