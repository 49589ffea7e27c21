#include "jobs/Progress.h"

#include "base/DisplayWidth.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "jobs/Job.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::string TimesRealTime(double times) {
    constexpr double kFast = 9.95; // 10 when rounded; no fraction from there on
    return times < kFast ? fmt::format("{:.1f} x real time", times)
                         : fmt::format("{:.0f} x real time", times);
}

} // namespace

Progress::Progress(std::ostream& stream, ProgressStyle style, const std::vector<FileName>& files,
                   std::size_t width, Clock::time_point start)
    : m_stream(stream), m_style(style), m_spools(files.size()), m_done(files.size(), 0.0),
      m_seconds(files.size(), 0.0), m_waits(files.size(), 0), m_width(width), m_start(start) {
    for (const FileName& file : files) {
        m_files.push_back(Escape(file.shown));
        m_paths.push_back(file.path);
    }
}

nlohmann::json Progress::Members(std::size_t job) const {
    nlohmann::json members{{"file", m_files[job]}};
    AddPath(members, "path", m_paths[job]);
    return members;
}

void Progress::Spool(std::size_t job, std::uint64_t bytes, Clock::time_point now) {
    std::optional<Spooling>& spool = m_spools[job];
    if (bytes == 0 || !spool.has_value()) {
        spool = Spooling{0, now};
    }
    spool->bytes = bytes;
    m_waits[job] = 0;
    if (m_style != ProgressStyle::JSON) {
        Draw(now);
        return;
    }
    nlohmann::json members = Members(job);
    members["spooled"] = bytes;
    m_stream << FormatDocument("progress", std::move(members)) << std::flush;
}

// The next progress is drawn at once, in place of the bytes. The speed of a single job is that of
// its work.
void Progress::EndSpooling(std::size_t job, Clock::time_point now) {
    if (m_spools[job].has_value()) {
        m_spools[job].reset();
        m_lastDrawn.reset();
        m_start = m_files.size() == 1 ? now : m_start;
    }
}

void Progress::Update(std::size_t job, std::int64_t done, std::int64_t total, std::uint32_t rate,
                      Clock::time_point now) {
    EndSpooling(job, now);
    m_seconds[job] = rate > 0 ? static_cast<double>(done) / rate : 0.0;
    m_isEndUnknown = total == kUnknownTotal;
    if (!m_isEndUnknown) {
        m_done[job] = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
    }
    m_waits[job] = 0;
    if (m_style == ProgressStyle::JSON) {
        nlohmann::json members = Members(job);
        members["done"] = done;
        members["total"] = m_isEndUnknown ? nlohmann::json() : nlohmann::json(total);
        members["rate"] = rate;
        m_stream << FormatDocument("progress", std::move(members)) << std::flush;
    } else {
        Draw(now);
    }
}

void Progress::Wait(std::size_t job, std::int64_t seconds, Clock::time_point now) {
    m_waits[job] = seconds;
    if (m_style != ProgressStyle::JSON) {
        Draw(now);
    } else if (seconds > 0) {
        nlohmann::json members = Members(job);
        members["waiting"] = seconds;
        m_stream << FormatDocument("progress", std::move(members)) << std::flush;
    }
}

void Progress::Finish(std::size_t job, bool succeeded, Clock::time_point now) {
    EndSpooling(job, now);
    m_done[job] = 1.0;
    m_waits[job] = 0;
    ++m_finished;
    if (m_style == ProgressStyle::JSON) {
        nlohmann::json members = Members(job);
        members["finished"] = true;
        members["succeeded"] = succeeded;
        m_stream << FormatDocument("progress", std::move(members)) << std::flush;
    } else {
        Draw(now);
    }
}

void Progress::Clear() {
    if (m_drawn) {
        m_stream << "\r\x1B[K" << std::flush;
        m_drawn = false;
    }
}

void Progress::Draw(Clock::time_point now) {
    constexpr std::chrono::milliseconds kInterval{100};
    if (m_style != ProgressStyle::Line ||
        (m_lastDrawn.has_value() && now - *m_lastDrawn < kInterval)) {
        return;
    }
    m_lastDrawn = now;
    const double elapsed = std::chrono::duration<double>(now - m_start).count();
    const bool hasEnd = m_files.size() > 1 || !(m_isEndUnknown || m_spools.front().has_value());
    m_stream << "\r" << (hasEnd ? Line(elapsed) : LineWithoutEnd(now)) << "\x1B[K" << std::flush;
    m_drawn = true;
}

