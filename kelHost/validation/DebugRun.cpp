#include "validation/DebugRun.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "jobs/ChildProcess.h"
#include "validation/CheckProcess.h"
#include "validation/WorkDirectory.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

bool IsOfPlugin(const std::string& name) {
    const std::vector<Check>& checks = Checks();
    const auto check = std::find_if(checks.begin(), checks.end(),
                                    [&](const Check& each) { return each.name == name; });
    return check != checks.end() && check->scope == CheckScope::Plugin;
}

// A check of the plug-in would ignore them.
void RefuseOptionsOfElements(const ValidationRequest& request) {
    const std::vector<std::pair<const char*, bool>> options{
        {"--element", !request.elements.empty()},
        {"--set", !request.settings.empty()},
        {"--input", request.input.has_value()}};
    for (const auto& [name, isUsed] : options) {
        if (isUsed) {
            throw UsageError(fmt::format("{} is a check of the plug-in, not of an element; remove "
                                         "{}",
                                         request.checks.front(), name));
        }
    }
}

const CheckRun& OnlyRun(const std::vector<CheckRun>& runs) {
    if (runs.size() > 1) {
        std::vector<std::string> names;
        for (const CheckRun& run : runs) {
            names.push_back(NameOf(run));
        }
        throw UsageError(fmt::format("--debug makes one check of one element; add --element {}",
                                     ListAlternatives(names)));
    }
    return runs.front();
}

} // namespace

ValidationReport DebugCheck(const ValidationRequest& request) {
    CheckSelection selection(request);
    const WorkDirectory directory;
    std::filesystem::current_path(directory.MakeEmpty());
    ChildNote note;
    CheckContext context(selection.Subject(), note);
    if (IsOfPlugin(request.checks.front())) {
        // It loads the plug-in itself, in its own way.
        RefuseOptionsOfElements(request);
        selection.SelectFrom(std::vector<ProbedElement>{});
    } else {
        selection.SelectFrom(ListElements(context));
    }
    const CheckRun& run = OnlyRun(selection.Runs());
    context.SetSubject(selection.SubjectOf(run, directory.Inputs()));
    const auto start = std::chrono::steady_clock::now();
    CheckResult result = run.obstacle.empty() ? MakeCheck(*run.check, context) : NotMade(run);
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    result.peakKiB = usage.ru_maxrss;
    result.check = run.check;
    result.element = NameOf(run);
    return {request.plugin, selection.Subject().seed, {result}};
}

} // namespace kel::host
