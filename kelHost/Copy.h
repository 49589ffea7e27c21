/// Copying a file through a source and a sink.
#pragma once

#include "Conversion.h"
#include "Elements.h"
#include "Formats.h"
#include "HostLog.h"

#include <PCMEndianness.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// What to copy, and into what.
struct CopyRequest {
    std::string input;
    std::string output;
    const Container* container = nullptr; ///< null: what the output's extension means
    bool replace = false;                 ///< whether a file that stands there may be replaced
    std::uint32_t blockFrames = 16384;    ///< most frames in a sample
};

/// What came out of it.
struct CopyResult {
    const Container* container = nullptr;
    const Encoding* encoding = nullptr;
    PCMEndianness byteOrder = PCMEndianness::Little;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;                    ///< frames per second
    std::int64_t frames = 0;                   ///< frames read, and as many written
    std::vector<ChannelConversion> conversion; ///< per channel
};

/// Copies one file. The output appears under its name only when it is whole: closed, without a
/// record at level Error, and found to have the right frames, channels and rate when it is opened
/// again.
/// @param log the current logger writer
/// @throws UsageError when the container is not known, JobError when the copy failed; nothing is
/// left under the output's name then but what stood there before
CopyResult Copy(const CopyRequest& request, const HostLog& log);

/// The report of a copy for people: one line, and one for each channel whose values were clipped or
/// were no numbers.
std::string Describe(const CopyRequest& request, const CopyResult& result);

/// Throws JobError when records at level Error were logged since @p first, with their texts.
/// @param path the file that was worked on
void CheckNoErrorRecords(const HostLog& log, std::size_t first, const std::string& path);

/// Throws JobError unless the file opens again with these frames, channels and rate.
void CheckReopens(const FileName& file, std::int64_t frames, std::uint32_t channels,
                  std::uint32_t rate);

} // namespace kel::host
