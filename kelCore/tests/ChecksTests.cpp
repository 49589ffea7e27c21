#include "StandardError.h"

#include <CapturingWriter.h>
#include <Checks.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kel {

namespace {

constexpr const char* kThisFile = "kelCore/tests/ChecksTests.cpp";

struct Failure {
    const char* name;
    std::function<void()> check;
    std::string message;
};

void PrintTo(const Failure& failure, std::ostream* stream) {
    *stream << failure.name;
}

std::vector<Failure> Failures() {
    const int* const nothing = nullptr;
    const auto number = [](auto value) {
        return value;
    };
    return {
        {"Report", [] { KEL_FAIL("refused"); }, "[refused]"},
        {"ReportOfAnEmptyText", [] { KEL_FAIL(""); }, "[]"},
        {"ReportOfAStreamedText", [number] { KEL_FAIL("has " << number(7) << " channels" << '.'); },
         "[has 7 channels.]"},
        {"ReportOfATextWithBracketsAndPercents", [] { KEL_FAIL("[%s] %d\n\"x\""); },
         "[[%s] %d\n\"x\"]"},
        {"RawPointer", [nothing] { KEL_CHECK_POINTER(nothing, "can not create it"); },
         "[can not create it] [ Pointer is null ]"},
        {"SharedHandle", [] { KEL_CHECK_POINTER(std::shared_ptr<int>(), "shared"); },
         "[shared] [ Pointer is null ]"},
        {"UniqueHandle", [] { KEL_CHECK_POINTER(std::unique_ptr<int>(), "unique"); },
         "[unique] [ Pointer is null ]"},
        {"PointerWithAStreamedText",
         [nothing, number] { KEL_CHECK_POINTER(nothing, "item " << number(3)); },
         "[item 3] [ Pointer is null ]"},
        {"Condition", [number] { KEL_CHECK(number(1) > number(2), "too small"); },
         "[too small] [ Condition is not true ]"},
        {"ConditionWithAStreamedText",
         [number] { KEL_CHECK(number(false), "item " << number(3) << "!"); },
         "[item 3!] [ Condition is not true ]"},
        {"Equal", [number] { KEL_CHECK_EQUAL(number(3), number(4), "differs"); },
         "[differs] [ value1 (3) is not == value2 (4) ]"},
        {"EqualWithAStreamedText",
         [number] { KEL_CHECK_EQUAL(number(3), number(4), "in " << number(5)); },
         "[in 5] [ value1 (3) is not == value2 (4) ]"},
        {"NotEqual", [number] { KEL_CHECK_NOT_EQUAL(number(3), number(3), "the same"); },
         "[the same] [ value1 (3) is not != value2 (3) ]"},
        {"EqualOfTexts", [number] { KEL_CHECK_EQUAL(number(std::string("a")), "b", "texts"); },
         "[texts] [ value1 (a) is not == value2 (b) ]"},
        {"EqualOfNegativeNumbers",
         [number] { KEL_CHECK_EQUAL(number(-1), number(-2), "negative"); },
         "[negative] [ value1 (-1) is not == value2 (-2) ]"},
        {"EqualOfTheLargestNumbers",
         [number] {
             KEL_CHECK_EQUAL(number(std::uint64_t{18446744073709551615U}), number(std::uint64_t{0}),
                             "large");
         },
         "[large] [ value1 (18446744073709551615) is not == value2 (0) ]"},
        {"EqualOfTheSmallestNumbers",
         [number] {
             KEL_CHECK_EQUAL(number(std::int64_t{-9223372036854775807}), number(std::int64_t{0}),
                             "small");
         },
         "[small] [ value1 (-9223372036854775807) is not == value2 (0) ]"},
        {"EqualOfOneByteNumbers",
         [number] {
             KEL_CHECK_EQUAL(number(std::uint8_t{65}), number(std::uint8_t{200}), "bytes");
         },
         "[bytes] [ value1 (65) is not == value2 (200) ]"},
        {"NotEqualOfSignedOneByteNumbers",
         [number] {
             KEL_CHECK_NOT_EQUAL(number(std::int8_t{-3}), number(std::int8_t{-3}), "bytes");
         },
         "[bytes] [ value1 (-3) is not != value2 (-3) ]"},
        {"EqualOfFractions", [number] { KEL_CHECK_EQUAL(number(0.5), number(1.25), "half"); },
         "[half] [ value1 (0.5) is not == value2 (1.25) ]"},
    };
}

class FailingCheck : public testing::TestWithParam<Failure> {};

TEST_P(FailingCheck, LogsItsMessageOnceAndThrowsIt) {
    test::ExpectFailure(GetParam().message, kThisFile, GetParam().check);
}

TEST_P(FailingCheck, WritesNoRecordOfAnotherLevelAndNothingToStandardError) {
    const test::StandardErrorCapture standardError;
    const test::LogCapture log;
    EXPECT_THROW(GetParam().check(), KELRuntimeError);
    EXPECT_EQ(log->Records().size(), 1U);
    EXPECT_EQ(standardError.Text(), "");
}

TEST_P(FailingCheck, WritesOneLineToStandardErrorWithoutAWriter) {
    SetCurrentLoggerWriter(nullptr);
    const test::StandardErrorCapture standardError;
    EXPECT_THROW(GetParam().check(), KELRuntimeError);
    EXPECT_EQ(standardError.Text(), "Error " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(Each, FailingCheck, testing::ValuesIn(Failures()),
                         [](const testing::TestParamInfo<Failure>& tested) {
                             return std::string(tested.param.name);
                         });

TEST(PassingChecks, LogNothingAndReturn) {
    const test::LogCapture log;
    const int value = 0;
    KEL_CHECK_POINTER(&value, "pointer");
    KEL_CHECK_POINTER(std::make_shared<int>(0), "handle");
    KEL_CHECK(value == 0, "condition");
    KEL_CHECK_EQUAL(value, 0, "equal");
    KEL_CHECK_NOT_EQUAL(value, 1, "not equal");
    EXPECT_TRUE(log->Records().empty());
}

TEST(Checks, AreOneStatement) {
    bool otherwise = false;
    if (otherwise)
        KEL_FAIL("not reached");
    else
        otherwise = true;
    EXPECT_TRUE(otherwise);
}

TEST(Checks, EvaluateWhatTheyCheckOnce) {
    const test::LogCapture log;
    int count = 0;
    KEL_CHECK_EQUAL(++count, 1, "equal");
    KEL_CHECK_NOT_EQUAL(++count, 1, "not equal");
    KEL_CHECK(++count == 3, "condition");
    EXPECT_THROW(KEL_CHECK_EQUAL(++count, 0, "text " << ++count), KELRuntimeError);
    EXPECT_EQ(count, 5);
}

TEST(AFailedCheck, HandsTheWriterAllPieces) {
    const test::LogCapture log;
    const ContextScope scope("checking");
    int line = 0;
    try {
        line = __LINE__ + 1;
        KEL_CHECK_POINTER(static_cast<int*>(nullptr), "can not create LibsndfileSink");
    } catch (const KELRuntimeError& error) {
        EXPECT_STREQ(error.what(), "[can not create LibsndfileSink] [ Pointer is null ]");
    }
    const std::vector<test::Record> records = log->Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, LogLevel::Error);
    EXPECT_EQ(static_cast<int>(records[0].level), 2);
    EXPECT_EQ(records[0].message, "[can not create LibsndfileSink] [ Pointer is null ]");
    EXPECT_EQ(records[0].context, "checking");
    EXPECT_EQ(records[0].file, kThisFile);
    EXPECT_EQ(records[0].line, std::to_string(line));
    EXPECT_EQ(records[0].reserved, "");
    EXPECT_EQ(records[0].threadId, GetThreadId());
    EXPECT_FALSE(records[0].time.empty());
}

TEST(AFailedCheck, LetsGoOfTheWriterBeforeItThrows) {
    const auto writer = std::make_shared<test::CapturingWriter>();
    SetCurrentLoggerWriter(writer);
    try {
        KEL_FAIL("refused");
    } catch (const KELRuntimeError&) {
        EXPECT_EQ(writer.use_count(), 2) << "the test's handle and the framework's";
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

TEST(AFailedCheck, ThrowsItsOwnErrorWhenTheWriterThrows) {
    const test::StandardErrorCapture standardError;
    SetCurrentLoggerWriter(std::make_shared<ThrowingWriter>());
    ExpectThatChecksStillThrow();
    SetCurrentLoggerWriter(nullptr);
    EXPECT_EQ(standardError.Text(), "Error [refused]\n");
}

TEST(AFailedCheck, ThrowsItsOwnErrorWhenStandardErrorThrows) {
    SetCurrentLoggerWriter(nullptr);
    test::RefusingBuffer buffer;
    const test::CerrBuffer redirection(buffer, std::ios::badbit | std::ios::failbit);
    ExpectThatChecksStillThrow();
}

TEST(AFailedCheck, ThrowsItsOwnErrorWhenWriterAndStandardErrorThrow) {
    SetCurrentLoggerWriter(std::make_shared<ThrowingWriter>());
    test::ThrowingBuffer buffer;
    const test::CerrBuffer redirection(buffer, std::ios::badbit);
    ExpectThatChecksStillThrow();
    SetCurrentLoggerWriter(nullptr);
}

} // namespace
} // namespace kel
