#include "elements/HostLogger.h"

#include "base/Suggestion.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// The lowest verbosity that shows records of a level.
Verbosity VerbosityFor(LogLevel level) {
    switch (level) {
    case LogLevel::Error:
        return Verbosity::Errors;
    case LogLevel::Warning:
        return Verbosity::Warnings;
    case LogLevel::Milestone:
        return Verbosity::Milestones;
    default:
        return Verbosity::Everything;
    }
}

// The innermost context is the last one.
bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

} // namespace

Verbosity ParseVerbosity(std::string_view text) {
    constexpr std::pair<std::string_view, Verbosity> kWords[] = {
        {"none", Verbosity::Nothing},     {"error", Verbosity::Errors},
        {"warning", Verbosity::Warnings}, {"milestone", Verbosity::Milestones},
        {"info", Verbosity::Everything},
    };
    std::vector<std::string> words;
    for (const auto& [word, verbosity] : kWords) {
        if (word == text) {
            return verbosity;
        }
        words.emplace_back(word);
    }
    throw InvalidChoice("KEL_LOG", text, words);
}

void HostLogger::Write(LogLevel level, const char* message, const char* context, const char* file,
                       const char* line, const char* /*reserved*/, const char* threadId,
                       const char* time) {
    const int systemError = errno;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (level == LogLevel::Error) {
        m_errors.push_back({message, context, systemError});
    }
    if (m_verbosity == Verbosity::Usual) {
        if (level == LogLevel::Warning) {
            m_show(WarningLine(message));
        }
    } else if (VerbosityFor(level) <= m_verbosity) {
        m_show(fmt::format("{} {} [{}] {} ({}:{}){}{}", time, ToString(level), threadId,
                           Escape(message), file, line, *context != '\0' ? " in " : "",
                           Escape(context)));
    }
}

std::size_t HostLogger::CountErrors() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_errors.size();
}

std::vector<ErrorRecord> HostLogger::ErrorsSince(std::size_t first) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_errors.begin() + static_cast<std::ptrdiff_t>(std::min(first, m_errors.size())),
            m_errors.end()};
}

std::vector<ErrorRecord> HostLogger::ErrorsSince(std::size_t first, const std::string& context,
                                                 bool within) const {
    std::vector<ErrorRecord> records = ErrorsSince(first);
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&](const ErrorRecord& record) {
                                     return EndsWith(record.context, context) != within;
                                 }),
                  records.end());
    return records;
}

InstalledLogger::InstalledLogger(std::shared_ptr<HostLogger> log)
    : m_former(GetCurrentLoggerWriter()) {
    SetCurrentLoggerWriter(std::move(log));
}

InstalledLogger::~InstalledLogger() {
    SetCurrentLoggerWriter(m_former);
}

} // namespace kel::host
