#include "HostLog.h"

#include "Text.h"

#include <fmt/ostream.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

void HostLog::Write(LogLevel level, const char* message, const char* context, const char* file,
                    const char* line, const char* /*reserved*/, const char* threadId,
                    const char* time) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (level == LogLevel::Error) {
        m_errors.emplace_back(message);
    }
    if (m_verbose) {
        fmt::print(m_stream, "{} {} [{}] {} ({}:{}){}{}\n", time, ToString(level), threadId,
                   Escape(message), file, line, *context != '\0' ? " in " : "", Escape(context));
    } else if (level == LogLevel::Warning) {
        fmt::print(m_stream, "kelhost: warning: {}\n", Escape(message));
    }
}

std::size_t HostLog::CountErrors() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_errors.size();
}

std::vector<std::string> HostLog::ErrorsSince(std::size_t first) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_errors.begin() + static_cast<std::ptrdiff_t>(first), m_errors.end()};
}

InstalledLog::InstalledLog(std::shared_ptr<HostLog> log) : m_former(GetCurrentLoggerWriter()) {
    SetCurrentLoggerWriter(std::move(log));
}

InstalledLog::~InstalledLog() {
    SetCurrentLoggerWriter(m_former);
}

} // namespace kel::host
