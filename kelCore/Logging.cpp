#include "Logging.h"
#include "Checks.h"
#include "KELRuntimeError.h"
#include "Milestone.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <unistd.h>
#include <utility>

namespace kel {

namespace {

struct CurrentWriter {
    std::mutex mutex;
    std::shared_ptr<ILoggerWriter> writer;
};

// Never destroyed: other libraries may log while the process ends.
CurrentWriter& TheCurrentWriter() {
    static CurrentWriter& current = *new CurrentWriter;
    return current;
}

thread_local ContextScope* t_innermostScope = nullptr;

// One piece of text, so that lines of several threads do not mix.
void WriteToStandardError(LogLevel level, const std::string& message) {
    std::cerr << ToString(level) + " " + message + "\n" << std::flush;
}

void WriteToCurrentWriter(LogLevel level, const std::string& message, const char* file, int line) {
    const std::shared_ptr<ILoggerWriter> writer = GetCurrentLoggerWriter();
    if (writer == nullptr) {
        WriteToStandardError(level, message);
        return;
    }
    writer->Write(level, message.c_str(), GetCurrentContextString().c_str(), file,
                  ToString(line).c_str(), "", GetThreadId().c_str(),
                  GetCurrentTimeString().c_str());
}

class Milestone final : public IMilestone {};

} // namespace

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
    CurrentWriter& current = TheCurrentWriter();
    const std::lock_guard<std::mutex> lock(current.mutex);
    return current.writer;
}

void SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer) {
    CurrentWriter& current = TheCurrentWriter();
    {
        const std::lock_guard<std::mutex> lock(current.mutex);
        current.writer.swap(writer);
    }
    // The writer that was in place goes here, outside of the lock: its destructor may log.
}

std::string GetCurrentTimeString() {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const auto seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    const auto millis = static_cast<int>(sinceEpoch.count() % 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                  utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                  utc.tm_sec, millis);
    return text.data();
}

std::string GetThreadId() {
    return ToString(static_cast<int>(gettid()));
}

ContextScope::ContextScope(std::string name)
    : m_name(std::move(name)), m_outer(std::exchange(t_innermostScope, this)) {}

ContextScope::~ContextScope() {
    t_innermostScope = m_outer;
}

std::string GetCurrentContextString() {
    std::string context;
    for (const ContextScope* scope = t_innermostScope; scope != nullptr; scope = scope->m_outer) {
        context = context.empty() ? scope->m_name : scope->m_name + " / " + context;
    }
    return context;
}

std::shared_ptr<IMilestone> CreateMilestone(std::string /*name*/) {
    return std::make_shared<Milestone>();
}

namespace detail {

void WriteRecord(LogLevel level, const std::string& message, const char* file, int line) noexcept {
    try {
        WriteToCurrentWriter(level, message, file, line);
    } catch (...) {
        try {
            WriteToStandardError(level, message);
        } catch (...) { // NOLINT(bugprone-empty-catch): there is nowhere left to report to
        }
    }
}

void Fail(const std::string& message, const char* file, int line) {
    WriteRecord(LogLevel::Error, message, file, line);
    throw KELRuntimeError(message);
}

} // namespace detail
} // namespace kel
