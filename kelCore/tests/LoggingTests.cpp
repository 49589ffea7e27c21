#include "StandardError.h"

#include <CapturingWriter.h>
#include <Logging.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace kel {

namespace {

static_assert(std::has_virtual_destructor_v<ILoggerWriter>);
static_assert(std::is_abstract_v<ILoggerWriter>);

/// Fails in one way at each record.
class FailingWriter final : public ILoggerWriter {
public:
    explicit FailingWriter(bool withStandardException)
        : m_withStandardException(withStandardException) {}

    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        ++calls;
        if (m_withStandardException) {
            throw std::runtime_error("the writer's own");
        }
        throw 42;
    }

    int calls = 0;

private:
    bool m_withStandardException;
};

/// Writes a last record when it goes.
class WriterThatLogsAtItsEnd final : public ILoggerWriter {
public:
    ~WriterThatLogsAtItsEnd() override { KEL_LOG(LogLevel::Info, "last words"); }

    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {}
};

constexpr const char* kTimePattern =
    "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";

constexpr LogLevel kLevels[] = {LogLevel::Info, LogLevel::Warning, LogLevel::Error,
                                LogLevel::Reserved, LogLevel::Milestone};

TEST(LogLevelWords, AreTheNamesOfTheLevels) {
    EXPECT_EQ(ToString(LogLevel::Info), "Info");
    EXPECT_EQ(ToString(LogLevel::Warning), "Warning");
    EXPECT_EQ(ToString(LogLevel::Error), "Error");
    EXPECT_EQ(ToString(LogLevel::Reserved), "Reserved");
    EXPECT_EQ(ToString(LogLevel::Milestone), "Milestone");
    EXPECT_EQ(ToString(static_cast<LogLevel>(5)), "LogLevel(5)");
}

TEST(NumbersInTheLog, AreDecimal) {
    EXPECT_EQ(ToString(0), "0");
    EXPECT_EQ(ToString(48000), "48000");
    EXPECT_EQ(ToString(-1), "-1");
    EXPECT_EQ(ToString(INT_MAX), "2147483647");
    EXPECT_EQ(ToString(INT_MIN), "-2147483648");
}

