#include "StandardError.h"

#include <CapturingWriter.h>
#include <Checks.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace kel {

namespace {

constexpr const char* kThisFile = "kelCore/tests/ChecksTests.cpp";

struct Failure {
    std::string message;
    std::function<void()> check;
};

enum class Wide : std::uint64_t { Last = 18446744073709551615U };
enum class Narrow : std::int8_t { Letter = 65, Negative = -3 };
enum class Truth : bool { No, Yes };
enum class Named { One };

std::ostream& operator<<(std::ostream& stream, Named /*value*/) {
    return stream << "one";
}

std::vector<Failure> Failures() {
    const int* const nothing = nullptr;
    const auto number = [](auto value) {
        return value;
    };
    return {
        {"[refused]",
         [] {
             KEL_FAIL("refused");
         }},
        {"[]",
         [] {
             KEL_FAIL("");
         }},
        {"[has 7 channels.]",
         [number] {
             KEL_FAIL("has " << number(7) << " channels" << '.');
         }},
        {"[[%s] %d\n\"x\"]",
         [] {
             KEL_FAIL("[%s] %d\n\"x\"");
         }},
        {"[raw 3] [ Pointer is null ]",
         [nothing, number] {
             KEL_CHECK_POINTER(nothing, "raw " << number(3));
         }},
        {"[shared] [ Pointer is null ]",
         [] {
             KEL_CHECK_POINTER(std::shared_ptr<int>(), "shared");
         }},
        {"[unique] [ Pointer is null ]",
         [] {
             KEL_CHECK_POINTER(std::unique_ptr<int>(), "unique");
         }},
        {"[item 3!] [ Condition is not true ]",
         [number] {
             KEL_CHECK(number(1) > number(2), "item " << number(3) << "!");
         }},
        {"[in 5] [ value1 (3) is not == value2 (4) ]",
         [number] {
             KEL_CHECK_EQUAL(number(3), number(4), "in " << number(5));
         }},
        {"[the same] [ value1 (3) is not != value2 (3) ]",
         [number] {
             KEL_CHECK_NOT_EQUAL(number(3), number(3), "the same");
         }},
        {"[texts] [ value1 (a) is not == value2 (b) ]",
         [number] {
             KEL_CHECK_EQUAL(number(std::string("a")), "b", "texts");
         }},
        {"[large] [ value1 (18446744073709551615) is not == value2 (0) ]",
         [number] {
             KEL_CHECK_EQUAL(number(std::uint64_t{18446744073709551615U}), std::uint64_t{0},
                             "large");
         }},
        {"[bytes] [ value1 (65) is not == value2 (200) ]",
         [number] {
             KEL_CHECK_EQUAL(number(std::uint8_t{65}), std::uint8_t{200}, "bytes");
         }},
        {"[bytes] [ value1 (-3) is not != value2 (-3) ]",
         [number] {
             KEL_CHECK_NOT_EQUAL(number(std::int8_t{-3}), std::int8_t{-3}, "bytes");
         }},
        {"[scoped] [ value1 (65) is not == value2 (-3) ]",
         [number] {
             KEL_CHECK_EQUAL(number(Narrow::Letter), Narrow::Negative, "scoped");
         }},
        {"[scoped] [ value1 (18446744073709551615) is not != value2 (18446744073709551615) ]",
         [number] {
             KEL_CHECK_NOT_EQUAL(number(Wide::Last), Wide::Last, "scoped");
         }},
        {"[scoped] [ value1 (1) is not == value2 (0) ]",
         [number] {
             KEL_CHECK_EQUAL(number(Truth::Yes), Truth::No, "scoped");
         }},
        {"[streamed] [ value1 (one) is not != value2 (one) ]",
         [number] {
             KEL_CHECK_NOT_EQUAL(number(Named::One), Named::One, "streamed");
         }},
    };
}

TEST(AFailedCheck, LogsItsMessageOnceAndThrowsIt) {
    for (const Failure& failure : Failures()) {
        const test::StandardErrorCapture standardError;
        test::ExpectFailure(failure.message, kThisFile, failure.check);
        EXPECT_EQ(standardError.Text(), "");
    }
}

TEST(AFailedCheck, WritesOneLineToStandardErrorWithoutAWriter) {
    SetCurrentLoggerWriter(nullptr);
    for (const Failure& failure : Failures()) {
        const test::StandardErrorCapture standardError;
        EXPECT_THROW(failure.check(), KELRuntimeError);
        EXPECT_EQ(standardError.Text(), "Error " + failure.message + "\n");
    }
}

TEST(APassingCheck, LogsNothingAndReturns) {
    const test::LogCapture log;
    const int value = 0;
    KEL_CHECK_POINTER(&value, "pointer");
    KEL_CHECK_POINTER(std::make_shared<int>(0), "handle");
    KEL_CHECK(value == 0, "condition");
    KEL_CHECK_EQUAL(value, 0, "equal");
    KEL_CHECK_NOT_EQUAL(value, 1, "not equal");
    EXPECT_TRUE(log->Records().empty());
}

TEST(ACheck, IsOneStatement) {
    bool otherwise = false;
    if (otherwise)
        KEL_FAIL("not reached");
    else
        otherwise = true;
    EXPECT_TRUE(otherwise);
}

TEST(ACheck, EvaluatesItsArgumentsOnce) {
    const test::LogCapture log;
    int count = 0;
    KEL_CHECK_EQUAL(++count, 1, "equal");
    KEL_CHECK_NOT_EQUAL(++count, 1, "not equal");
    KEL_CHECK(++count == 3, "condition");
    EXPECT_THROW(KEL_CHECK_EQUAL(++count, 0, "text " << ++count), KELRuntimeError);
    EXPECT_EQ(count, 5);
}

TEST(AFailedCheck, PassesAllFieldsToTheWriter) {
    const test::LogCapture log;
    const ContextScope scope("checking");
    const int line = __LINE__ + 1;
    EXPECT_THROW(KEL_FAIL("refused"), KELRuntimeError);
    const std::vector<test::Record> records = log->Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, LogLevel::Error);
    EXPECT_EQ(records[0].context, "checking");
    EXPECT_EQ(records[0].file, kThisFile);
    EXPECT_EQ(records[0].line, std::to_string(line));
    EXPECT_EQ(records[0].threadId, GetThreadId());
    EXPECT_FALSE(records[0].time.empty());
}

