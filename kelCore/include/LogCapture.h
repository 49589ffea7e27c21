/// Log records, stored for the assertions of a test.
/// Any thread may log; one thread installs and removes a capture.
/// @ingroup logging
#pragma once

#include "LogLevel.h"
#include "Logging.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kel {

/// The arguments of one call of ILoggerWriter::Write.
struct LogRecord {
    LogLevel level;       ///< severity
    std::string message;  ///< the record's text
    std::string context;  ///< see GetCurrentContextString
    std::string file;     ///< source file of the statement
    std::string line;     ///< line of the statement, decimal
    std::string reserved; ///< ""
    std::string threadId; ///< see GetThreadId
    std::string time;     ///< see GetCurrentTimeString
};

/// A logger writer that stores every record, without a limit. Any thread may call all functions.
class CapturingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.push_back({level, message, context, file, line, reserved, threadId, time});
    }

    /// Returns all records in their order.
    std::vector<LogRecord> Records() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }

    /// Returns the texts of all records of one level, in their order.
    std::vector<std::string> Messages(LogLevel level) const {
        std::vector<std::string> messages;
        for (const LogRecord& record : Records()) {
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
    std::vector<LogRecord> m_records;
};

/// Installs a CapturingWriter for the whole process while it exists, and restores the former writer
/// afterwards. Captures may nest, but must not be removed in another order.
class LogCapture {
public:
    LogCapture() { SetCurrentLoggerWriter(m_writer); }
    ~LogCapture() { SetCurrentLoggerWriter(m_former); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The installed writer.
    CapturingWriter* operator->() const { return m_writer.get(); }

private:
    std::shared_ptr<ILoggerWriter> m_former = GetCurrentLoggerWriter();
    std::shared_ptr<CapturingWriter> m_writer = std::make_shared<CapturingWriter>();
};

} // namespace kel