TEST(ARecord, ReachesTheWriterWithAllItsPieces) {
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

TEST(ARecord, HasAnEmptyContextOutsideOfAnyScope) {
    const test::LogCapture log;
    KEL_LOG(LogLevel::Info, "text");
    ASSERT_EQ(log->Records().size(), 1U);
    EXPECT_EQ(log->Records()[0].context, "");
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

/// Has no text.
struct Unprintable {};

std::ostream& operator<<(std::ostream& /*stream*/, const Unprintable& /*value*/) {
    throw std::bad_alloc();
}

TEST(ARecordWhoseTextCanNotBeMade, SaysSoAtItsLevelAndPlace) {
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

/// Keeps what is written, and marks each flush with "<flush>".
class FlushMarkingBuffer final : public std::stringbuf {
protected:
    int sync() override {
        sputn("<flush>", 7);
        return 0;
    }
};

TEST(ARecordWithoutAWriter, IsFlushed) {
    SetCurrentLoggerWriter(nullptr);
    FlushMarkingBuffer buffer;
    const test::CerrBuffer redirection(buffer);
    std::cerr << std::nounitbuf;
    KEL_LOG(LogLevel::Info, "text");
    EXPECT_EQ(buffer.str(), "Info text\n<flush>");
}

TEST(TheCurrentWriter, IsNoneAtFirst) {
    EXPECT_EQ(GetCurrentLoggerWriter(), nullptr);
}

TEST(TheCurrentWriter, IsTheOneThatWasSetLast) {
    const auto first = std::make_shared<test::CapturingWriter>();
    const auto second = std::make_shared<test::CapturingWriter>();
    SetCurrentLoggerWriter(first);
    EXPECT_EQ(GetCurrentLoggerWriter(), first);
    SetCurrentLoggerWriter(second);
    EXPECT_EQ(GetCurrentLoggerWriter(), second);
    SetCurrentLoggerWriter(nullptr);
    EXPECT_EQ(GetCurrentLoggerWriter(), nullptr);
}

TEST(TheCurrentWriter, IsReadAnewForEveryRecord) {
    const test::StandardErrorCapture standardError;
    const auto first = std::make_shared<test::CapturingWriter>();
    const auto second = std::make_shared<test::CapturingWriter>();
    SetCurrentLoggerWriter(first);
    KEL_LOG(LogLevel::Info, "one");
    SetCurrentLoggerWriter(second);
    KEL_LOG(LogLevel::Info, "two");
    SetCurrentLoggerWriter(nullptr);
    KEL_LOG(LogLevel::Info, "three");
    EXPECT_EQ(first->Messages(LogLevel::Info), std::vector<std::string>{"one"});
    EXPECT_EQ(second->Messages(LogLevel::Info), std::vector<std::string>{"two"});
    EXPECT_EQ(standardError.Text(), "Info three\n");
}

TEST(TheCurrentWriter, IsKeptUntilItIsExchanged) {
    auto writer = std::make_shared<test::CapturingWriter>();
    const std::weak_ptr<test::CapturingWriter> watch = writer;
    SetCurrentLoggerWriter(std::move(writer));
    EXPECT_FALSE(watch.expired());
    SetCurrentLoggerWriter(nullptr);
    EXPECT_TRUE(watch.expired());
}

TEST(TheCurrentWriter, MayLogWhenItGoes) {
    const test::LogCapture log;
    const std::shared_ptr<ILoggerWriter> capture = GetCurrentLoggerWriter();
    SetCurrentLoggerWriter(std::make_shared<WriterThatLogsAtItsEnd>());
    SetCurrentLoggerWriter(capture);
    EXPECT_EQ(log->Messages(LogLevel::Info), std::vector<std::string>{"last words"});
}

class WriterFailure : public testing::TestWithParam<bool> {};

TEST_P(WriterFailure, SendsTheRecordToStandardErrorAndIsSwallowed) {
    const auto writer = std::make_shared<FailingWriter>(GetParam());
    SetCurrentLoggerWriter(writer);
    for (const LogLevel level : kLevels) {
        const test::StandardErrorCapture standardError;
        EXPECT_NO_THROW(KEL_LOG(level, "some "
                                           << "text"));
        EXPECT_EQ(standardError.Text(), ToString(level) + " some text\n");
    }
    SetCurrentLoggerWriter(nullptr);
    EXPECT_EQ(writer->calls, 5);
}

INSTANTIATE_TEST_SUITE_P(Of, WriterFailure, testing::Bool(), [](const auto& tested) {
    return tested.param ? std::string("AStandardException") : std::string("AnyException");
});

// Logs once with a failing buffer under std::cerr, with and without a writer that fails as well.
template <typename Buffer>
void ExpectThatNothingEscapes(std::ios::iostate exceptions) {
    for (const std::shared_ptr<ILoggerWriter>& writer :
         {std::shared_ptr<ILoggerWriter>(),
          std::shared_ptr<ILoggerWriter>(std::make_shared<FailingWriter>(true))}) {
        SetCurrentLoggerWriter(writer);
        Buffer buffer;
        const test::CerrBuffer redirection(buffer, exceptions);
        EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text"));
        EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text")) << "on a stream that has failed already";
    }
    SetCurrentLoggerWriter(nullptr);
}

TEST(StandardErrorThatFails, LetsNothingEscape) {
    ExpectThatNothingEscapes<test::RefusingBuffer>(std::ios::goodbit);
    ExpectThatNothingEscapes<test::ThrowingBuffer>(std::ios::goodbit);
    ExpectThatNothingEscapes<test::UnflushableBuffer>(std::ios::goodbit);
}

constexpr std::ios::iostate kAnyFailure = std::ios::badbit | std::ios::failbit;

TEST(StandardErrorThatThrows, LetsNothingEscape) {
    ExpectThatNothingEscapes<test::RefusingBuffer>(kAnyFailure);
    ExpectThatNothingEscapes<test::ThrowingBuffer>(kAnyFailure);
}

TEST(StandardErrorThatThrows, LetsNothingEscapeWhenItCanNotBeFlushed) {
    SetCurrentLoggerWriter(nullptr);
    test::UnflushableBuffer buffer;
    const test::CerrBuffer redirection(buffer, kAnyFailure);
    std::cerr << std::nounitbuf; // flushed by the record alone
    EXPECT_NO_THROW(KEL_LOG(LogLevel::Info, "text"));
}

// std::cerr is flushed at the end of every insertion, where the standard library may not throw.
TEST(StandardErrorThatThrows, IsNotTheEndOfTheProcessWhenItCanNotBeFlushed) {
    ExpectThatNothingEscapes<test::UnflushableBuffer>(kAnyFailure);
}

TEST(StandardErrorThatThrows, DoesNotTouchAWriterThatWorks) {
    const test::LogCapture log;
    test::ThrowingBuffer buffer;
    const test::CerrBuffer redirection(buffer, std::ios::badbit);
    KEL_LOG(LogLevel::Info, "text");
    EXPECT_EQ(log->Messages(LogLevel::Info), std::vector<std::string>{"text"});
}

TEST(AContext, IsEmptyOutsideOfAnyScope) {
    EXPECT_EQ(GetCurrentContextString(), "");
}

TEST(AContext, NamesTheScopesFromTheOutermostAndForgetsThemAtTheirEnd) {
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

TEST(AContext, EndsWithAnException) {
    try {
        const ContextScope scope("work");
        throw std::runtime_error("stop");
    } catch (const std::runtime_error&) {
        EXPECT_EQ(GetCurrentContextString(), "");
    }
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
    std::string id;
    std::string expected;
    std::thread([&] {
        id = GetThreadId();
        expected = std::to_string(gettid());
    }).join();
    EXPECT_EQ(id, expected);
    EXPECT_NE(id, GetThreadId());
}

long long Milliseconds(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

TEST(TheTime, IsThePresentInUtcWithMilliseconds) {
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

TEST(TheTime, IsInUtcWhateverTheTimeZone) {
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
