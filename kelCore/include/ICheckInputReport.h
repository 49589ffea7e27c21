/// Result of the check of an input by a sink.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup sinks
#pragma once

#include "ContentType.h"
#include "Export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel {

class IEncodingParameters;

/// The values of ICheckInputReport::GetErrorType.
enum class CheckInputErrorType : std::int32_t {
    None = 0,     ///< the input is accepted as it is
    Track = 1,    ///< the track structure is wrong
    Encoding = 2, ///< the encoding is not accepted
};

/// Result of the check of an input by a sink.
class KEL_CORE_EXPORT ICheckInputReport {
public:
    virtual ~ICheckInputReport();

    /// Returns the kind of error, a value of CheckInputErrorType; 0 when the input is accepted.
    /// [any, any thread, does not throw]
    virtual std::int32_t GetErrorType() const = 0;

    /// Returns, for a track error, the content types of the tracks that are expected. Otherwise
    /// empty.
    /// [any, any thread, does not throw]
    virtual const std::multiset<ContentType>& GetExpectedContentTypes() const = 0;

    /// Returns, for an encoding error, the encodings that would be accepted for each info
    /// identifier (IAudioInfo::GetId). Otherwise empty.
    /// [any, any thread, does not throw]
    virtual const std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>&
    GetAcceptedEncodings() const = 0;
};

/// Makes the report of an accepted input. Any thread may call it.
KEL_CORE_EXPORT std::shared_ptr<const ICheckInputReport> CreateCheckInputReportNoError();

/// Makes the report of an input with the wrong tracks. Any thread may call it.
/// @param expected the content types of the tracks that are expected
KEL_CORE_EXPORT std::shared_ptr<const ICheckInputReport>
CreateCheckInputReportTrackError(std::multiset<ContentType> expected);

/// Makes the report of an input whose encoding is not accepted. Any thread may call it.
/// @param accepted the encodings that would be accepted for each info identifier
KEL_CORE_EXPORT std::shared_ptr<const ICheckInputReport> CreateCheckInputReportEncodingError(
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>> accepted);

} // namespace kel