TEST(AFailedCheck, ReleasesTheWriterBeforeItThrows) {
    const auto writer = std::make_shared<test::CapturingWriter>();
    SetCurrentLoggerWriter(writer);
    try {
        KEL_FAIL("refused");
    } catch (const KELRuntimeError&) {
        EXPECT_EQ(writer.use_count(), 2) << "the handles of the test and of the framework";
    }
    SetCurrentLoggerWriter(nullptr);
    EXPECT_EQ(writer->Records().size(), 1U);
}

void ExpectThatChecksStillThrow() {
    try {
        KEL_FAIL("refused");
        ADD_FAILURE() << "the check returned";
    } catch (const KELRuntimeError& error) {
        EXPECT_STREQ(error.what(), "[refused]");
    }
}

class ThrowingWriter final : public ILoggerWriter {
public:
    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        throw 42;
    }
};

TEST(AFailedCheck, ThrowsItsOwnErrorWhenTheWriterOrStandardErrorThrows) {
    {
        const test::StandardErrorCapture standardError;
        SetCurrentLoggerWriter(std::make_shared<ThrowingWriter>());
        ExpectThatChecksStillThrow();
        EXPECT_EQ(standardError.Text(), "Error [refused]\n");
    }
    test::ThrowingBuffer buffer;
    const test::CerrBuffer redirection(buffer, std::ios::badbit);
    ExpectThatChecksStillThrow();
    SetCurrentLoggerWriter(nullptr);
    ExpectThatChecksStillThrow();
}

} // namespace
} // namespace kel
