#include "validation/Validator.h"

#include "base/DisplayWidth.h"
#include "base/Text.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace kel::host {

Validator::Validator(const ValidationRequest& request) : m_request(request), m_selection(request) {
    m_selection.SelectFrom(ProbeElements(m_selection.Subject(), Limits()));
}

ReportColumns Validator::Columns() const {
    ReportColumns columns;
    for (const CheckRun& run : Runs()) {
        columns.check = std::max(columns.check, std::string_view(run.check->name).size());
        columns.element = std::max(columns.element, DisplayWidth(Escape(NameOf(run))));
    }
    return columns;
}

CheckResult Validator::Make(const CheckRun& run) {
    CheckResult result =
        run.obstacle.empty()
            ? RunCheck(*run.check, m_selection.SubjectOf(run, m_directory.Inputs()), Limits())
            : NotMade(run);
    result.check = run.check;
    result.element = NameOf(run);
    return result;
}

ProcessLimits Validator::Limits() const {
    return {m_directory.MakeEmpty(), m_request.timeout, m_signals};
}

} // namespace kel::host
