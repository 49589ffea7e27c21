#include "StandardError.h"

#include <CapturingWriter.h>
#include <Logging.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <future>
#include <iostream>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel {

namespace {

/// Throws at each record.
class FailingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        throw 42;
    }
};

/// Logs while it handles its first record, on another thread: a lock that is held during the call
/// makes this wait, and the test fails instead of hanging.
class WriterThatLogs final : public ILoggerWriter {
public:
    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        if (++calls == 1) {
            nested = std::async(std::launch::async, [] { KEL_LOG(LogLevel::Info, "nested"); });
            waited = nested.wait_for(std::chrono::seconds(1)) != std::future_status::ready;
        }
    }

    std::atomic<int> calls{0};
    bool waited = false;
    std::future<void> nested;
};

/// Writes a last record in its destructor.
class WriterThatLogsAtItsEnd final : public ILoggerWriter {
public:
    ~WriterThatLogsAtItsEnd() override { KEL_LOG(LogLevel::Info, "last words"); }

    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {}
};

using testing::ElementsAre;

constexpr const char* kTimePattern =
    "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";

constexpr LogLevel kLevels[] = {LogLevel::Info, LogLevel::Warning, LogLevel::Error,
                                LogLevel::Reserved, LogLevel::Milestone};

TEST(LogLevelWords, AreTheNamesOfTheLevels) {
    std::vector<std::string> words;
    for (const LogLevel level : kLevels) {
        words.push_back(ToString(level));
    }
    EXPECT_THAT(words, ElementsAre("Info", "Warning", "Error", "Reserved", "Milestone"));
    EXPECT_EQ(ToString(static_cast<LogLevel>(5)), "LogLevel(5)");
}

TEST(NumbersInTheLog, AreDecimal) {
    EXPECT_EQ(ToString(48000), "48000");
    EXPECT_EQ(ToString(INT_MIN), "-2147483648");
}

TEST(ARecord, ReachesTheWriterWithAllItsFields) {
    const test::StandardErrorCapture standardError;
    for (const LogLevel level : kLevels) {
        const test::LogCapture log;
        const ContextScope scope("work");
        const int line = __LINE__ + 1;
        KEL_LOG(level, "has " << 2 << " channels.");
        const std::vector<test::Record> records = log->Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, level);
        EXPECT_EQ(records[0].message, "has 2 channels.");
        EXPECT_EQ(records[0].context, "work");
        EXPECT_EQ(records[0].file, "kelCore/tests/LoggingTests.cpp");
        EXPECT_EQ(records[0].line, std::to_string(line));
        EXPECT_EQ(records[0].reserved, "");
        EXPECT_EQ(records[0].threadId, std::to_string(gettid()));
        EXPECT_THAT(records[0].time, testing::MatchesRegex(kTimePattern));
    }
    EXPECT_EQ(standardError.Text(), "");
}

TEST(ARecord, IsOneStatement) {
    const test::LogCapture log;
    bool otherwise = false;
    if (otherwise)
        KEL_LOG(LogLevel::Info, "not reached");
    else
        otherwise = true;
    EXPECT_TRUE(otherwise);
    EXPECT_TRUE(log->Records().empty());
}

/// Cannot be written.
struct Unprintable {};

std::ostream& operator<<(std::ostream& /*stream*/, const Unprintable& /*value*/) {
    throw std::bad_alloc();
}

TEST(ARecordWhoseTextCannotBeMade, ReportsThatAtItsLevelAndLine) {
    const test::LogCapture log;
    EXPECT_NO_THROW(KEL_LOG(LogLevel::Warning, "before " << Unprintable() << " after"));
    ASSERT_EQ(log->Records().size(), 1U);
    const test::Record record = log->Records()[0];
    EXPECT_EQ(record.level, LogLevel::Warning);
    EXPECT_EQ(record.message, "(text is lost)");
    EXPECT_EQ(record.file, "kelCore/tests/LoggingTests.cpp");
}

