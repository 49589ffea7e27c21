#include "Logging.h"
#include "Checks.h"
#include "KELRuntimeError.h"
#include "Milestone.h"

#include <chrono>
#include <cstddef>
#include <ctime>
#include <iostream>
#include <locale>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>

namespace kel {

namespace {

struct CurrentWriter {
    std::mutex mutex;
    std::shared_ptr<ILoggerWriter> writer;
};

// Intentional: never destroyed, because other libraries may log while the process ends.
CurrentWriter& TheCurrentWriter() {
    static CurrentWriter& current = *new CurrentWriter;
    return current;
}

thread_local ContextScope* t_innermostScope = nullptr;

// Writes the line in one piece, so that lines of several threads do not mix. It uses a stream of
// its own: std::cerr may be set to throw, even where the exception cannot be caught.
void WriteToStandardError(LogLevel level, const std::string& message) {
    std::ostream stream(std::cerr.rdbuf());
    stream << ToString(level) + " " + message + "\n" << std::flush;
}

// Replaces some characters of a text by a number in decimal, with leading zeros.
void PutDigits(std::string& text, std::size_t begin, std::size_t digits, int number) {
    for (std::size_t place = begin + digits; place-- > begin; number /= 10) {
        text[place] = static_cast<char>('0' + number % 10);
    }
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
    // The former writer is destroyed here, outside of the lock: its destructor may log.
}

std::string GetCurrentTimeString() {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const auto seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    const auto millis = static_cast<int>(sinceEpoch.count() % 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::string text = "0000-00-00T00:00:00.000Z";
    PutDigits(text, 0, 4, utc.tm_year + 1900);
    PutDigits(text, 5, 2, utc.tm_mon + 1);
    PutDigits(text, 8, 2, utc.tm_mday);
    PutDigits(text, 11, 2, utc.tm_hour);
    PutDigits(text, 14, 2, utc.tm_min);
    PutDigits(text, 17, 2, utc.tm_sec);
    PutDigits(text, 20, 3, millis);
    return text;
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
        if (!context.empty()) {
            context.insert(0, " / ");
        }
        context.insert(0, scope->m_name);
    }
    return context;
}

// Intentional: the name is not kept, because hosts read it from the record at level Milestone.
std::shared_ptr<IMilestone> CreateMilestone(std::string /*name*/) {
    return std::make_shared<Milestone>();
}

namespace detail {

MessageText& MessageText::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    Stream() << manipulator;
    return *this;
}

MessageText& MessageText::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    Stream() << manipulator;
    return *this;
}

std::string MessageText::Text() const {
    return m_stream != nullptr ? m_text + m_stream->str() : m_text;
}

std::ostream& MessageText::Stream() {
    if (m_stream == nullptr) {
        m_stream = std::make_unique<std::ostringstream>();
        m_stream->imbue(std::locale::classic());
    }
    return *m_stream;
}

void WriteRecord(LogLevel level, const std::string& message, const char* file, int line) noexcept {
    try {
        WriteToCurrentWriter(level, message, file, line);
    } catch (...) {
        try {
            WriteToStandardError(level, message);
        } catch (...) { // NOLINT(bugprone-empty-catch): no place is left to report to
        }
    }
}

void Fail(const std::string& message, const char* file, int line) {
    WriteRecord(LogLevel::Error, message, file, line);
    throw KELRuntimeError(message);
}

} // namespace detail
} // namespace kel
