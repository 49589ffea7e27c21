#include "Progress.h"

#include "Documents.h"
#include "Text.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// Longer names are cut in front, where files of one take look the same.
std::string Shorten(const std::string& name) {
    constexpr std::size_t kMost = 30;
    if (name.size() <= kMost) {
        return name;
    }
    std::size_t begin = name.size() - kMost;
    while (begin < name.size() && (static_cast<unsigned char>(name[begin]) & 0xC0U) == 0x80U) {
        ++begin; // not in the middle of a character
    }
    return "..." + name.substr(begin);
}

} // namespace

Progress::Progress(std::ostream& stream, ProgressStyle style, std::vector<std::string> files)
    : m_stream(stream), m_style(style), m_files(std::move(files)), m_done(m_files.size(), 0.0),
      m_seconds(m_files.size(), 0.0) {}

void Progress::Update(std::size_t job, std::int64_t done, std::int64_t total, std::uint32_t rate,
                      Clock::time_point now) {
    m_seconds[job] = rate > 0 ? static_cast<double>(done) / rate : 0.0;
    m_done[job] = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
    if (m_style == ProgressStyle::JSON) {
        m_stream << FormatDocument(
                        "progress",
                        {{"file", m_files[job]}, {"done", done}, {"total", total}, {"rate", rate}})
                 << std::flush;
    } else {
        Draw(now);
    }
}

void Progress::Finish(std::size_t job, bool succeeded, Clock::time_point now) {
    m_done[job] = 1.0;
    ++m_finished;
    if (m_style == ProgressStyle::JSON) {
        m_stream << FormatDocument(
                        "progress",
                        {{"file", m_files[job]}, {"finished", true}, {"succeeded", succeeded}})
                 << std::flush;
    } else {
        Draw(now);
    }
}

void Progress::ShowLine(const std::string& line) {
    Clear();
    m_stream << line << std::endl;
}

void Progress::Clear() {
    if (m_drawn) {
        m_stream << "\r\x1B[K" << std::flush;
        m_drawn = false;
    }
}

void Progress::Draw(Clock::time_point now) {
    constexpr std::chrono::milliseconds kInterval{100};
    if (m_style != ProgressStyle::Line || now - m_lastDrawn < kInterval) {
        return;
    }
    m_lastDrawn = now;
    const double fraction =
        std::accumulate(m_done.begin(), m_done.end(), 0.0) / static_cast<double>(m_done.size());
    const double elapsed = std::chrono::duration<double>(now - m_start).count();

    constexpr int kWidth = 24;
    const int filled = std::clamp(static_cast<int>(fraction * kWidth), 0, kWidth);
    std::string line =
        fmt::format("{} [{}{}] {:3.0f} %",
                    m_files.size() == 1 ? Shorten(m_files.front())
                                        : fmt::format("{} of {} files", m_finished, m_files.size()),
                    std::string(static_cast<std::size_t>(filled), '#'),
                    std::string(static_cast<std::size_t>(kWidth - filled), '.'), fraction * 100);
    if (fraction > 0 && elapsed > 0) {
        const auto left = static_cast<std::int64_t>(elapsed / fraction * (1 - fraction) * 1000);
        const double seconds = std::accumulate(m_seconds.begin(), m_seconds.end(), 0.0);
        line += fmt::format("  {:.0f} x real time, {} left", seconds / elapsed,
                            FormatDuration(left, 1000));
    }
    m_stream << "\r" << line << "\x1B[K" << std::flush;
    m_drawn = true;
}

} // namespace kel::host
