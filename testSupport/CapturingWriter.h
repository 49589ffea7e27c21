/// Failures of the framework and its elements, with their log records.
/// Any thread may log; one thread installs and removes a capture.
#pragma once

#include <kelCore.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel::test {

using kel::CapturingWriter;
using kel::LogCapture;
using Record = kel::LogRecord;

/// Runs an operation that must fail with KELRuntimeError and exactly this message, after exactly
/// one record at level Error, with the same text, from the given source file. Records of other
/// levels are ignored.
template <typename Operation>
void ExpectFailure(const std::string& message, const std::string& file, Operation operation) {
    const LogCapture log;
    try {
        operation();
        ADD_FAILURE() << "did not fail with " << message;
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    std::vector<Record> errors;
    for (const Record& record : log->Records()) {
        if (record.level == LogLevel::Error) {
            errors.push_back(record);
        }
    }
    ASSERT_EQ(errors.size(), 1U) << "records at level Error";
    EXPECT_EQ(errors[0].message, message);
    EXPECT_EQ(errors[0].file, file);
}

} // namespace kel::test