// One file of unknown length, or the copy of one that cannot be sought. Among several files, one
// counts when it is finished.
std::string Progress::LineWithoutEnd(Clock::time_point now) const {
    const std::optional<Spooling>& spool = m_spools.front();
    const double elapsed =
        std::chrono::duration<double>(now - (spool.has_value() ? spool->start : m_start)).count();
    const double seconds = m_seconds.front();
    std::string speed;
    if (m_waits.front() > 0) {
        speed = fmt::format(", no data for {} s", m_waits.front());
    } else if (elapsed > 0 && spool.has_value()) {
        const double rate = static_cast<double>(spool->bytes) / elapsed;
        speed = fmt::format(", {}/s", FormatSize(static_cast<std::uint64_t>(rate)));
    } else if (elapsed > 0) {
        speed = ", " + TimesRealTime(seconds / elapsed);
    }
    const std::string done = spool.has_value()
                                 ? FormatSize(spool->bytes) + " read"
                                 : FormatSeconds(static_cast<std::int64_t>(seconds)) + " done";
    return KeepEnd(fmt::format("{} {}{}", m_files.front(), done, speed),
                   m_width - std::min<std::size_t>(m_width, 1));
}

double Progress::Fraction() const {
    return std::clamp(std::accumulate(m_done.begin(), m_done.end(), 0.0) /
                          static_cast<double>(m_done.size()),
                      0.0, 1.0);
}

// The share that is done, and the longest wait or else the speed and the time that is left.
std::string Progress::Tail(double elapsed) const {
    constexpr std::size_t kLongestWaiting = 24;
    const double fraction = Fraction();
    // Truncated: 100 % means that all of it is done.
    std::string tail = fmt::format("{:3} %", static_cast<int>(fraction * 100));
    const auto longest = std::max_element(m_waits.begin(), m_waits.end());
    if (longest != m_waits.end() && *longest > 0) {
        const auto job = static_cast<std::size_t>(longest - m_waits.begin());
        tail += fmt::format(
            "  {}no data for {} s",
            m_files.size() == 1 ? "" : KeepEnd(m_files[job], kLongestWaiting) + ": ", *longest);
    } else if (fraction > 0 && elapsed > 0) {
        const double seconds = std::accumulate(m_seconds.begin(), m_seconds.end(), 0.0);
        const double left = std::ceil(elapsed / fraction * (1 - fraction));
        tail += fmt::format("  {}, {} left", TimesRealTime(seconds / elapsed),
                            FormatSeconds(static_cast<std::int64_t>(left)));
    }
    return tail;
}

std::string Progress::Line(double elapsed) const {
    const std::string tail = Tail(elapsed);

    // A line as wide as the terminal would wrap and stay there. The name is shortened first, then
    // the bar.
    constexpr std::size_t kLongestName = 33;
    constexpr std::size_t kShortestName = 12;
    constexpr std::size_t kLongestBar = 24;
    constexpr std::size_t kShortestBar = 5;
    constexpr std::size_t kAround = 4; // spaces and brackets
    const std::size_t room = m_width - std::min(m_width, DisplayWidth(tail) + kAround + 1);
    const std::size_t nameRoom =
        std::clamp(room - std::min(room, kLongestBar), kShortestName, kLongestName);
    const std::string name =
        KeepEnd(m_files.size() == 1 ? m_files.front()
                                    : fmt::format("{} of {} files", m_finished, m_files.size()),
                nameRoom);
    const std::size_t barRoom = room - std::min(room, DisplayWidth(name));
    const std::size_t bar = std::min(barRoom, kLongestBar);
    if (bar < kShortestBar) {
        return KeepEnd(name + " " + tail, m_width - std::min<std::size_t>(m_width, 1));
    }
    const auto filled = static_cast<std::size_t>(Fraction() * static_cast<double>(bar));
    return fmt::format("{} [{}{}] {}", name, std::string(filled, '#'),
                       std::string(bar - filled, '.'), tail);
}

} // namespace kel::host
