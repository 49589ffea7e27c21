#include "StandardError.h"

#include <CapturingWriter.h>
#include <StreamLoggerWriter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ios>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

constexpr auto kInfoLevel = LogLevel::Info;

// Writes a record of which only some parts differ from test to test.
void WriteOne(ILoggerWriter& writer, LogLevel level, const std::string& message,
              const std::string& context = "", const std::string& file = "kelCore/A.cpp") {
    writer.Write(level, message.c_str(), context.c_str(), file.c_str(), "12", "", "345",
                 "2026-11-21T09:30:00.125Z");
}

std::string LineOf(const std::string& message, const std::string& context = "",
                   const std::string& file = "kelCore/A.cpp") {
    std::ostringstream stream;
    WriteOne(*CreateStreamLoggerWriter(kInfoLevel, stream), kInfoLevel, message, context, file);
    return stream.str();
}

// Returns the levels that a writer prints.
std::string LevelsFrom(LogLevel lowest) {
    std::ostringstream stream;
    const auto writer = CreateStreamLoggerWriter(lowest, stream);
    for (const int value : {0, 1, 2, 3, 4, 5, -1}) {
        WriteOne(*writer, static_cast<LogLevel>(value), "");
    }
    std::istringstream lines(stream.str());
    std::string levels;
    for (std::string time, level, rest; lines >> time >> level && std::getline(lines, rest);) {
        levels += level + " ";
    }
    return levels;
}

// A buffer that notices when two threads are in it.
class SlowBuffer final : public std::stringbuf {
public:
    std::atomic<bool> overlapped{false};

protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        overlapped = m_threads++ != 0 || overlapped;
        std::this_thread::sleep_for(std::chrono::microseconds(10));
        const std::streamsize written = overlapped ? count : std::stringbuf::xsputn(text, count);
        --m_threads;
        return written;
    }

private:
    std::atomic<int> m_threads{0};
};

} // namespace

TEST(StreamLoggerWriter, PrintsARecordAsOneLine) {
    EXPECT_EQ(
        LineOf("opened \"t\xC3\xA4ke.wav\""),
        "2026-11-21T09:30:00.125Z Info [345] opened \"t\xC3\xA4ke.wav\" (kelCore/A.cpp:12)\n");
    EXPECT_EQ(LineOf("opened", "copy take.wav / check"),
              "2026-11-21T09:30:00.125Z Info [345] opened (kelCore/A.cpp:12) in copy take.wav / "
              "check\n");
}

TEST(StreamLoggerWriter, DropsRecordsBelowItsLevelInTheOrderOfSeverity) {
    EXPECT_EQ(LevelsFrom(LogLevel::Info),
              "Info Warning Error Reserved Milestone LogLevel(5) LogLevel(-1) ");
    EXPECT_EQ(LevelsFrom(LogLevel::Milestone),
              "Warning Error Reserved Milestone LogLevel(5) LogLevel(-1) ");
    EXPECT_EQ(LevelsFrom(LogLevel::Warning), "Warning Error Reserved LogLevel(5) LogLevel(-1) ");
    EXPECT_EQ(LevelsFrom(LogLevel::Error), "Error Reserved LogLevel(5) LogLevel(-1) ");
}

TEST(StreamLoggerWriter, KeepsControlCharactersOfAllTextsOutOfTheLine) {
    const std::string begin = "2026-11-21T09:30:00.125Z Info [345] ";
    EXPECT_EQ(LineOf("a\nb\rc\td\x1B[2J\x01\x7F"),
              begin + "a\\nb\\rc\\td\\x1b[2J\\x01\\x7f (kelCore/A.cpp:12)\n");
    // Control characters of the second set, separators of lines and paragraphs, bytes that are
    // not UTF-8.
    EXPECT_EQ(LineOf("\xC2\x80\xC2\x9F\xC2\xA0 \xE2\x80\xA8\xE2\x80\xA9 \x9B\xFF"),
              begin + "\\x80\\x9f\xC2\xA0 \\u2028\\u2029 \\x9b\\xff (kelCore/A.cpp:12)\n");
    EXPECT_EQ(LineOf("m", "two\nlines", "a\nb.cpp"), begin + "m (a\\nb.cpp:12) in two\\nlines\n");
}

TEST(StreamLoggerWriter, UsesTheStreamOnOneThreadAtATimeWhateverItsFormat) {
    constexpr int kRecordsPerThread = 50;
    SlowBuffer buffer;
    std::ostream stream(&buffer);
    stream.width(200);
    const auto writer = CreateStreamLoggerWriter(LogLevel::Info, stream);
    std::vector<std::thread> threads;
    for (const char* name : {"first", "second", "third"}) {
        threads.emplace_back([&writer, name] {
            for (int i = 0; i < kRecordsPerThread; ++i) {
                WriteOne(*writer, LogLevel::Info, name);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(buffer.overlapped);
    std::istringstream text(buffer.str());
    std::multiset<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.insert(line + "\n");
    }
    for (const char* name : {"first", "second", "third"}) {
        EXPECT_EQ(lines.count(LineOf(name)), kRecordsPerThread);
    }
    EXPECT_EQ(lines.size(), 3U * kRecordsPerThread);
}

TEST(StreamLoggerWriter, LeavesARecordToStandardErrorWhenTheStreamIsBad) {
    std::ostringstream stream;
    stream.setstate(std::ios_base::badbit);
    const auto former = GetCurrentLoggerWriter();
    SetCurrentLoggerWriter(CreateStreamLoggerWriter(LogLevel::Info, stream));
    EXPECT_THROW(WriteOne(*GetCurrentLoggerWriter(), LogLevel::Info, "text"),
                 std::ios_base::failure);
    const StandardErrorCapture standardError;
    KEL_LOG(LogLevel::Info, "not lost");
    SetCurrentLoggerWriter(former);
    EXPECT_EQ(standardError.Text(), "Info not lost\n");
}

TEST(StreamLoggerWriter, RefusesAValueThatIsNoLevelOfRecords) {
    std::ostringstream stream;
    for (const auto& [level, name] : {std::pair(LogLevel::Reserved, "Reserved"),
                                      std::pair(static_cast<LogLevel>(5), "LogLevel(5)")}) {
        ExpectFailure("[" + std::string(name) +
                          " is not a level of records] [ Condition is not true ]",
                      "kelCore/StreamLoggerWriter.cpp",
                      [&, lowest = level] { CreateStreamLoggerWriter(lowest, stream); });
    }
}

} // namespace kel::test
