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
        return error.what();
    }
    return "no UsageError";
}

} // namespace

TEST(FormatsContainers, AreNamedAndTitledInTheirOrder) {
    struct Row {
        WrapperFormat format;
        std::string name;
        std::string title;
        std::vector<std::string_view> extensions;
    };
    const std::vector<Row> rows{
        {WrapperFormat::WAVE, "wave", "extensible WAVE", {".wav", ".wave"}},
        {WrapperFormat::BWAVE, "bwave", "RF64", {".rf64", ".bwav", ".bwave"}},
        {WrapperFormat::AIFF, "aiff", "AIFF-C", {".aiff", ".aif"}},
    };
    ASSERT_EQ(Containers().size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(Containers()[i].format, rows[i].format);
        EXPECT_EQ(Containers()[i].name, rows[i].name);
        EXPECT_EQ(Containers()[i].title, rows[i].title);
        EXPECT_EQ(Containers()[i].extensions, rows[i].extensions);
        EXPECT_EQ(&ContainerByName(rows[i].name), &Containers()[i]);
    }
}

TEST(FormatsEncodings, AreNamedInTheirOrder) {
    struct Row {
        std::string name;
        AudioPCMType type;
        int bytes;
        int bits;
    };
    const std::vector<Row> rows{
        {"int16", AudioPCMType::Integer, 2, 16}, {"int24", AudioPCMType::Integer, 3, 24},
        {"int32", AudioPCMType::Integer, 4, 32}, {"float32", AudioPCMType::Float, 4, 32},
        {"float64", AudioPCMType::Float, 8, 64},
    };
    ASSERT_EQ(Encodings().size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(Encodings()[i].name, rows[i].name);
        EXPECT_EQ(Encodings()[i].type, rows[i].type);
        EXPECT_EQ(Encodings()[i].bytes, rows[i].bytes);
        EXPECT_EQ(Encodings()[i].bits, rows[i].bits);
        EXPECT_EQ(&EncodingByName(rows[i].name), &Encodings()[i]);
    }
}

TEST(FormatsByName, RefusesUnknownNamesWithTheValidOnes) {
    for (const char* name : {"mp3", "", "WAVE", "wav"}) {
        EXPECT_EQ(UsageErrorOf([name] { ContainerByName(name); }),
                  "there is no format \"" + std::string(name) +
                      "\"; choose from wave, bwave, aiff");
    }
    EXPECT_EQ(UsageErrorOf([] { EncodingByName("int8"); }),
              "there is no encoding \"int8\"; choose from int16, int24, int32, float32, float64");
}

TEST(FormatsByName, RefusesWithATextThatStaysOnOneLine) {
    EXPECT_EQ(UsageErrorOf([] { ContainerByName("a\nb\x1B"); }),
              "there is no format \"a\\nb\\x1B\"; choose from wave, bwave, aiff");
}

TEST(FormatsByExtension, KnowsEveryExtensionInAnyCase) {
    struct Row {
        std::string path;
        const char* name; // null: no container
    };
    const std::vector<Row> rows{
        {"a.wav", "wave"},
        {"a.wave", "wave"},
        {"a.rf64", "bwave"},
        {"a.bwav", "bwave"},
        {"a.bwave", "bwave"},
        {"a.aiff", "aiff"},
        {"a.aif", "aiff"},
        {"A.WAV", "wave"},
        {"a.Rf64", "bwave"},
        {"directory.x/a.AiFf", "aiff"},
        {"a.wav.aif", "aiff"},
        {"/a.wav", "wave"},
        {"", nullptr},
        {"a", nullptr},
        {"wav", nullptr},
        {".wav", nullptr}, // a hidden file that has no extension
        {"a.", nullptr},
        {"a.wav ", nullptr},
        {"a.wavx", nullptr},
        {"a.raw", nullptr},
        {"a.flac", nullptr},
        {"directory.wav/a", nullptr},
        {"directory.wav/", nullptr},
        {"a.w\xC3\xA4v", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        const Container* container = ContainerByExtension(row.path);
        if (row.name == nullptr) {
            EXPECT_EQ(container, nullptr);
        } else {
            ASSERT_NE(container, nullptr);
            EXPECT_EQ(container->name, row.name);
        }
    }
}

TEST(FormatsDefaults, AreFloatsButIntegersInAiff) {
    EXPECT_EQ(DefaultEncoding(ContainerByName("wave")).name, "float32");
    EXPECT_EQ(DefaultEncoding(ContainerByName("bwave")).name, "float32");
    EXPECT_EQ(DefaultEncoding(ContainerByName("aiff")).name, "int24");
    EXPECT_EQ(DefaultByteOrder(ContainerByName("wave")), PCMEndianness::Little);
    EXPECT_EQ(DefaultByteOrder(ContainerByName("bwave")), PCMEndianness::Little);
    EXPECT_EQ(DefaultByteOrder(ContainerByName("aiff")), PCMEndianness::Big);
}

TEST(FormatsTexts, NameByteOrdersAndExtensions) {
    EXPECT_EQ(Describe(PCMEndianness::Little), "little-endian");
    EXPECT_EQ(Describe(PCMEndianness::Big), "big-endian");
    EXPECT_EQ(ListExtensions(), ".wav, .wave, .rf64, .bwav, .bwave, .aiff, .aif");
}

} // namespace kel::host
