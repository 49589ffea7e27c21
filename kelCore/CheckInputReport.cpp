#include "ICheckInputReport.h"
#include "IEncodingParameters.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

using ExpectedContentTypes = std::multiset<ContentType>;
using AcceptedEncodings =
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>;

class CheckInputReport final : public ICheckInputReport {
public:
    CheckInputReport(CheckInputErrorType type, ExpectedContentTypes expected,
                     AcceptedEncodings accepted)
        : m_type(type), m_expected(std::move(expected)), m_accepted(std::move(accepted)) {}

    std::int32_t GetErrorType() const override { return static_cast<std::int32_t>(m_type); }
    const ExpectedContentTypes& GetExpectedContentTypes() const override { return m_expected; }
    const AcceptedEncodings& GetAcceptedEncodings() const override { return m_accepted; }

private:
    CheckInputErrorType m_type;
    ExpectedContentTypes m_expected;
    AcceptedEncodings m_accepted;
};

std::shared_ptr<const ICheckInputReport>
MakeReport(CheckInputErrorType type, ExpectedContentTypes expected, AcceptedEncodings accepted) {
    return std::make_shared<CheckInputReport>(type, std::move(expected), std::move(accepted));
}

} // namespace

std::shared_ptr<const ICheckInputReport> CreateCheckInputReportNoError() {
    return MakeReport(CheckInputErrorType::None, {}, {});
}

std::shared_ptr<const ICheckInputReport>
CreateCheckInputReportTrackError(ExpectedContentTypes expected) {
    return MakeReport(CheckInputErrorType::Track, std::move(expected), {});
}

std::shared_ptr<const ICheckInputReport>
CreateCheckInputReportEncodingError(AcceptedEncodings accepted) {
    return MakeReport(CheckInputErrorType::Encoding, {}, std::move(accepted));
}

} // namespace kel
