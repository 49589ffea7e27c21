/// Jobs: pieces of work for worker processes.
#pragma once

#include "base/Errors.h"
#include "base/FileName.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>

namespace kel::host {

/// The total of a job that does not know its end.
inline constexpr std::int64_t kUnknownTotal = -1;

/// Reports of a job to the host. Used by one thread at a time, in the worker; others may show lines
/// and read the input meanwhile.
class Reporter {
public:
    virtual ~Reporter() = default;

    /// The job begins to open a file. It must be open within WorkerOptions::openTimeout.
    virtual void Opening(const std::string& file) = 0;

    /// The file is open.
    virtual void Opened() = 0;

    /// The job copies an input that cannot be sought, before its work. Call it at most ten times a
    /// second, and at both ends.
    /// @param bytes copied so far
    virtual void Spooled(std::uint64_t bytes) = 0;

    /// Progress of the job; passed on at most ten times a second, and at the end.
    /// @param done of @p total, in frames; the total may be kUnknownTotal
    /// @param rate frames per second
    virtual void Progress(std::int64_t done, std::int64_t total, std::uint32_t rate) = 0;

    /// A line for the user, escaped.
    virtual void Show(const std::string& line) = 0;

    /// From now on, lines name a file as the user does, and not by its temporary path.
    virtual void ShowAs(const FileName& file) = 0;

    /// The job begins to read its input, or to move in it, and waits for that. It must not take
    /// longer than WorkerOptions::stallTimeout. Use a ReadingScope.
    virtual void BeginReading() = 0;

    /// The input was read.
    virtual void EndReading() = 0;
};

/// Reports that a job reads its input, during its lifetime. One at a time.
class ReadingScope {
public:
    /// @param reporter outlives the scope
    explicit ReadingScope(Reporter& reporter) : m_reporter(reporter) { m_reporter.BeginReading(); }
    ~ReadingScope() { m_reporter.EndReading(); }
    ReadingScope(const ReadingScope&) = delete;
    ReadingScope& operator=(const ReadingScope&) = delete;

private:
    Reporter& m_reporter;
};

/// Returns a function that runs the steps of long work on the input, none of which may take longer
/// than WorkerOptions::stallTimeout. The file need not be open within the time for that any more.
/// @param reporter outlives the function
inline std::function<void(const std::function<void()>&)> ReadingSteps(Reporter& reporter) {
    return [&reporter](const std::function<void()>& step) {
        reporter.Opened();
        const ReadingScope reading(reporter);
        step();
    };
}

/// Result of a job.
struct JobResult {
    std::string document;   ///< JSON text of the result
    std::string output;     ///< text of the result for people
    std::string report;     ///< text about the work for people, which --quiet hides
    bool isSkipped = false; ///< nothing was to be done
};

/// One piece of work.
struct Job {
    std::string file; ///< the file to work on, for messages
    std::string path; ///< its name for programs that open it; empty for none
    std::string
        outputDirectory; ///< where it leaves temporary files when it is killed; may be empty
    /// Does the work, in a worker. An exception is its failure.
    std::function<JobResult(Reporter&)> run;
};

/// Returns the display form of an error that ended a job.
ErrorText DescribeFailure(const std::exception& error, const Job& job);

/// Outcome of a job.
struct JobOutcome {
    bool succeeded = false;
    JobResult result; ///< of a job that succeeded
    ErrorText error;  ///< of a job that failed
};

/// Receives what happens to jobs while they run, on the thread that called RunJobs.
class JobObserver {
public:
    virtual ~JobObserver() = default;
    /// The job has copied so many bytes of an input that cannot be sought.
    virtual void OnSpooled(std::size_t job, std::uint64_t bytes) = 0;
    virtual void OnProgress(std::size_t job, std::int64_t done, std::int64_t total,
                            std::uint32_t rate) = 0;
    /// The job has waited for its input for so many whole seconds; 0: it waits no more.
    virtual void OnWaiting(std::size_t job, std::int64_t seconds) = 0;
    virtual void OnShow(std::size_t job, const std::string& line) = 0;
    /// A library printed a line, without its newline, to standard output or error.
    virtual void OnPrinted(std::size_t job, const std::string& line) = 0;
    virtual void OnFinished(std::size_t job, const JobOutcome& outcome) = 0;
};

} // namespace kel::host
