#include <LogCapture.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace kel {

TEST(LogCapture, StoresAllPartsOfEachRecord) {
    const LogCapture log;
    GetCurrentLoggerWriter()->Write(LogLevel::Warning, "message", "context", "file", "line",
                                    "reserved", "thread", "time");
    const std::vector<LogRecord> records = log->Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, LogLevel::Warning);
    EXPECT_EQ(records[0].message, "message");
    EXPECT_EQ(records[0].context, "context");
    EXPECT_EQ(records[0].file, "file");
    EXPECT_EQ(records[0].line, "line");
    EXPECT_EQ(records[0].reserved, "reserved");
    EXPECT_EQ(records[0].threadId, "thread");
    EXPECT_EQ(records[0].time, "time");
}

TEST(LogCapture, ReturnsTheMessagesOfALevelUntilItIsCleared) {
    const LogCapture log;
    KEL_LOG(LogLevel::Info, "first");
    KEL_LOG(LogLevel::Error, "another level");
    KEL_LOG(LogLevel::Info, "second");
    EXPECT_EQ(log->Messages(LogLevel::Info), (std::vector<std::string>{"first", "second"}));
    log->Clear();
    EXPECT_TRUE(log->Records().empty());
}

TEST(LogCapture, RestoresTheFormerWriter) {
    const LogCapture outer;
    const auto former = GetCurrentLoggerWriter();
    {
        const LogCapture inner;
        KEL_LOG(LogLevel::Info, "inner");
    }
    EXPECT_EQ(GetCurrentLoggerWriter(), former);
    EXPECT_TRUE(outer->Records().empty());
}

} // namespace kel
