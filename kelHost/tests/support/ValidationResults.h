/// Reads the results of kelhost validate --json.
#pragma once

#include <Patterns.h>
#include <Process.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace kel::test {

/// Findings as "CHECK ELEMENT: MESSAGE", or "CHECK: MESSAGE" for the plug-in as a whole, without
/// the steps of random calls.
inline std::vector<std::string> FindingsOf(const ProcessResult& result) {
    std::vector<std::string> findings;
    const auto document = nlohmann::json::parse(result.out);
    for (const auto& entry : document.at("results")) {
        if (entry.at("verdict") == "failed") {
            const auto element = entry.at("element").get<std::string>();
            const std::string message =
                ReplaceMatches(entry.at("message").get<std::string>(),
                               "at step [0-9]+ \\(the last: [^)]*\\)", "at some step");
            findings.push_back(
                entry.at("check").get<std::string>() + (element.empty() ? "" : " " + element) +
                ": " +
                // A few less where the process has freed others meanwhile.
                ReplaceMatches(message, "loses (2[89]|3[0-2]) bytes", "loses 32 bytes"));
        }
    }
    return findings;
}

/// Warnings as "CHECK: WARNING".
inline std::vector<std::string> WarningsOf(const ProcessResult& result) {
    std::vector<std::string> warnings;
    const auto document = nlohmann::json::parse(result.out);
    for (const auto& entry : document.at("results")) {
        const auto warning = entry.at("warning").get<std::string>();
        if (!warning.empty()) {
            warnings.push_back(entry.at("check").get<std::string>() + ": " + warning);
        }
    }
    return warnings;
}

} // namespace kel::test
