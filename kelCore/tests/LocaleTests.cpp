// A host may choose any locale; messages and texts of the framework stay the same.

#include <CapturingWriter.h>
#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace kel {

namespace {

/// Digits in groups of two, "1'23'45,5".
class GroupedDigits final : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return '\''; }
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\2"; }
    std::string do_truename() const override { return "yes"; }
};

class UnderAnotherLocale : public testing::Test {
protected:
    UnderAnotherLocale()
        : m_former(std::locale::global(std::locale(std::locale::classic(), new GroupedDigits))) {}
    ~UnderAnotherLocale() override { std::locale::global(m_former); }

private:
    std::locale m_former;
};

TEST_F(UnderAnotherLocale, ChecksKeepTheirNumbers) {
    constexpr const char* kThisFile = "kelCore/tests/LocaleTests.cpp";
    std::ostringstream stream;
    stream << 48000 << " " << 0.5;
    ASSERT_EQ(stream.str(), "4'80'00 0,5") << "an ordinary stream follows the locale";
    int value = 1234567;
    test::ExpectFailure("[has 1234567 frames, 0.5]", kThisFile,
                        [value] { KEL_FAIL("has " << value << " frames, " << 0.5); });
    test::ExpectFailure("[text 1234567] [ value1 (1234567) is not == value2 (0.25) ]", kThisFile,
                        [value] { KEL_CHECK_EQUAL(value, 0.25, "text " << value); });
}

TEST_F(UnderAnotherLocale, RecordsKeepTheirNumbers) {
    const test::LogCapture log;
    KEL_LOG(LogLevel::Info, "has " << 48000 << " frames, " << std::dec << 0.5);
    detail::WriteRecord(LogLevel::Info, "text", "file.cpp", 123456);
    const std::vector<test::Record> records = log->Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].message, "has 48000 frames, 0.5");
    EXPECT_EQ(records[1].line, "123456");
    EXPECT_EQ(records[0].threadId, std::to_string(gettid()));
    EXPECT_THAT(
        records[0].time,
        testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z"));
}

TEST_F(UnderAnotherLocale, LabelsAndIdentifiersKeepTheirNumbers) {
    EXPECT_EQ(ToString(-1234567), "-1234567");
    EXPECT_EQ(GetLabel(static_cast<WrapperFormat>(1234567)), "WrapperFormat(1234567)");
    EXPECT_EQ(GetLabel(static_cast<ElementFactoryType>(1234567)), "ElementFactoryType(1234567)");
    EXPECT_EQ(ToString(static_cast<LogLevel>(1234567)), "LogLevel(1234567)");
    EXPECT_EQ(ToString(static_cast<ParameterKind>(1234567)), "ParameterKind(1234567)");
    std::shared_ptr<const IAudioInfo> info;
    for (int i = 0; i < 200; ++i) {
        info = CreateAudioInfo(nullptr, nullptr, {}, {});
    }
    EXPECT_EQ(info->GetId().find('\''), std::string::npos) << info->GetId();
}

TEST(UnderACLibraryLocale, TextsAreConvertedTheSameWay) {
    // "C.UTF-8" is part of every C library that has locales at all.
    for (const char* const locale : {"C.UTF-8", "C"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        EXPECT_EQ(ConvertWideStringToPlatformString(L"\u00E9\u20AC\U0001D11E"),
                  "\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E");
        EXPECT_EQ(ConvertPlatformStringToWideString("\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"),
                  L"\u00E9\u20AC\U0001D11E");
        EXPECT_EQ(ConvertPlatformStringToWideString("\xE9"), std::wstring(1, wchar_t{0xDCE9}));
    }
}

} // namespace
} // namespace kel
