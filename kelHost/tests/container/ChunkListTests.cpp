#include "container/ChunkList.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace kel::host {

namespace {

using test::BigEndian;
using test::LittleEndian;

// A chunk of W64: the first four bytes of its GUID are its name.
std::string Chunk64(const std::string& name, const std::string& content) {
    return name + std::string(12, 'g') + LittleEndian(24 + content.size(), 8) + content;
}

std::optional<ChunkList> Read(const std::string& bytes) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take");
    test::WriteFile(file.path, bytes);
    auto input = OpenRegularFile(file.path);
    HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    return ReadChunkList(header, input->bytes);
}

// The chunks in words: "fmt  20+16, data 44+4".
std::string Describe(const std::optional<ChunkList>& list) {
    std::string text;
    for (const auto& chunk : list.value().chunks) {
        text += (text.empty() ? "" : ", ") + chunk.name + " " + std::to_string(chunk.offset) + "+" +
                std::to_string(chunk.bytes);
    }
    return text;
}

} // namespace

TEST(ChunkList, HasTheChunksOfEveryForm) {
    const auto wave =
        Read(test::Chunk("RIFF", "WAVE" + test::Chunk("fmt ", "1234") + test::Chunk("data", "56")));
    EXPECT_EQ(FormName(wave.value().form), "WAVE");
    EXPECT_EQ(Describe(wave), "fmt  20+4, data 32+2");
    EXPECT_EQ(wave->declaredBytes, 34U);
    EXPECT_EQ(wave->end, 34U);
    EXPECT_TRUE(wave->isComplete);

    const std::string big = "WAVEdata" + BigEndian(2, 4) + "56";
    const auto rifx = Read("RIFX" + BigEndian(big.size(), 4) + big);
    EXPECT_EQ(FormName(rifx.value().form), "RIFX");
    EXPECT_EQ(Describe(rifx), "data 20+2");

    for (const std::string kind : {"AIFF", "AIFC"}) {
        const std::string content = kind + "SSND" + BigEndian(2, 4) + "56";
        const auto aiff = Read("FORM" + BigEndian(content.size(), 4) + content);
        EXPECT_EQ(FormName(aiff.value().form), kind == "AIFF" ? "AIFF" : "AIFF-C");
        EXPECT_EQ(Describe(aiff), "SSND 20+2");
    }

    const std::string wave64 = Chunk64("fmt ", "123") + std::string(5, '\0') + Chunk64("data", "5");
    const auto w64 = Read("riff" + std::string(12, 'g') + LittleEndian(40 + wave64.size(), 8) +
                          "wave" + std::string(12, 'g') + wave64);
    EXPECT_EQ(FormName(w64.value().form), "W64");
    EXPECT_EQ(Describe(w64), "fmt  64+3, data 96+1");
    EXPECT_EQ(w64->declaredBytes, 97U);
}

TEST(ChunkList, TakesSizesFromDs64AndItsTable) {
    const std::string sizes = LittleEndian(90, 8) + LittleEndian(2, 8) + LittleEndian(1, 8) +
                              LittleEndian(1, 4) + "axml" + LittleEndian(5, 8);
    for (const std::string form : {"RF64", "BW64"}) {
        const auto list = Read(form + "\xFF\xFF\xFF\xFFWAVE" + test::Chunk("ds64", sizes) +
                               "axml\xFF\xFF\xFF\xFF" + "12345" + std::string(1, '\0') +
                               "data\xFF\xFF\xFF\xFF" + "12");
        EXPECT_EQ(FormName(list.value().form), form);
        EXPECT_EQ(list->declaredBytes, 98U);
        EXPECT_EQ(Describe(list), "ds64 20+40, axml 68+5, data 82+2");
    }
}

TEST(ChunkList, AcceptsDs64WithoutTheLengthOfItsTable) {
    const std::string sizes = LittleEndian(40, 8) + LittleEndian(2, 8) + LittleEndian(1, 8);
    const auto list = Read("RF64\xFF\xFF\xFF\xFFWAVE" + test::Chunk("ds64", sizes) +
                           "data\xFF\xFF\xFF\xFF" + "12");
    EXPECT_EQ(Describe(list), "ds64 20+24, data 52+2");
}

TEST(ChunkList, NoticesMissingPadding) {
    const std::string odd = "LIST" + LittleEndian(3, 4) + "abc";
    EXPECT_EQ(Describe(Read(test::Chunk("RIFF", "WAVE" + odd + test::Chunk("data", "56")))),
              "LIST 20+3, data 31+2");
    EXPECT_EQ(Describe(Read(test::Chunk("RIFF", "WAVE" + odd + std::string(1, '\0') +
                                                    test::Chunk("data", "56")))),
              "LIST 20+3, data 32+2");
}

TEST(ChunkList, EndsWithTheChunkThatReachesBeyondTheEnd) {
    const auto list =
        Read("RIFF" + LittleEndian(1000, 4) + "WAVEdata" + LittleEndian(900, 4) + "fmt 1234567890");
    EXPECT_EQ(Describe(list), "data 20+900");
    EXPECT_EQ(list->Present(list->chunks.front()), 14U);
    EXPECT_EQ(list->declaredBytes, 1008U);
    EXPECT_EQ(list->end, 920U);
}

TEST(ChunkList, EndsWhereNoNameFollows) {
    const auto list =
        Read(test::Chunk("RIFF", "WAVE" + test::Chunk("fmt ", "1234") + test::Chunk("data", "") +
                                     std::string(100, '\1')));
    EXPECT_EQ(Describe(list), "fmt  20+4, data 32+0");
    EXPECT_EQ(list->end, 32U);
}

TEST(ChunkList, IsLimited) {
    std::string chunks;
    for (std::size_t i = 0; i <= kMaxChunks; ++i) {
        chunks += test::Chunk("LIST", "");
    }
    const auto list = Read(test::Chunk("RIFF", "WAVE" + chunks));
    EXPECT_EQ(list->chunks.size(), kMaxChunks);
    EXPECT_FALSE(list->isComplete);
}

TEST(ChunkList, IsMissingForOtherFiles) {
    EXPECT_FALSE(Read("").has_value());
    EXPECT_FALSE(Read("RIFF").has_value());
    EXPECT_FALSE(Read(test::Chunk("RIFF", "AVI LIST")).has_value());
    EXPECT_FALSE(Read("fLaC" + std::string(40, '\0')).has_value());
}

} // namespace kel::host
