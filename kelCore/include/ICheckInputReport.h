/// What a sink answers when it is asked whether it would take an input.
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
    None = 0,     ///< the input is accepted as it stands
    Track = 1,    ///< the track structure is wrong
    Encoding = 2, ///< the encoding is not accepted
};

/// The answer of a sink's input check. Immutable.
class KEL_CORE_EXPORT ICheckInputReport {
public:
    virtual ~ICheckInputReport();

    /// The kind of error, a value of CheckInputErrorType; 0 when the input is accepted.
    virtual std::int32_t GetErrorType() const = 0;

    /// For a track error: the content types of the tracks that are expected. Otherwise empty.
    virtual const std::multiset<ContentType>& GetExpectedContentTypes() const = 0;

    /// For an encoding error: per info identifier (IAudioInfo::GetId), the encodings that would be
    /// accepted. Otherwise empty.
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
/// @param accepted per info identifier, the encodings that would be accepted
KEL_CORE_EXPORT std::shared_ptr<const ICheckInputReport> CreateCheckInputReportEncodingError(
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>> accepted);

} // namespace kel
