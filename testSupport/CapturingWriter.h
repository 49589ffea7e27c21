/// Log records, captured for the assertions of a test.
/// Any thread may log; one thread installs and removes a capture.
#pragma once

#include <kelCore.h>

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kel::test {

/// The arguments of one call of ILoggerWriter::Write.
struct Record {
    LogLevel level;
    std::string message;
    std::string context;
    std::string file;
    std::string line;
    std::string reserved;
    std::string threadId;
    std::string time;
};

/// Keeps every record.
class CapturingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.push_back({level, message, context, file, line, reserved, threadId, time});
    }

    /// Returns all records in their order.
    std::vector<Record> Records() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }

    /// Returns the texts of all records of one level, in their order.
    std::vector<std::string> Messages(LogLevel level) const {
        std::vector<std::string> messages;
        for (const Record& record : Records()) {
            if (record.level == level) {
                messages.push_back(record.message);
            }
        }
        return messages;
    }

    /// Drops all records.
    void Clear() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Record> m_records;
};

/// Installs a CapturingWriter while it exists, and restores the former writer afterwards.
class LogCapture {
public:
    LogCapture() { SetCurrentLoggerWriter(m_writer); }
    ~LogCapture() { SetCurrentLoggerWriter(m_former); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    CapturingWriter* operator->() const { return m_writer.get(); }

private:
    std::shared_ptr<ILoggerWriter> m_former = GetCurrentLoggerWriter();
    std::shared_ptr<CapturingWriter> m_writer = std::make_shared<CapturingWriter>();
};

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
