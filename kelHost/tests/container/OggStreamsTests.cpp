#include "container/OggStreams.h"

#include "AudioFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kel::host {

namespace {

// A page with one packet of 3 bytes.
std::string StreamPage(std::uint32_t stream, bool isFirst, std::uint32_t number = 0) {
    return "OggS" + std::string(1, '\0') + (isFirst ? '\2' : '\0') + std::string(8, '\0') +
           test::LittleEndian(stream, 4) + test::LittleEndian(number, 4) + std::string(4, '\0') +
           "\1\3abc";
}

// A stream of the number 1 with pages of 31 bytes.
std::string OneStream(std::uint32_t pages) {
    std::string bytes = StreamPage(1, true);
    for (std::uint32_t number = 1; number < pages; ++number) {
        bytes += StreamPage(1, false, number);
    }
    return bytes;
}

bool HasFurther(const std::string& bytes) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    return HasFurtherOggStreams(directory / "take");
}

} // namespace

TEST(OggStreams, AreFoundAfterTheFirstOnes) {
    const std::string first = StreamPage(1, true) + StreamPage(1, false);
    const std::string second = StreamPage(7, true) + StreamPage(7, false);
    EXPECT_FALSE(HasFurther(first));
    EXPECT_TRUE(HasFurther(first + second));
    EXPECT_FALSE(HasFurther(StreamPage(1, true) + StreamPage(7, true) + StreamPage(1, false) +
                            StreamPage(7, false)))
        << "streams at the same time";
}

TEST(OggStreams, AreFoundByTheLastWholePage) {
    const std::string first = StreamPage(1, true) + StreamPage(1, false);
    const std::string second = StreamPage(7, true) + StreamPage(7, false);
    EXPECT_TRUE(HasFurther(first + second + "TAGTitle"));
    EXPECT_TRUE(HasFurther(first + StreamPage(7, true) + StreamPage(9, false).substr(0, 30)));
    EXPECT_FALSE(HasFurther(first + second.substr(0, 30)));
    EXPECT_FALSE(HasFurther(first + "OggS\1" + second.substr(5, 26))) << "another version";
    EXPECT_TRUE(HasFurther(first + second + std::string(70000, 'x')));
}

// The second stream is within the beginning, between two places that are looked at, or at the end.
TEST(OggStreams, AreFoundWhereTheyHaveTheSameNumber) {
    EXPECT_FALSE(HasFurther(OneStream(200000)));
    for (const std::uint32_t first : {1U, 10U, 3000U, 50000U, 99999U}) {
        for (const std::uint32_t second : {1U, 10U, 3000U, 50000U, 99999U}) {
            EXPECT_TRUE(HasFurther(OneStream(first) + OneStream(second))) << first << " " << second;
        }
        EXPECT_TRUE(HasFurther(OneStream(first) + StreamPage(7, true) + OneStream(50000)));
    }
}

// Programs that number pages wrongly do not begin streams.
TEST(OggStreams, AreNotFoundByPageNumbersOnly) {
    const std::string wrong = StreamPage(1, false, 0) + StreamPage(1, false, 5);
    EXPECT_FALSE(HasFurther(OneStream(10) + wrong));
    EXPECT_FALSE(HasFurther(OneStream(50000) + wrong));
    EXPECT_TRUE(HasFurther(OneStream(50000) + "no page" + wrong + OneStream(10)));
}

TEST(OggStreams, ArePartOfOggOnly) {
    EXPECT_FALSE(HasFurther(""));
    EXPECT_FALSE(HasFurther("fLaC" + StreamPage(1, true) + StreamPage(7, false)));
    EXPECT_FALSE(HasFurther(StreamPage(1, false) + StreamPage(7, true))) << "no beginning";
    EXPECT_FALSE(HasFurtherOggStreams(FileName("/missing")));
}

} // namespace kel::host