TEST(ARecordWithoutAWriter, IsOneLineOnStandardError) {
    SetCurrentLoggerWriter(nullptr);
    for (const LogLevel level : kLevels) {
        const test::StandardErrorCapture standardError;
        KEL_LOG(level, "some "
                           << "text");
        EXPECT_EQ(standardError.Text(), ToString(level) + " some text\n");
    }
}

/// Keeps its text, and marks each write with brackets and each flush with "<flush>".
class MarkingBuffer final : public std::stringbuf {
protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        sputc('[');
        std::stringbuf::xsputn(text, count);
        sputc(']');
        return count;
    }
    int sync() override {
        std::stringbuf::xsputn("<flush>", 7);
        return 0;
    }
};

TEST(ARecordWithoutAWriter, IsOneWriteThatIsFlushed) {
    SetCurrentLoggerWriter(nullptr);
    MarkingBuffer buffer;
    const test::CerrBuffer redirection(buffer);
    std::cerr << std::nounitbuf;
    KEL_LOG(LogLevel::Info, "text");
    EXPECT_EQ(buffer.str(), "[Info text\n]<flush>");
}

TEST(TheCurrentWriter, IsReadAgainForEveryRecord) {
    EXPECT_EQ(GetCurrentLoggerWriter(), nullptr) << "at the start of the program";
    const test::StandardErrorCapture standardError;
    const auto first = std::make_shared<test::CapturingWriter>();
    const auto second = std::make_shared<test::CapturingWriter>();
    SetCurrentLoggerWriter(first);
    EXPECT_EQ(GetCurrentLoggerWriter(), first);
    KEL_LOG(LogLevel::Info, "one");
    SetCurrentLoggerWriter(second);
    EXPECT_EQ(GetCurrentLoggerWriter(), second);
    KEL_LOG(LogLevel::Info, "two");
    SetCurrentLoggerWriter(nullptr);
    KEL_LOG(LogLevel::Info, "three");
    EXPECT_THAT(first->Messages(LogLevel::Info), ElementsAre("one"));
    EXPECT_THAT(second->Messages(LogLevel::Info), ElementsAre("two"));
    EXPECT_EQ(standardError.Text(), "Info three\n");
}

TEST(TheCurrentWriter, IsKeptUntilItIsReplaced) {
    auto writer = std::make_shared<test::CapturingWriter>();
    const std::weak_ptr<test::CapturingWriter> watch = writer;
    SetCurrentLoggerWriter(std::move(writer));
    EXPECT_FALSE(watch.expired());
    SetCurrentLoggerWriter(nullptr);
    EXPECT_TRUE(watch.expired());
}

TEST(TheCurrentWriter, MayLogInItsDestructor) {
    const test::LogCapture log;
    const std::shared_ptr<ILoggerWriter> capture = GetCurrentLoggerWriter();
    SetCurrentLoggerWriter(std::make_shared<WriterThatLogsAtItsEnd>());
    SetCurrentLoggerWriter(capture);
    EXPECT_THAT(log->Messages(LogLevel::Info), ElementsAre("last words"));
}

TEST(TheCurrentWriter, MayLogWhileItHandlesARecord) {
    const auto writer = std::make_shared<WriterThatLogs>();
    SetCurrentLoggerWriter(writer);
    KEL_LOG(LogLevel::Info, "text");
    SetCurrentLoggerWriter(nullptr);
    ASSERT_TRUE(writer->nested.valid());
    writer->nested.wait();
    EXPECT_FALSE(writer->waited);
    EXPECT_EQ(writer->calls, 2);
}

TEST(AWriterThatThrows, LeavesTheRecordToStandardError) {
    SetCurrentLoggerWriter(std::make_shared<FailingWriter>());
    for (const LogLevel level : kLevels) {
        const test::StandardErrorCapture standardError;
        EXPECT_NO_THROW(KEL_LOG(level, "text"));
        EXPECT_EQ(standardError.Text(), ToString(level) + " text\n");
    }
    SetCurrentLoggerWriter(nullptr);
}

