#include "audio/Formats.h"

#include "base/Errors.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel::host {

namespace {

template <typename Operation>
std::string UsageErrorOf(Operation operation) {
    try {
        operation();
    } catch (const UsageError& error) {
        return DescribeError(error).message;
    }
    return "no UsageError";
}

} // namespace

TEST(FormatsByExtension, RefusesAnUnknownOneWithTheKnownOnes) {
    EXPECT_EQ(UsageErrorOf([] { ResolveFormat({}, "a.foo"); }),
              "a.foo: cannot tell the format from the extension; use --format or one of .wav, "
              ".wave, .rf64, .bwav, .bwave, .aiff, .aif");
}

TEST(FormatsByExtension, KnowsEveryExtensionInAnyCase) {
    struct Row {
        std::string name; // "none" where no container has the extension
        std::vector<std::string> paths;
    };
    for (const Row& row :
         {Row{"wave", {"a.wav", "a.wave"}}, Row{"bwave", {"a.Rf64", "a.bwav", "a.bwave"}},
          Row{"aiff", {"a.aiff", "directory.x/a.AiF", "a.wav.aif"}},
          Row{"none",
              {"", "a", "wav", ".wav", "a.", "a.wavx", "a.flac", "directory.wav/a",
               "a.w\xC3\xA4v"}}}) {
        for (const std::string& path : row.paths) {
            const Container* container = ContainerByExtension(path);
            EXPECT_EQ(container != nullptr ? container->name : "none", row.name) << path;
        }
    }
}

TEST(FormatsTexts, NameByteOrdersAndExtensions) {
    EXPECT_EQ(Describe(PCMEndianness::Little), "little-endian");
    EXPECT_EQ(Describe(PCMEndianness::Big), "big-endian");
    EXPECT_EQ(ListExtensions(), ".wav, .wave, .rf64, .bwav, .bwave, .aiff, .aif");
}

} // namespace kel::host
