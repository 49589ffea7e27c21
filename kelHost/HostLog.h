/// Where the log records of the framework and its elements go in the host.
#pragma once

#include <LogLevel.h>
#include <Logging.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Keeps the records at level Error, which tell of what elements do not throw, and shows records to
/// the user. Any thread may log.
class HostLog final : public ILoggerWriter {
public:
    /// @param stream where records are shown; outlives the log
    /// @param verbose shows every record with its place; otherwise warnings alone
    HostLog(std::ostream& stream, bool verbose) : m_stream(stream), m_verbose(verbose) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override;

    /// Number of records at level Error so far.
    std::size_t CountErrors() const;

    /// The records at level Error from number @p first on.
    std::vector<std::string> ErrorsSince(std::size_t first) const;

private:
    mutable std::mutex m_mutex;
    std::ostream& m_stream;
    bool m_verbose;
    std::vector<std::string> m_errors;
};

/// Makes a log the current logger writer for as long as it lives.
class InstalledLog {
public:
    explicit InstalledLog(std::shared_ptr<HostLog> log);
    ~InstalledLog();
    InstalledLog(const InstalledLog&) = delete;
    InstalledLog& operator=(const InstalledLog&) = delete;

private:
    std::shared_ptr<ILoggerWriter> m_former;
};

} // namespace kel::host
