/// Copying a file through a source and a sink.
#pragma once

#include "audio/Formats.h"
#include "audio/PCMEncoder.h"
#include "audio/TimeRange.h"
#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "jobs/WorkerPool.h"

#include <PCMEndianness.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// How to copy, whatever file.
struct CopyOptions {
    const Container* container = nullptr;   ///< null: what the output's extension means
    const Encoding* encoding = nullptr;     ///< null: the container's default
    std::optional<PCMEndianness> byteOrder; ///< none: the container's default
    std::vector<std::uint32_t> channels;    ///< which, in which order, counted from 1; empty: all
    TimeRange range;                        ///< which part
    std::optional<std::uint64_t> dither;    ///< seed of the noise; none: no noise
    std::uint32_t blockFrames = 16384;      ///< most frames in a sample
    bool failOnClip = false;                ///< whether a clipped value fails the copy
    bool allowShort = false; ///< whether an input with fewer frames than it promises is copied
    bool verify = false;     ///< whether the output is read back and compared
    bool replace = false;    ///< whether a file that stands there may be replaced
    bool skip = false;       ///< whether nothing is done where a file stands there
};

/// What to copy, into what, and how.
struct CopyRequest {
    std::string input;
    std::string output;
    CopyOptions options;
};

/// What came out of it.
struct CopyResult {
    std::string input;    ///< as shown to the user
    std::string output;   ///< as shown to the user
    bool skipped = false; ///< a file stood there, and nothing was done; what follows is not known
    std::string container;
    std::string encoding;
    std::string byteOrder;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;                    ///< frames per second
    std::int64_t frames = 0;                   ///< frames read, and as many written
    std::uint64_t bytes = 0;                   ///< of sample data
    bool verified = false;                     ///< read back and found the same
    std::vector<ChannelConversion> conversion; ///< per channel of the output
    std::vector<std::string> warnings;
};

void to_json(nlohmann::json& json, const CopyResult& result);
void from_json(const nlohmann::json& json, CopyResult& result);

/// The container that a request means.
/// @throws UsageError when the extension means none
const Container& ChooseContainer(const CopyOptions& options, const std::string& output);

/// Copies one file. The output appears under its name only when it is whole: closed, without a
/// record at level Error, and found to have the right frames, channels and rate when it is opened
/// again. Reading, converting and writing overlap. With CopyOptions::skip, any file that stands
/// under the output's name is taken for whole, and the input is not even opened.
/// @param log the current logger writer
/// @param reporter told of opening and progress
/// @throws JobError when the copy failed; nothing is left under the output's name then but what
/// stood there before
CopyResult Copy(const CopyRequest& request, const HostLogger& log, Reporter& reporter);

/// The report of a copy for people: one line, and one for each channel whose values were clipped or
/// were no numbers.
std::string Describe(const CopyResult& result);

} // namespace kel::host
