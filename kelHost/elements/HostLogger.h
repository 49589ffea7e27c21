/// The host's logger: it keeps error records and shows records to the user.
#pragma once

#include <LogLevel.h>
#include <Logging.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// Amount of the log that is shown. Usual shows only warnings, in short form: an error ends the
/// job, which reports it. The others show records with their places; each shows more than the one
/// before.
enum class Verbosity { Usual, Nothing, Errors, Warnings, Milestones, Everything };

/// Parses the value of the environment variable KEL_LOG: "none", "error", "warning", "milestone" or
/// "info".
/// @throws UsageError with the valid words
Verbosity ParseVerbosity(std::string_view text);

/// A record at level Error.
struct ErrorRecord {
    std::string message;
    std::string context;
    int systemError = 0; ///< errno when it was logged, which may be that of its cause
};

/// Keeps the records at level Error, because elements do not throw every failure, and shows records
/// to the user. Any thread may log.
class HostLogger final : public ILoggerWriter {
public:
    using Show = std::function<void(const std::string& line)>;

    /// @param show receives each shown record, a line without its newline; called by one thread at
    /// a time
    HostLogger(Show show, Verbosity verbosity) : m_show(std::move(show)), m_verbosity(verbosity) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override;

    /// Number of records at level Error so far.
    std::size_t CountErrors() const;

    /// Returns the records at level Error from number @p first on.
    std::vector<ErrorRecord> ErrorsSince(std::size_t first) const;

    /// Returns only those that were logged within a ContextScope of a name, or only the others.
    std::vector<ErrorRecord> ErrorsSince(std::size_t first, const std::string& context,
                                         bool within) const;

private:
    mutable std::mutex m_mutex;
    Show m_show;
    Verbosity m_verbosity;
    std::vector<ErrorRecord> m_errors;
};

/// Installs a logger as the current logger writer during its lifetime.
class InstalledLogger {
public:
    explicit InstalledLogger(std::shared_ptr<HostLogger> log);
    ~InstalledLogger();
    InstalledLogger(const InstalledLogger&) = delete;
    InstalledLogger& operator=(const InstalledLogger&) = delete;

private:
    std::shared_ptr<ILoggerWriter> m_former;
};

} // namespace kel::host
