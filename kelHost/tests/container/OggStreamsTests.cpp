#include "container/OggStreams.h"

#include "AudioFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kel::host {

namespace {

// A page with one packet of 3 bytes.
std::string StreamPage(std::uint32_t stream, bool isFirst) {
    return "OggS" + std::string(1, '\0') + (isFirst ? '\2' : '\0') + std::string(8, '\0') +
           test::LittleEndian(stream, 4) + std::string(8, '\0') + "\1\3abc";
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
    EXPECT_FALSE(HasFurther(first + second + std::string(70000, 'x')));
}

TEST(OggStreams, ArePartOfOggOnly) {
    EXPECT_FALSE(HasFurther(""));
    EXPECT_FALSE(HasFurther("fLaC" + StreamPage(1, true) + StreamPage(7, false)));
    EXPECT_FALSE(HasFurther(StreamPage(1, false) + StreamPage(7, true))) << "no beginning";
    EXPECT_FALSE(HasFurtherOggStreams(FileName("/missing")));
}

} // namespace kel::host
