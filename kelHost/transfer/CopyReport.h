/// Reports of finished copies. Pure functions.
#pragma once

#include "audio/Formats.h"
#include "audio/PCMEncoder.h"
#include "container/MetadataCopy.h"
#include "transfer/Copy.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Facts about a finished copy.
struct CopyFacts {
    OutputFormat format;
    std::uint32_t channels = 0; ///< of the output
    std::uint32_t rate = 0;     ///< frames per second
    std::int64_t frames = 0;
    std::uint64_t rounded = 0;                 ///< values; see CountRoundedValues
    bool isVerified = false;                   ///< the output was read back and compared
    std::vector<ChannelConversion> conversion; ///< of each channel of the output
    std::optional<MetadataReport> metadata;    ///< where it was to be copied

    /// Bytes of the samples in the output.
    std::uint64_t SampleBytes() const {
        return static_cast<std::uint64_t>(frames) * channels * format.encoding->bytes;
    }
};

/// Returns the document that docs/json.md describes.
/// @param warnings escaped
nlohmann::json DescribeCopy(const CopyRequest& request, const CopyFacts& facts,
                            const std::vector<std::string>& warnings);

/// Returns warnings about clipped and non-finite values, one for each channel with such values.
std::vector<std::string> DescribeClipping(const std::string& output,
                                          const std::vector<ChannelConversion>& channels);

/// Returns a line about a copy for people.
std::string FormatCopy(const CopyRequest& request, const CopyFacts& facts);

/// Returns the document of a copy that is only planned, which docs/json.md describes.
/// @param frames of the output; none where the input does not declare them
nlohmann::json DescribePlan(const CopyRequest& request, const CopyFacts& facts,
                            const std::optional<std::int64_t>& frames);

/// Returns a line about a copy that is only planned.
std::string FormatPlan(const CopyRequest& request, const CopyFacts& facts,
                       const std::optional<std::int64_t>& frames);

} // namespace kel::host
