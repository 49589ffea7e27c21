/// Exact log records of an operation, and its exact failure.
#pragma once

#include <CapturingWriter.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

inline const std::string kSourceFile = "kelLibsndfile/LibsndfileSource.cpp";
inline const std::string kSinkFile = "kelLibsndfile/LibsndfileSink.cpp";
inline const std::string kParametersFile = "kelCore/ParametersCollection.cpp";
inline const std::string kPlatformStringFile = "kelCore/PlatformString.cpp";

/// The parts of a log record that are the same in each run.
struct Line {
    LogLevel level;
    std::string message;
    std::string file; ///< the source file that logs it
};

inline bool operator==(const Line& left, const Line& right) {
    return left.level == right.level && left.message == right.message && left.file == right.file;
}

inline void PrintTo(const Line& line, std::ostream* stream) {
    *stream << "level " << static_cast<int>(line.level) << " from " << line.file << ": "
            << line.message;
}

using Lines = std::vector<Line>;

inline Lines LinesOf(const LogCapture& log) {
    Lines lines;
    for (const Record& record : log->Records()) {
        lines.push_back({record.level, record.message, record.file});
    }
    return lines;
}

/// Runs an operation that must not fail, and that logs exactly these records.
template <typename Operation>
void ExpectRecords(const Lines& expected, Operation operation) {
    const LogCapture log;
    EXPECT_NO_THROW(operation());
    EXPECT_EQ(LinesOf(log), expected);
}

/// Runs an operation that must fail with KELRuntimeError and exactly this message.
/// @param file the source file that refuses
/// @param before the records before the one of the failure
template <typename Operation>
void ExpectRefusal(const std::string& message, const std::string& file, Operation operation,
                   Lines before = {}) {
    const LogCapture log;
    try {
        operation();
        ADD_FAILURE() << "did not fail with " << message;
    } catch (const KELRuntimeError& error) {
        EXPECT_EQ(error.what(), message);
    }
    before.push_back({LogLevel::Error, message, file});
    EXPECT_EQ(LinesOf(log), before);
}

} // namespace kel::test
