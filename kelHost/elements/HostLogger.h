/// Where the log records of the framework and its elements go in the host.
#pragma once

#include <LogLevel.h>
#include <Logging.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

/// How much of the log is shown. Usual is warnings alone, in short: an error ends the job and is
/// told with it. The others show records with their places, each all that the former shows and
/// more.
enum class Verbosity { Usual, Nothing, Errors, Warnings, Milestones, Everything };

/// Parses what the environment variable KEL_LOG says: "none", "error", "warning", "milestone" or
/// "info".
/// @throws UsageError with the valid words
Verbosity ParseVerbosity(std::string_view text);

/// Keeps the records at level Error, which tell of what elements do not throw, and shows records to
/// the user. Any thread may log.
class HostLogger final : public ILoggerWriter {
public:
    using Show = std::function<void(const std::string& line)>;

    /// @param show is given each record that is shown, a line without its newline; called by one
    /// thread at a time
    HostLogger(Show show, Verbosity verbosity) : m_show(std::move(show)), m_verbosity(verbosity) {}

    void Write(LogLevel level, const char* message, const char* context, const char* file,
               const char* line, const char* reserved, const char* threadId,
               const char* time) override;

    /// Number of records at level Error so far.
    std::size_t CountErrors() const;

    /// The records at level Error from number @p first on.
    std::vector<std::string> ErrorsSince(std::size_t first) const;

    /// Those of them that were logged within a ContextScope of this name, or those that were not.
    std::vector<std::string> ErrorsSince(std::size_t first, const std::string& context,
                                         bool within) const;

private:
    mutable std::mutex m_mutex;
    Show m_show;
    Verbosity m_verbosity;
    std::vector<std::pair<std::string, std::string>> m_errors; // messages and contexts
};

/// Makes a log the current logger writer for as long as it lives.
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
