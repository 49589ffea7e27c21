/// How far the work is, for people and for programs.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// How progress is shown.
enum class ProgressStyle {
    Nothing,
    Line, ///< one line that is drawn again and again, for a terminal
    JSON, ///< a line of JSON each time, for programs
};

/// Shows how far a number of jobs are, all together. Draws ten times a second at most.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    /// @param stream where it is shown; outlives the object
    /// @param files the names of the jobs' files, escaped
    /// @param width characters that a line of the terminal holds
    /// @param start when the work began
    Progress(std::ostream& stream, ProgressStyle style, std::vector<std::string> files,
             std::size_t width, Clock::time_point start);

    /// A job has done so much.
    /// @param done of @p total, in frames
    /// @param rate frames per second
    /// @param now the present time
    void Update(std::size_t job, std::int64_t done, std::int64_t total, std::uint32_t rate,
                Clock::time_point now);

    /// A job has ended.
    void Finish(std::size_t job, bool succeeded, Clock::time_point now);

    /// Takes the display away, so that something else can be shown.
    void Clear();

private:
    void Draw(Clock::time_point now);
    std::string Line(double elapsed) const;

    std::ostream& m_stream;
    ProgressStyle m_style;
    std::vector<std::string> m_files;
    std::vector<double> m_done;    // of each job, 0 to 1
    std::vector<double> m_seconds; // of media, done of each job
    std::size_t m_finished = 0;
    std::size_t m_width;
    Clock::time_point m_start;
    std::optional<Clock::time_point> m_lastDrawn;
    bool m_drawn = false;
};

} // namespace kel::host
