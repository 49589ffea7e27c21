/// Documents of the program and their schemas.
#pragma once

#include "Program.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace kel::test {

/// Validates documents, a line each, against the schemas in docs/schemas. The status is 0 when all
/// are valid; else the output has a line for each problem.
inline ProcessResult Validate(const std::string& documents) {
    const TemporaryDirectory directory;
    WriteFile(directory / "documents", documents);
    Command command;
    command.program = KEL_TEST_PYTHON;
    command.arguments = {KEL_TEST_VALIDATOR, KEL_TEST_SCHEMAS, directory / "documents"};
    return RunCommand(command);
}

/// Expects valid documents of these kinds, a line each.
inline void ExpectDocuments(const std::vector<std::string>& kinds, const std::string& documents) {
    std::vector<std::string> found;
    std::istringstream lines(documents);
    for (std::string line; std::getline(lines, line);) {
        found.push_back(nlohmann::json::parse(line).at("document").get<std::string>());
    }
    EXPECT_EQ(found, kinds);
    const ProcessResult result = Validate(documents);
    EXPECT_EQ(result.status, 0) << documents;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

} // namespace kel::test