// Logs with a failing buffer under std::cerr, with and without a writer that fails as well.
template <typename Buffer>
void ExpectThatNothingEscapes() {
    for (const std::ios::iostate exceptions :
         {std::ios::goodbit, std::ios::badbit | std::ios::failbit}) {
        for (const std::shared_ptr<ILoggerWriter>& writer :
             {std::shared_ptr<ILoggerWriter>(),
              std::shared_ptr<ILoggerWriter>(std::make_shared<FailingWriter>())}) {
            SetCurrentLoggerWriter(writer);
            Buffer buffer;
            const test::CerrBuffer redirection(buffer, exceptions);
            EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text"));
            EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text")) << "on a stream that failed before";
        }
    }
    SetCurrentLoggerWriter(nullptr);
}

// std::cerr is flushed at the end of every insertion, where the standard library may not throw.
TEST(StandardErrorThatFails, LetsNothingEscape) {
    ExpectThatNothingEscapes<test::RefusingBuffer>();
    ExpectThatNothingEscapes<test::ThrowingBuffer>();
    ExpectThatNothingEscapes<test::UnflushableBuffer>();
}

TEST(StandardErrorThatFails, LetsNothingEscapeWhenOnlyTheRecordFlushesIt) {
    SetCurrentLoggerWriter(nullptr);
    test::UnflushableBuffer buffer;
    const test::CerrBuffer redirection(buffer, std::ios::badbit | std::ios::failbit);
    std::cerr << std::nounitbuf;
    EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text"));
}

TEST(AContext, HasTheNamesOfTheOpenScopesOutermostFirst) {
    EXPECT_EQ(GetCurrentContextString(), "");
    const ContextScope outer("copy take.wav");
    EXPECT_EQ(GetCurrentContextString(), "copy take.wav");
    {
        const ContextScope middle("read");
        EXPECT_EQ(GetCurrentContextString(), "copy take.wav / read");
        {
            const ContextScope inner("block 3");
            EXPECT_EQ(GetCurrentContextString(), "copy take.wav / read / block 3");
        }
        EXPECT_EQ(GetCurrentContextString(), "copy take.wav / read");
    }
    EXPECT_EQ(GetCurrentContextString(), "copy take.wav");
}

TEST(AContext, BelongsToItsThread) {
    const ContextScope scope("main");
    std::string before;
    std::string within;
    std::thread([&] {
        before = GetCurrentContextString();
        const ContextScope other("other");
        within = GetCurrentContextString();
    }).join();
    EXPECT_EQ(before, "");
    EXPECT_EQ(within, "other");
    EXPECT_EQ(GetCurrentContextString(), "main");
}

TEST(AThreadId, IsTheKernelsNumber) {
    EXPECT_EQ(GetThreadId(), std::to_string(gettid()));
    std::thread([] { EXPECT_EQ(GetThreadId(), std::to_string(gettid())); }).join();
}

TEST(AThreadId, IsReadAgainAfterAFork) {
    EXPECT_EQ(GetThreadId(), std::to_string(gettid()));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(GetThreadId() == std::to_string(gettid()) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

long long Milliseconds(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

TEST(TheTime, IsNowInUtcWithMilliseconds) {
    const long long before = Milliseconds(std::chrono::system_clock::now());
    const std::string text = GetCurrentTimeString();
    const long long after = Milliseconds(std::chrono::system_clock::now());

    ASSERT_THAT(text, testing::MatchesRegex(kTimePattern));
    std::tm utc{};
    const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    ASSERT_NE(rest, nullptr);
    const long long time = timegm(&utc) * 1000LL + std::stoi(rest + 1);
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
}

TEST(TheTime, IsInUtcInAnyTimeZone) {
    // Texts of this form sort as their times do.
    const std::string before = GetCurrentTimeString();
    for (const char* const zone : {"FAR-13:45", "BEHIND+11:30"}) {
        SCOPED_TRACE(zone);
        ASSERT_EQ(setenv("TZ", zone, 1), 0);
        tzset();
        const std::string text = GetCurrentTimeString();
        ASSERT_EQ(unsetenv("TZ"), 0);
        tzset();
        EXPECT_GE(text, before);
        EXPECT_LE(text, GetCurrentTimeString());
    }
}

} // namespace
} // namespace kel
