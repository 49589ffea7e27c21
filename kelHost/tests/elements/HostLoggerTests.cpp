#include "elements/HostLogger.h"

#include "base/Errors.h"

#include <CapturingWriter.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace kel::host {

namespace {

void WriteTo(HostLogger& log, LogLevel level, const char* message, const char* context = "") {
    log.Write(level, message, context, "directory/File.cpp", "42", "", "1234",
              "2026-11-21T09:30:00.125Z");
}

HostLogger MakeLog(std::ostream& stream, bool verbose) {
    return {[&stream](const std::string& line) { stream << line << "\n"; },
            verbose ? Verbosity::Everything : Verbosity::Usual};
}

using Messages = std::vector<std::string>;

Messages MessagesOf(const std::vector<ErrorRecord>& records) {
    Messages messages;
    for (const ErrorRecord& record : records) {
        messages.push_back(record.message);
    }
    return messages;
}

constexpr LogLevel kAllLevels[] = {LogLevel::Info, LogLevel::Warning, LogLevel::Error,
                                   LogLevel::Reserved, LogLevel::Milestone};

} // namespace

TEST(HostLogger, ShowsMoreFromVerbosityToVerbosity) {
    struct Row {
        Verbosity verbosity;
        std::vector<LogLevel> shown;
    };
    for (const Row& row : {
             Row{Verbosity::Nothing, {}},
             Row{Verbosity::Errors, {LogLevel::Error}},
             Row{Verbosity::Warnings, {LogLevel::Warning, LogLevel::Error}},
             Row{Verbosity::Milestones, {LogLevel::Warning, LogLevel::Error, LogLevel::Milestone}},
             Row{Verbosity::Everything, {std::begin(kAllLevels), std::end(kAllLevels)}},
         }) {
        std::vector<std::string> lines;
        HostLogger log([&lines](const std::string& line) { lines.push_back(line); }, row.verbosity);
        for (const LogLevel level : kAllLevels) {
            WriteTo(log, level, "text");
        }
        std::vector<std::string> expected;
        for (const LogLevel level : row.shown) {
            expected.push_back("2026-11-21T09:30:00.125Z " + ToString(level) +
                               " [1234] text (directory/File.cpp:42)");
        }
        EXPECT_EQ(lines, expected);
        EXPECT_EQ(log.CountErrors(), 1U);
    }
}

TEST(HostLogger, ParsesItsVerbosity) {
    EXPECT_EQ(ParseVerbosity("none"), Verbosity::Nothing);
    EXPECT_EQ(ParseVerbosity("error"), Verbosity::Errors);
    EXPECT_EQ(ParseVerbosity("warning"), Verbosity::Warnings);
    EXPECT_EQ(ParseVerbosity("milestone"), Verbosity::Milestones);
    EXPECT_EQ(ParseVerbosity("info"), Verbosity::Everything);
    for (const char* word : {"", "Info", "verbose"}) {
        EXPECT_THROW(ParseVerbosity(word), UsageError) << word;
    }
}

TEST(HostLogger, ShowsEachRecordOnOneLineAndUsuallyOnlyWarnings) {
    std::ostringstream quiet;
    std::ostringstream verbose;
    HostLogger usual = MakeLog(quiet, false);
    HostLogger everything = MakeLog(verbose, true);
    for (HostLogger* log : {&usual, &everything}) {
        WriteTo(*log, LogLevel::Info, "text");
        WriteTo(*log, LogLevel::Warning, "a\nb\x1B\xFF", "in\nside");
    }
    EXPECT_EQ(quiet.str(), "kelhost: warning: a\\nb\\x1B\\xFF\n");
    EXPECT_EQ(verbose.str(), "2026-11-21T09:30:00.125Z Info [1234] text (directory/File.cpp:42)\n"
                             "2026-11-21T09:30:00.125Z Warning [1234] a\\nb\\x1B\\xFF "
                             "(directory/File.cpp:42) in in\\nside\n");
}

