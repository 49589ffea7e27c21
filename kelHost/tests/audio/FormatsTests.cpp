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
              ".wave, .rf64, .bwav, .bwave, .bwf, .aiff, .aif, .aifc");
}

TEST(FormatsByExtension, KnowsEveryExtensionInAnyCase) {
    struct Row {
        std::string name; // "none" where no container has the extension
        std::vector<std::string> paths;
    };
    for (const Row& row :
         {Row{"wave", {"a.wav", "a.wave"}}, Row{"bwave", {"a.Rf64", "a.bwav", "a.bwave", "a.bwf"}},
          Row{"aiff", {"a.aiff", "directory.x/a.AiF", "a.wav.aif", "a.aifc"}},
          Row{"none",
              {"", "a", "wav", ".wav", "a.", "a.wavx", "a.flac", "directory.wav/a",
               "a.w\xC3\xA4v"}}}) {
        for (const std::string& path : row.paths) {
            const Container* container = ContainerByExtension(path);
            EXPECT_EQ(container != nullptr ? container->name : "none", row.name) << path;
        }
    }
}

TEST(FormatsByName, KnowExtensionsToo) {
    struct Row {
        std::string name;
        std::vector<std::string> aliases;
    };
    for (const Row& row :
         {Row{"wave", {"wave", "wav"}}, Row{"bwave", {"bwave", "rf64", "bwav", "bwf"}},
          Row{"aiff", {"aiff", "aif", "aifc"}}, Row{"none", {"", ".wav", "b.wav", "flac"}}}) {
        for (const std::string& alias : row.aliases) {
            const Container* container = FindContainer(alias);
            EXPECT_EQ(container != nullptr ? container->name : "none", row.name) << alias;
        }
    }
}

TEST(EncodingsByName, KnowTheNamesOfOtherPrograms) {
    struct Row {
        std::string name;
        std::vector<std::string> aliases;
        std::string byteOrder;
    };
    for (const Row& row : {
             Row{"int16", {"int16", "16", "s16", "pcm_s16"}, "any"},
             Row{"int24", {"int24", "24", "s24", "pcm_s24"}, "any"},
             Row{"int32", {"int32", "32", "s32", "pcm_s32"}, "any"},
             Row{"float32", {"float32", "32f", "f32", "pcm_f32"}, "any"},
             Row{"float64", {"float64", "64f", "f64", "pcm_f64"}, "any"},
             Row{"int16", {"s16le", "pcm_s16le"}, "little-endian"},
             Row{"float64", {"f64le", "pcm_f64le"}, "little-endian"},
             Row{"int24", {"s24be", "pcm_s24be"}, "big-endian"},
             Row{"float32", {"f32be", "pcm_f32be"}, "big-endian"},
             Row{"none",
                 {"", "keep", "8", "int16le", "16le", "s16 le", "s16lebe", "pcm_", "S16"},
                 ""},
         }) {
        for (const std::string& alias : row.aliases) {
            const auto found = FindEncoding(alias);
            EXPECT_EQ(found.has_value() ? found->encoding->name : "none", row.name) << alias;
            if (found.has_value()) {
                EXPECT_EQ(found->byteOrder.has_value() ? Describe(*found->byteOrder) : "any",
                          row.byteOrder)
                    << alias;
            }
        }
    }
}

TEST(FormatsTexts, NameByteOrdersAndExtensions) {
    EXPECT_EQ(Describe(PCMEndianness::Little), "little-endian");
    EXPECT_EQ(Describe(PCMEndianness::Big), "big-endian");
    EXPECT_EQ(ListExtensions(), ".wav, .wave, .rf64, .bwav, .bwave, .bwf, .aiff, .aif, .aifc");
}

} // namespace kel::host
