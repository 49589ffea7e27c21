// The texts of records and checks are composed as on a stream, from pieces of any type.

#include <CapturingWriter.h>
#include <Checks.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iomanip>
#include <limits>
#include <locale>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace kel {

namespace {

enum Plain { kPlainZero, kPlainSeven = 7 };

/// Has an inserter, and a conversion to a number.
struct Measure {
    int value;
    operator int() const { return value; }
};

std::ostream& operator<<(std::ostream& stream, const Measure& measure) {
    return stream << std::setw(4) << std::setfill('0') << measure.value << " dB";
}

/// Has an inserter, and a conversion to a text.
struct Title {
    std::string text;
    operator std::string_view() const { return text; }
};

std::ostream& operator<<(std::ostream& stream, const Title& title) {
    return stream << '<' << title.text << '>';
}

// Composes the same pieces on a stream and as the text of a record, and expects the same.
#define EXPECT_TEXT_AS_ON_A_STREAM(pieces)                                                         \
    do {                                                                                           \
        std::ostringstream stream;                                                                 \
        stream.imbue(std::locale::classic());                                                      \
        stream << pieces;                                                                          \
        const test::LogCapture log;                                                                \
        KEL_LOG(LogLevel::Info, pieces);                                                           \
        EXPECT_EQ(log->Messages(LogLevel::Info), std::vector<std::string>{stream.str()});          \
        EXPECT_EQ(MessageOf([&] { KEL_FAIL(pieces); }), "[" + stream.str() + "]");                 \
    } while (false)

template <typename Check>
std::string MessageOf(Check check) {
    const test::LogCapture log;
    try {
        check();
    } catch (const KELRuntimeError& error) {
        return error.what();
    }
    return "nothing failed";
}

TEST(AMessage, HasTextsAndCharacters) {
    const char* const pointer = "pointer";
    char array[16] = "array";
    const signed char signedText[] = {'s', 'i', 'g', 0};
    const unsigned char unsignedText[] = {'u', 'n', 's', 0};
    const std::string_view view = std::string_view("a longer text").substr(2, 6);
    EXPECT_TEXT_AS_ON_A_STREAM("literal" << pointer << array << view);
    EXPECT_TEXT_AS_ON_A_STREAM(std::string("text") << "" << std::string());
    EXPECT_TEXT_AS_ON_A_STREAM(std::filesystem::path("a directory/\"file\""));
    EXPECT_TEXT_AS_ON_A_STREAM('c' << ' ' << '[');
    EXPECT_TEXT_AS_ON_A_STREAM(static_cast<unsigned char>('u') << static_cast<signed char>('s'));
    EXPECT_TEXT_AS_ON_A_STREAM(signedText << ' ' << unsignedText << ' ' << 0.5 << signedText);
}

template <typename Number>
void ExpectLimitsAsOnAStream() {
    const Number least = std::numeric_limits<Number>::lowest();
    const Number most = std::numeric_limits<Number>::max();
    EXPECT_TEXT_AS_ON_A_STREAM(least << ' ' << Number{0} << ' ' << Number{1} << ' ' << most);
}

template <typename... Numbers>
void ExpectLimitsOfAllAsOnAStream() {
    (ExpectLimitsAsOnAStream<Numbers>(), ...);
}

TEST(AMessage, HasNumbersOfEverySize) {
    ExpectLimitsOfAllAsOnAStream<short, unsigned short, int, unsigned, long, unsigned long,
                                 long long, unsigned long long, float, double>();
    EXPECT_TEXT_AS_ON_A_STREAM(0.5 << ' ' << 1e-9 << ' ' << 1.0 / 3.0 << ' ' << 44100.0F);
    EXPECT_TEXT_AS_ON_A_STREAM(std::numeric_limits<double>::infinity());
}

TEST(AMessage, HasTruthValuesEnumeratorsPointersAndNull) {
    const int number = 1;
    const void* const nothing = nullptr;
    EXPECT_TEXT_AS_ON_A_STREAM(true << ' ' << false);
    EXPECT_TEXT_AS_ON_A_STREAM(kPlainZero << ' ' << kPlainSeven);
    EXPECT_TEXT_AS_ON_A_STREAM(&number << ' ' << nothing);
    EXPECT_TEXT_AS_ON_A_STREAM("handle " << nullptr);
    EXPECT_TEXT_AS_ON_A_STREAM(0.5 << nullptr);
}

TEST(AMessage, UsesAnInserterBeforeAConversion) {
    EXPECT_TEXT_AS_ON_A_STREAM("level " << Measure{12} << ", " << 3 << " channels");
    EXPECT_TEXT_AS_ON_A_STREAM("take " << Title{"one"});
    EXPECT_TEXT_AS_ON_A_STREAM(0.5 << Title{"one"});
}

TEST(AMessage, AcceptsManipulators) {
    EXPECT_TEXT_AS_ON_A_STREAM("a" << std::hex << 255 << ' ' << std::uppercase << 255U);
    EXPECT_TEXT_AS_ON_A_STREAM(std::setw(6) << std::setfill('.') << 42 << 42);
    EXPECT_TEXT_AS_ON_A_STREAM(std::setprecision(3) << 3.14159 << std::fixed << 2.0);
    EXPECT_TEXT_AS_ON_A_STREAM(std::boolalpha << true);
    EXPECT_TEXT_AS_ON_A_STREAM("line" << std::endl << "next");
}

TEST(AMessage, KeepsTheOrderOfItsPieces) {
    EXPECT_TEXT_AS_ON_A_STREAM(1 << " a " << 0.5 << " b " << 2 << 'c' << std::string("d") << 0.25
                                 << 3U);
}

template <typename Character>
void ExpectNoTextOfANullPointer() {
    Character* const text = nullptr;
    const Character* const constantText = nullptr;
    EXPECT_EQ(MessageOf([&] { KEL_FAIL("of \"" << text << constantText << "\", " << 3); }),
              "[of \"\", 3]");
    EXPECT_EQ(MessageOf([&] { KEL_FAIL(0.5 << text << constantText << ", " << 3); }), "[0.5, 3]");
    EXPECT_EQ(MessageOf([&] { KEL_CHECK_NOT_EQUAL(text, constantText, text << 0.5); }),
              "[0.5] [ value1 () is not != value2 () ]");
}

TEST(AMessage, KeepsItsOtherPiecesBesideOneThatCannotBeWritten) {
    ExpectNoTextOfANullPointer<char>();
    ExpectNoTextOfANullPointer<signed char>();
    ExpectNoTextOfANullPointer<unsigned char>();
    std::streambuf* const nothing = nullptr;
    EXPECT_EQ(MessageOf([&] { KEL_FAIL("before" << nothing << ", after " << 1 << nothing); }),
              "[before, after 1]");
}

TEST(AMessage, ComparesValuesAsTheyAreStreamed) {
    const int number = 1;
    const int* const pointer = &number;
    std::ostringstream address;
    address << pointer;
    EXPECT_EQ(MessageOf([&] { KEL_CHECK_EQUAL(pointer, nullptr, "pointers"); }),
              "[pointers] [ value1 (" + address.str() + ") is not == value2 (nullptr) ]");
    EXPECT_EQ(MessageOf([] { KEL_CHECK_EQUAL(true, false, "truth"); }),
              "[truth] [ value1 (1) is not == value2 (0) ]");
    EXPECT_EQ(MessageOf([] { KEL_CHECK_EQUAL('a', 'b', "characters"); }),
              "[characters] [ value1 (a) is not == value2 (b) ]");
    EXPECT_EQ(MessageOf([] { KEL_CHECK_NOT_EQUAL(kPlainSeven, kPlainSeven, "enumerators"); }),
              "[enumerators] [ value1 (7) is not != value2 (7) ]");
}

} // namespace
} // namespace kel