TEST(HostLogger, KeepsTheRecordsAtLevelErrorAsTheyAre) {
    std::ostringstream stream;
    HostLogger log = MakeLog(stream, false);
    EXPECT_EQ(log.CountErrors(), 0U);
    EXPECT_EQ(MessagesOf(log.ErrorsSince(0)), std::vector<std::string>{});
    for (const LogLevel level : kAllLevels) {
        WriteTo(log, level, ("first at\n" + ToString(level)).c_str());
    }
    EXPECT_EQ(log.CountErrors(), 1U);
    WriteTo(log, LogLevel::Error, "second");
    EXPECT_EQ(log.CountErrors(), 2U);
    EXPECT_EQ(MessagesOf(log.ErrorsSince(0)),
              (std::vector<std::string>{"first at\nError", "second"}));
    EXPECT_EQ(MessagesOf(log.ErrorsSince(1)), std::vector<std::string>{"second"});
    EXPECT_EQ(MessagesOf(log.ErrorsSince(2)), std::vector<std::string>{});
}

TEST(HostLogger, SeparatesErrorsOfOneContextFromAllOthers) {
    std::ostringstream stream;
    HostLogger log = MakeLog(stream, false);
    WriteTo(log, LogLevel::Error, "before", "reading a");
    WriteTo(log, LogLevel::Error, "alone", "reading a");
    WriteTo(log, LogLevel::Error, "inner", "copy a / reading a");
    WriteTo(log, LogLevel::Error, "nowhere", "");
    WriteTo(log, LogLevel::Error, "outer", "reading a / copy a");
    WriteTo(log, LogLevel::Error, "other", "reading b");
    WriteTo(log, LogLevel::Warning, "no error", "reading a");
    EXPECT_EQ(MessagesOf(log.ErrorsSince(1, "reading a", true)), (Messages{"alone", "inner"}));
    EXPECT_EQ(MessagesOf(log.ErrorsSince(1, "reading a", false)),
              (Messages{"nowhere", "outer", "other"}));
    EXPECT_EQ(MessagesOf(log.ErrorsSince(6, "reading a", true)), Messages{});
}

TEST(HostLogger, KeepsTheErrorOfTheSystem) {
    std::ostringstream stream;
    HostLogger log = MakeLog(stream, true);
    errno = ENOSPC;
    WriteTo(log, LogLevel::Error, "full");
    errno = 0;
    WriteTo(log, LogLevel::Error, "none");
    EXPECT_EQ(log.ErrorsSince(0).front().systemError, ENOSPC);
    EXPECT_EQ(log.ErrorsSince(1).front().systemError, 0);
}

TEST(InstalledHostLog, IsTheCurrentWriterForAsLongAsItLives) {
    const test::LogCapture outer;
    std::ostringstream stream;
    const auto log = std::make_shared<HostLogger>(
        [&stream](const std::string& line) { stream << line << "\n"; }, Verbosity::Usual);
    {
        const InstalledLogger installed(log);
        KEL_LOG(LogLevel::Error, "inside");
    }
    KEL_LOG(LogLevel::Error, "outside");
    EXPECT_EQ(MessagesOf(log->ErrorsSince(0)), std::vector<std::string>{"inside"});
    EXPECT_EQ(outer->Messages(LogLevel::Error), std::vector<std::string>{"outside"});
}

TEST(HostLogThreads, LogAtTheSameTimeWithoutMixingTheirLines) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kRecords = 200;
    std::ostringstream stream;
    const auto log = std::make_shared<HostLogger>(
        [&stream](const std::string& line) { stream << line << "\n"; }, Verbosity::Usual);
    const InstalledLogger installed(log);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([] {
            for (std::size_t record = 0; record < kRecords; ++record) {
                KEL_LOG(LogLevel::Error, "an error");
                KEL_LOG(LogLevel::Warning, "a warning");
            }
        });
    }
    std::size_t seen = 0;
    while (seen < kThreads * kRecords) {
        const std::size_t count = log->CountErrors();
        ASSERT_GE(count, seen);
        ASSERT_GE(log->ErrorsSince(seen).size(), count - seen);
        seen = count;
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string expected;
    for (std::size_t line = 0; line < kThreads * kRecords; ++line) {
        expected += "kelhost: warning: a warning\n";
    }
    EXPECT_EQ(stream.str(), expected);
    EXPECT_EQ(MessagesOf(log->ErrorsSince(0)),
              std::vector<std::string>(kThreads * kRecords, std::string("an error")));
}

} // namespace kel::host
