/// Progress of jobs, for people and for programs.
#pragma once

#include "base/FileName.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// Style of the progress display.
enum class ProgressStyle {
    None,
    Line, ///< one line that is redrawn, for a terminal
    JSON, ///< a line of JSON for each report, for programs
};

/// Shows the progress of all jobs together. Draws at most ten times a second. One thread at a time.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// @param stream receives the display; outlives the object
    /// @param files the names of the jobs' files; the path of each is that for other programs
    /// @param width characters in a line of the terminal
    /// @param start beginning of the work
    Progress(std::ostream& stream, ProgressStyle style, const std::vector<FileName>& files,
             std::size_t width, Clock::time_point start);

    /// Records that a job copies an input of unknown length before its work. It ends with the next
    /// record of another kind than a wait.
    /// @param bytes copied so far; 0 at the beginning
    /// @param now the present time
    void Spool(std::size_t job, std::uint64_t bytes, Clock::time_point now);

    /// Records the progress of a job.
    /// @param done of @p total, in frames; the total may be kUnknownTotal
    /// @param rate frames per second
    /// @param now the present time
    void Update(std::size_t job, std::int64_t done, std::int64_t total, std::uint32_t rate,
                Clock::time_point now);

    /// Records that a job has waited for its input for so many seconds; 0: it waits no more.
    void Wait(std::size_t job, std::int64_t seconds, Clock::time_point now);

    /// Records the end of a job.
    void Finish(std::size_t job, bool succeeded, Clock::time_point now);

    /// Removes the display, so that something else can be shown.
    void Clear();

private:
    // The copy of an input, before the work.
    struct Spooling {
        std::uint64_t bytes = 0;
        Clock::time_point start;
    };

    void EndSpooling(std::size_t job, Clock::time_point now);
    void Draw(Clock::time_point now);
    double Fraction() const;
    std::string Line(double elapsed) const;
    std::string LineWithoutEnd(Clock::time_point now) const;
    nlohmann::json Members(std::size_t job) const;
    std::string Tail(double elapsed) const;

    std::ostream& m_stream;
    ProgressStyle m_style;
    std::vector<std::string> m_files; // escaped
    std::vector<std::string> m_paths;
    std::vector<std::optional<Spooling>> m_spools; // of each job
    std::vector<double> m_done;                    // of each job, 0 to 1
    std::vector<double> m_seconds;                 // of media, done by each job
    std::vector<std::int64_t> m_waits;             // of each job, in seconds
    bool m_isEndUnknown = false;                   // of the job that was last heard of
    std::size_t m_finished = 0;
    std::size_t m_width;
    Clock::time_point m_start;
    std::optional<Clock::time_point> m_lastDrawn;
    bool m_drawn = false;
};

} // namespace kel::host
