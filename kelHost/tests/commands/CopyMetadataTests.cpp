// Metadata in copies.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

using nlohmann::json;

std::string Padding(const std::string& content) {
    return std::string(content.size() % 2, '\0');
}

// A chunk of a WAVE file with its padding.
std::string Padded(const std::string& name, const std::string& content) {
    return Chunk(name, content) + Padding(content);
}

// A chunk of an AIFF file with its padding.
std::string BigPadded(const std::string& name, const std::string& content) {
    return name + BigEndian(content.size(), 4) + content + Padding(content);
}

// A chunk of WAVE in an AIFF file.
std::string Carried(const std::string& name, const std::string& content) {
    return BigPadded("APPL", "kelW" + name + LittleEndian(content.size(), 4) + content);
}

constexpr int kChannels = 2;
constexpr int kFrames = 10;
constexpr int kSampleBytes = kChannels * kFrames * 2;

// A 16-bit stereo WAVE file of ten frames with chunks before and after its samples.
std::string MakeWAVE(const std::string& before, const std::string& after) {
    const std::string format = LittleEndian(1, 2) + LittleEndian(kChannels, 2) +
                               LittleEndian(48000, 4) + LittleEndian(192000, 4) +
                               LittleEndian(4, 2) + LittleEndian(16, 2);
    return Chunk("RIFF", "WAVE" + Chunk("fmt ", format) + before +
                             Chunk("data", std::string(kSampleBytes, 'x')) + after);
}

std::string MakeRF64(const std::string& after) {
    const std::string wave = MakeWAVE("", after);
    const std::string sizes = LittleEndian(wave.size() - 8 + 36, 8) +
                              LittleEndian(kSampleBytes, 8) + LittleEndian(kFrames, 8) +
                              LittleEndian(0, 4);
    return "RF64\xFF\xFF\xFF\xFFWAVE" + Chunk("ds64", sizes) + wave.substr(12);
}

std::string MakeAIFF(const std::string& before, const std::string& after) {
    const std::string common = BigEndian(kChannels, 2) + BigEndian(kFrames, 4) + BigEndian(16, 2) +
                               std::string("\x40\x0E\xBB\x80\0\0\0\0\0\0", 10);
    return BigPadded(
        "FORM", "AIFF" + BigPadded("COMM", common) + before +
                    BigPadded("SSND", BigEndian(0, 8) + std::string(kSampleBytes, 'x')) + after);
}

// A chunk of W64, aligned.
std::string Chunk64(const std::string& name, const std::string& content) {
    const std::string chunk = name +
                              std::string("\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 12) +
                              LittleEndian(24 + content.size(), 8) + content;
    return chunk + std::string((8 - chunk.size() % 8) % 8, '\0');
}

std::string OldChunk64(const std::string& name, const std::string& content) {
    std::string chunk = Chunk64(name, content);
    return chunk.replace(4, 12,
                         std::string("\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00", 12));
}

std::string MakeW64(const std::string& before) {
    const std::string format = MakeWAVE("", "").substr(20, 16);
    const std::string chunks =
        Chunk64("fmt ", format) + before + Chunk64("data", std::string(kSampleBytes, 'x'));
    return OldChunk64("riff", "").substr(0, 16) + LittleEndian(40 + chunks.size(), 8) +
           Chunk64("wave", "").substr(0, 16) + chunks;
}

// The chunks of a WAVE, RF64 or AIFF file after its samples.
std::string After(const std::string& bytes) {
    const bool isAIFF = bytes.substr(0, 4) == "FORM";
    constexpr std::size_t kSamplesInDs64 = 28;
    const std::function<std::size_t(std::size_t)> size = [&](std::size_t offset) {
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const char byte = bytes.at(offset + (isAIFF ? i : 3 - i));
            number = number << 8U | static_cast<unsigned char>(byte);
        }
        return number == 0xFFFFFFFF ? size(kSamplesInDs64) : static_cast<std::size_t>(number);
    };
    for (std::size_t offset = 12; offset < bytes.size();) {
        const std::string name = bytes.substr(offset, 4);
        offset += 8 + size(offset + 4) + size(offset + 4) % 2;
        if (name == "data" || name == "SSND") {
            return bytes.substr(offset);
        }
    }
    return "no samples";
}

// Outcome of a copy to check.
struct Outcome {
    std::string bytes; ///< the output
    std::string after; ///< its chunks after its samples
    json metadata;     ///< the JSON member
    json warnings;
};

Outcome CopyBytes(const std::string& bytes, const std::string& input, const std::string& output,
                  const Arguments& options = {}) {
    const TemporaryDirectory directory;
    WriteFile(directory / input, bytes);
    const Arguments arguments{"copy", input, output, "--json"};
    const ProcessResult result = RunKelhost(directory, arguments + options);
    EXPECT_EQ(result.status, 0) << result.err;
    if (result.status != 0) {
        return {};
    }
    const json document = json::parse(result.out).at("results").at(0);
    const std::string copy = ReadFile(directory / output);
    return {copy, After(copy), document.at("metadata"), document.at("warnings")};
}

json Metadata(const json& kept, const json& notPreserved = json::array()) {
    return {{"kept", kept}, {"not_preserved", notPreserved}};
}

// The content of a broadcast chunk with a time reference.
std::string BroadcastFields(std::uint64_t timeReference, const std::string& history) {
    return std::string(338, 'b') + LittleEndian(timeReference, 8) + std::string(256, '\0') +
           history;
}

std::string Broadcast(std::uint64_t timeReference, const std::string& history) {
    return Padded("bext", BroadcastFields(timeReference, history));
}

std::string CuePoint(std::uint64_t number, std::uint64_t frame) {
    return LittleEndian(number, 4) + LittleEndian(frame, 4) + "data" + LittleEndian(0, 8) +
           LittleEndian(frame, 4);
}

const std::string kUsualChunks =
    Padded("bext", std::string(602, 'b')) + Padded("iXML", "<BWFXML/>") + Padded("axml", "<a/>") +
    Padded("chna", std::string(4, '\0')) + Padded("cart", "c") +
    Padded("LIST", "INFO" + Padded("INAM", "title")) +
    Padded("LIST", "adtl" + Padded("labl", LittleEndian(1, 4) + "a")) +
    Padded("cue ", LittleEndian(1, 4) + CuePoint(1, 5)) + Padded("smpl", std::string(36, '\0')) +
    Padded("inst", std::string(7, 'i')) + Padded("acid", std::string(24, 'a')) +
    Padded("id3 ", "ID3") + Padded("umid", "u") + Padded("_PMX", "<x/>") + Padded("abcd", "?");

const json kUsualNames{"bext", "iXML", "axml", "chna", "cart", "LIST INFO", "LIST adtl", "cue",
                       "smpl", "inst", "acid", "id3",  "umid", "_PMX",      "abcd"};

const std::string kLayoutChunks = Padded("JUNK", "junk") +
                                  Padded("fact", LittleEndian(kFrames, 4)) + Padded("levl", "l") +
                                  Padded("PAD ", "p") + Padded("FLLR", "f");

} // namespace

TEST(CopyMetadata, KeepsEveryChunkOfTheRIFFFamilyAsItIs) {
    for (const std::string output : {"copy.wav", "copy.rf64"}) {
        for (const auto& [input, bytes] : std::vector<std::pair<std::string, std::string>>{
                 {"before.wav", MakeWAVE(kLayoutChunks + kUsualChunks, "")},
                 {"after.wav", MakeWAVE("", kUsualChunks + kLayoutChunks)},
                 {"take.rf64", MakeRF64(kUsualChunks)}}) {
            SCOPED_TRACE(input + " " + output);
            const Outcome outcome = CopyBytes(bytes, input, output);
            EXPECT_EQ(outcome.after, kUsualChunks);
            EXPECT_EQ(outcome.metadata, Metadata(kUsualNames));
            EXPECT_EQ(outcome.warnings, json::array());
        }
    }
}

TEST(CopyMetadata, NamesChunksOfW64AsInWAVE) {
    const std::string bytes = MakeW64(Chunk64("junk", "j") + Chunk64("bext", "b") +
                                      OldChunk64("list", "INFO") + Chunk64("abcd", "12345"));
    const Outcome outcome = CopyBytes(bytes, "take.w64", "copy.wav");
    EXPECT_EQ(outcome.after,
              Padded("bext", "b") + Padded("LIST", "INFO") + Padded("abcd", "12345"));
    EXPECT_EQ(outcome.metadata, Metadata({"bext", "LIST INFO", "abcd"}));
}

// Markers are of the first kind.
TEST(CopyMetadata, NamesChunksOfW64ThatWAVEHasNoNameFor) {
    std::string markers = Chunk64("abcd", "12345");
    markers.replace(0, 16,
                    "\x56\x62\xF7\xAB\x2D\x39\xD2\x11\x86\xC7" +
                        std::string("\x00\xC0\x4F\x8E\xDB\x8A", 6));
    std::string unknown = Chunk64("abcd", "12345");
    unknown[15] = 'x';
    const Outcome outcome =
        CopyBytes(MakeW64(markers + unknown + Chunk64("bext", "b")), "take.w64", "copy.wav");
    EXPECT_EQ(outcome.after, Padded("bext", "b"));
    EXPECT_EQ(outcome.metadata, Metadata({"bext"}, {"ABF76256-392D-11D2-86C7-00C04F8EDB8A",
                                                    "64636261-ACF3-11D3-8CD1-00C04F8EDB78"}));
    EXPECT_EQ(outcome.warnings,
              json{"take.w64: not preserved in extensible WAVE: ABF76256-392D-11D2-86C7-"
                   "00C04F8EDB8A, 64636261-ACF3-11D3-8CD1-00C04F8EDB78"});
}

TEST(CopyMetadata, KeepsEveryChunkOfAIFFAsItIs) {
    const std::string chunks =
        BigPadded("NAME", "name") + BigPadded("AUTH", "a") + BigPadded("(c) ", "c") +
        BigPadded("ANNO", "one") + BigPadded("ANNO", "two") + BigPadded("COMT", BigEndian(0, 2)) +
        BigPadded("MARK", BigEndian(0, 2)) + BigPadded("INST", std::string(20, '\0')) +
        BigPadded("APPL", "abcd") + BigPadded("MIDI", "m") +
        BigPadded("AESD", std::string(24, 'a')) + BigPadded("ID3 ", "ID3") + BigPadded("abcd", "?");
    const std::string layout = BigPadded("FVER", BigEndian(0xA2805140, 4)) +
                               BigPadded("CHAN", std::string(12, '\0')) + BigPadded("JUNK", "j");
    for (const std::string& bytes :
         {MakeAIFF(layout + chunks, ""), MakeAIFF("", chunks + layout)}) {
        const Outcome outcome = CopyBytes(bytes, "take.aiff", "copy.aiff");
        EXPECT_EQ(outcome.after, chunks);
        EXPECT_EQ(outcome.metadata, Metadata({"NAME", "AUTH", "(c)", "ANNO", "COMT", "MARK", "INST",
                                              "APPL", "MIDI", "AESD", "ID3", "abcd"}));
        EXPECT_EQ(outcome.warnings, json::array());
    }
}

TEST(CopyMetadata, IsIgnoredOnRequest) {
    const Outcome outcome = CopyBytes(MakeWAVE("", kUsualChunks), "take.wav", "copy.aiff",
                                      {"--metadata", "none", "--channels", "1"});
    EXPECT_EQ(outcome.after, "");
    EXPECT_EQ(outcome.metadata, json());
    EXPECT_EQ(outcome.warnings, json::array());
}

TEST(CopyMetadata, IsWarnedAboutInOneLine) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.aiff",
              MakeAIFF(BigPadded("abcd", "a") + BigPadded("MIDI", "b"), BigPadded("abcd", "c")));
    ExpectResult(RunKelhost(directory, {"copy", "take.aiff", "copy.wav", "--quiet"}), 0, "",
                 "kelhost: warning: take.aiff: not preserved in extensible WAVE: abcd, MIDI\n");
}

TEST(CopyMetadata, IsTranslatedIntoAIFF) {
    const std::string region =
        Padded("ltxt", LittleEndian(2, 4) + LittleEndian(1, 4) + "rgn " + std::string(8, '\0'));
    const std::string bytes = MakeWAVE(
        "", Padded("LIST", "INFO" + Padded("INAM", "name")) +
                Padded("cue ", LittleEndian(2, 4) + CuePoint(1, 2) + CuePoint(2, 7)) +
                Padded("LIST",
                       "adtl" + Padded("labl", LittleEndian(2, 4) + "end" + std::string(1, '\0')) +
                           region + Padded("file", std::string(8, 'f'))));
    const auto marker = [](int number, int frame, const std::string& text) {
        return BigEndian(static_cast<std::uint64_t>(number), 2) +
               BigEndian(static_cast<std::uint64_t>(frame), 4) + BigEndian(text.size(), 1) + text;
    };
    const std::string loss =
        "take.wav: not preserved in AIFF-C: lengths of regions, LIST adtl file";
    const Outcome whole = CopyBytes(bytes, "take.wav", "copy.aiff");
    EXPECT_EQ(whole.after, BigPadded("NAME", "name") +
                               BigPadded("MARK", BigEndian(2, 2) + marker(1, 2, "") +
                                                     std::string(1, '\0') + marker(2, 7, "end")));
    EXPECT_EQ(whole.metadata, Metadata({"NAME", "MARK"}, {"lengths of regions", "LIST adtl file"}));
    EXPECT_EQ(whole.warnings, json{loss});
    const Outcome part = CopyBytes(bytes, "take.wav", "copy.aiff", {"--start", "3f"});
    EXPECT_EQ(part.after,
              BigPadded("NAME", "name") + BigPadded("MARK", BigEndian(1, 2) + marker(2, 4, "end")));
    EXPECT_EQ(part.warnings,
              (json{loss, "take.wav: not preserved outside of the range: 1 cue point"}));
}

TEST(CopyMetadata, IsReadableInAIFFHoweverLongTextsAre) {
    const std::string tags = Padded("LIST", "INFO" + Padded("INAM", std::string(1000000, '\1')));
    const std::string second = Padded("LIST", "INFO" + Padded("INAM", std::string(8190, '\2')));
    const Outcome tooMany = CopyBytes(MakeWAVE("", tags + second), "take.wav", "copy.aiff");
    EXPECT_EQ(tooMany.metadata, Metadata({"ID3"}));
    EXPECT_EQ(tooMany.warnings,
              json{"take.wav: not preserved, because of damage: there are more than 524288 bytes "
                   "of text"});
    std::string points;
    std::string notes;
    for (std::uint64_t i = 1; i <= 100; ++i) {
        points += CuePoint(i, 7);
        notes += Padded("note", LittleEndian(i, 4) + std::string("odd\0", 4));
    }
    const Outcome comments = CopyBytes(MakeWAVE("", Padded("cue ", LittleEndian(100, 4) + points) +
                                                        Padded("LIST", "adtl" + notes)),
                                       "take.wav", "copy.aiff");
    EXPECT_EQ(comments.metadata, Metadata({"MARK", "COMT"}));
    EXPECT_EQ(comments.warnings, json::array());
}

// The library does not open the input, either, whose samples the repaired copy has.
TEST(CopyMetadata, LeavesOutTextsOfAIFFThatAreTooLongToRead) {
    const auto text = [](std::size_t size) {
        return BigPadded("AUTH", std::string(size, 'a'));
    };
    const std::string samples = BigPadded("SSND", BigEndian(0, 8) + std::string(4, 'y'));
    const Outcome outcome = CopyBytes(MakeAIFF("", samples + text(8190) + text(8191)), "take.aiff",
                                      "copy.aiff", {"--repair"});
    EXPECT_EQ(outcome.after, text(8190));
    EXPECT_EQ(outcome.metadata, Metadata({"AUTH"}, {"AUTH"}));
}

TEST(CopyMetadata, IsTranslatedIntoWAVE) {
    const std::string bytes =
        MakeAIFF("", BigPadded("NAME", "name") + BigPadded("APPL", "abcd") +
                         BigPadded("MARK", BigEndian(3, 2) + BigEndian(1, 2) + BigEndian(7, 4) +
                                               std::string("\3end", 4)));
    const Outcome outcome = CopyBytes(bytes, "take.aiff", "copy.wav");
    EXPECT_EQ(outcome.after.substr(0, 62),
              Padded("LIST",
                     "INFO" + Chunk("INAM", "name" + std::string(1, '\0')) + std::string(1, '\0')) +
                  Padded("cue ", LittleEndian(1, 4) + CuePoint(1, 7)));
    EXPECT_EQ(outcome.metadata, Metadata({"LIST INFO", "cue", "LIST adtl"}, {"APPL"}));
    EXPECT_EQ(outcome.warnings,
              (json{"take.aiff: not preserved in extensible WAVE: APPL",
                    "take.aiff: not preserved, because of damage: MARK declares 3 markers and has "
                    "1"}));
}

// The time reference is stored in two numbers.
TEST(CopyMetadata, IsTranslatedFromRIFX) {
    const std::string format = BigEndian(1, 2) + BigEndian(kChannels, 2) + BigEndian(48000, 4) +
                               BigEndian(192000, 4) + BigEndian(4, 2) + BigEndian(16, 2);
    const std::string broadcast = std::string("take") + std::string(334, '\0') +
                                  BigEndian(1000, 4) + BigEndian(0, 4) + std::string(256, '\0') +
                                  "A=X\r\n";
    const std::string bytes =
        BigPadded("RIFX", "WAVE" + BigPadded("fmt ", format) +
                              BigPadded("data", std::string(kSampleBytes, 'x')) +
                              BigPadded("bext", broadcast));
    const std::string adjusted = "take" + std::string(334, '\0') + LittleEndian(1003, 8) +
                                 std::string(256, '\0') +
                                 "A=X\r\nA=PCM,F=48000,W=16,M=stereo,T=kelhost\r\n";
    for (const auto& [output, after] : std::vector<std::pair<std::string, std::string>>{
             {"copy.wav", Padded("bext", adjusted)}, {"copy.aiff", Carried("bext", adjusted)}}) {
        const Outcome outcome =
            CopyBytes(bytes, "take.wav", output, {"--encoding", "int16", "--start", "3f"});
        EXPECT_EQ(outcome.after, after);
        EXPECT_EQ(outcome.metadata, Metadata({"bext"}));
        EXPECT_EQ(outcome.warnings, json::array());
    }
}

// One of the chunks is copied in pieces.
TEST(CopyMetadata, OfWAVEIsCarriedThroughAIFF) {
    const std::vector<std::pair<std::string, std::string>> contents{
        {"bext", std::string(602, 'b')},
        {"iXML", "<BWFXML/>"},
        {"axml", std::string((3U << 19U) + 1, 'a')},
        {"chna", std::string(4, '\0')},
        {"cart", "c"},
        {"LIST", "mine and yours"},
        {"LIST", "?"},
        {"smpl", std::string(36, '\0')},
        {"inst", std::string(7, 'i')},
        {"acid", std::string(24, 'a')},
        {"umid", ""},
        {"_PMX", "<x/>"},
        {"APPL", "abcd"},
        {"abcd", "?"}};
    std::string chunks;
    std::string carried;
    for (const auto& [name, content] : contents) {
        chunks += Padded(name, content);
        carried += Carried(name, content);
    }
    const std::string info = Padded("LIST", "INFO" + Padded("INAM", "name" + std::string(1, '\0')));
    json names{"bext", "iXML", "axml", "chna", "cart", "LIST mine", "LIST",
               "smpl", "inst", "acid", "umid", "_PMX", "APPL",      "abcd"};
    json namesInWAVE = names;
    namesInWAVE.push_back("LIST INFO");
    names.push_back("NAME");
    for (const auto& [input, bytes] : std::vector<std::pair<std::string, std::string>>{
             {"take.wav", MakeWAVE(kLayoutChunks + info, chunks)},
             {"take.rf64", MakeRF64(chunks + info)}}) {
        SCOPED_TRACE(input);
        const Outcome there = CopyBytes(bytes, input, "there.aiff");
        EXPECT_TRUE(there.after == carried + BigPadded("NAME", "name"));
        EXPECT_EQ(there.metadata, Metadata(names));
        EXPECT_EQ(there.warnings, json::array());
        const Outcome again = CopyBytes(there.bytes, "there.aiff", "again.aiff");
        EXPECT_TRUE(again.after == there.after);
        EXPECT_EQ(again.metadata, Metadata(names));
        EXPECT_EQ(again.warnings, json::array());
        for (const std::string output : {"back.wav", "back.rf64"}) {
            const Outcome back = CopyBytes(again.bytes, "again.aiff", output);
            EXPECT_TRUE(back.after == chunks + info);
            EXPECT_EQ(back.metadata, Metadata(namesInWAVE));
            EXPECT_EQ(back.warnings, json::array());
        }
    }
}

TEST(CopyMetadata, MovesWithTheStartWhereItIsCarried) {
    const auto sampler = [](std::uint64_t loop) {
        return std::string(28, '\0') + LittleEndian(1, 4) + LittleEndian(0, 12) +
               LittleEndian(loop, 4) + LittleEndian(loop + 1, 4) + LittleEndian(0, 8);
    };
    const std::string noLoop = std::string(28, '\0') + LittleEndian(0, 8);
    const std::string line = "A=PCM,F=48000,W=16,M=stereo,T=kelhost\r\n";
    const Outcome there =
        CopyBytes(MakeWAVE("", Broadcast(1000, "A=X\r\n") + Padded("smpl", sampler(4)) +
                                   Padded("plst", LittleEndian(0, 4))),
                  "take.wav", "there.aiff", {"--start", "3f"});
    EXPECT_EQ(there.after, Carried("bext", BroadcastFields(1003, "A=X\r\n" + line)) +
                               Carried("smpl", sampler(1)));
    EXPECT_EQ(there.warnings,
              json{"take.wav: not preserved, because they cannot be adjusted to the range: plst"});
    const json loss{"there.aiff: not preserved outside of the range: 1 loop"};
    const Outcome again = CopyBytes(there.bytes, "there.aiff", "again.aiff", {"--start", "2f"});
    EXPECT_EQ(again.after, Carried("bext", BroadcastFields(1005, "A=X\r\n" + line + line)) +
                               Carried("smpl", noLoop));
    EXPECT_EQ(again.warnings, loss);
    const Outcome back = CopyBytes(there.bytes, "there.aiff", "back.wav", {"--start", "2f"});
    EXPECT_EQ(back.after, Broadcast(1005, "A=X\r\n" + line + line) + Padded("smpl", noLoop));
    EXPECT_EQ(back.warnings, loss);
}

TEST(CopyMetadata, LosesWhatDescribesOtherChannelsWhereItIsCarried) {
    const Arguments other{"--channels", "2,1"};
    const std::string loss = ": not preserved, because they describe all channels: chna";
    const std::string wave = MakeWAVE("", Padded("chna", "abcd") + Padded("iXML", "a"));
    const Outcome there = CopyBytes(wave, "take.wav", "copy.aiff", other);
    EXPECT_EQ(there.after, Carried("iXML", "a"));
    EXPECT_EQ(there.warnings, json{"take.wav" + loss});
    const std::string aiff = MakeAIFF("", Carried("chna", "abcd") + Carried("iXML", "a"));
    EXPECT_EQ(CopyBytes(aiff, "take.aiff", "copy.aiff", other).after, Carried("iXML", "a"));
    const Outcome back = CopyBytes(aiff, "take.aiff", "copy.wav", other);
    EXPECT_EQ(back.after, Padded("iXML", "a"));
    EXPECT_EQ(back.warnings, json{"take.aiff" + loss});
}

TEST(CopyMetadata, TakesOnlyCarriedChunksOutOfAIFF) {
    const auto carrier = [](const std::string& signature, const std::string& name,
                            std::uint64_t bytes, const std::string& content) {
        return BigPadded("APPL", signature + name + LittleEndian(bytes, 4) + content);
    };
    for (const std::string& chunk :
         {carrier("kelX", "iXML", 4, "abcd"), carrier("kelW", "iXML", 3, "abcd"),
          carrier("kelW", "iXML", 5, "abcd"), carrier("kelW", "iXML", 0xFFFFFFFC, "abcd"),
          BigPadded("APPL", "kelWiXML\1\1\1"), BigPadded("APPL", "kelW"),
          carrier("kelW", "\1XML", 4, "abcd"), carrier("kelW", "data", 4, "abcd"),
          carrier("kelW", "JUNK", 4, "abcd"), carrier("kelW", "cue ", 4, "abcd"),
          carrier("kelW", "LIST", 4, "wavl"), carrier("kelW", "LIST", 4, "INFO")}) {
        const std::string bytes = MakeAIFF("", chunk + Carried("iXML", "a"));
        const Outcome wave = CopyBytes(bytes, "take.aiff", "copy.wav");
        EXPECT_EQ(wave.after, Padded("iXML", "a"));
        EXPECT_EQ(wave.metadata, Metadata({"iXML"}, {"APPL"}));
        EXPECT_EQ(wave.warnings, json{"take.aiff: not preserved in extensible WAVE: APPL"});
        const Outcome aiff = CopyBytes(bytes, "take.aiff", "copy.aiff");
        EXPECT_EQ(aiff.after, chunk + Carried("iXML", "a"));
        EXPECT_EQ(aiff.metadata, Metadata({"APPL", "iXML"}));
    }
}

TEST(CopyMetadata, LosesACarriedChunkThatEndsAfterTheFile) {
    std::string bytes = MakeAIFF("", Carried("cart", "c") + Carried("iXML", "abcdef"));
    bytes.resize(bytes.size() - 2);
    const std::string truncation =
        "take.aiff: declares 142 bytes and contains 140; it is truncated after its samples";
    const Outcome wave = CopyBytes(bytes, "take.aiff", "copy.wav", {"--allow-truncated"});
    EXPECT_EQ(wave.after, Padded("cart", "c"));
    EXPECT_EQ(wave.warnings,
              (json{truncation, "take.aiff: not preserved in extensible WAVE: APPL"}));
    const Outcome aiff = CopyBytes(bytes, "take.aiff", "copy.aiff", {"--allow-truncated"});
    EXPECT_EQ(aiff.after, Carried("cart", "c"));
    EXPECT_EQ(
        aiff.warnings,
        (json{truncation, "take.aiff: not preserved, because the file ends before them: APPL"}));
}

TEST(CopyMetadata, MovesWithTheStart) {
    const std::string bytes = MakeWAVE(
        "", Broadcast(1000, "") +
                Padded("LIST", "adtl" + Padded("labl", LittleEndian(1, 4) + "gone") +
                                   Padded("labl", LittleEndian(2, 4) + "kept")) +
                Padded("cue ", LittleEndian(2, 4) + CuePoint(1, 2) + CuePoint(2, 7)) +
                Padded("smpl", std::string(28, '\0') + LittleEndian(1, 4) + LittleEndian(0, 12) +
                                   LittleEndian(4, 4) + LittleEndian(7, 4) + LittleEndian(0, 8)));
    const Outcome outcome =
        CopyBytes(bytes, "take.wav", "copy.wav", {"--start", "3f", "--duration", "4f"});
    EXPECT_EQ(outcome.after,
              Broadcast(1003, "") +
                  Padded("LIST", "adtl" + Padded("labl", LittleEndian(2, 4) + "kept")) +
                  Padded("cue ", LittleEndian(1, 4) + CuePoint(2, 4)) +
                  Padded("smpl", std::string(28, '\0') + LittleEndian(0, 8)));
    EXPECT_EQ(outcome.metadata, Metadata({"bext", "LIST adtl", "cue", "smpl"}));
    EXPECT_EQ(outcome.warnings,
              json{"take.wav: not preserved outside of the range: 1 cue point, 1 loop"});
}

TEST(CopyMetadata, LosesWhatDescribesOtherChannels) {
    const std::string model = Padded("axml", "<a/>") + Padded("chna", std::string(4, '\0'));
    const std::string chunks = model + Padded("iXML", "a");
    for (const std::string channels : {"1", "2,1", "1,2,2"}) {
        const Outcome outcome =
            CopyBytes(MakeWAVE("", chunks), "take.wav", "copy.wav", {"--channels", channels});
        EXPECT_EQ(outcome.after, Padded("iXML", "a"));
        EXPECT_EQ(outcome.metadata, Metadata({"iXML"}, {"axml", "chna"}));
        EXPECT_EQ(outcome.warnings,
                  json{"take.wav: not preserved, because they describe all channels: axml, chna"});
    }
    const Outcome same =
        CopyBytes(MakeWAVE("", chunks), "take.wav", "copy.wav", {"--channels", "1,2"});
    EXPECT_EQ(same.after, chunks);
}

// Each part describes the whole input, and is kept.
TEST(CopyMetadata, IsNamedWhereItIsNotAdjusted) {
    const std::string loudness = BroadcastFields(7, "")
                                     .replace(346, 2, LittleEndian(2, 2))
                                     .replace(412, 2, LittleEndian(0xF6A0, 2));
    const std::string chunks = Padded("axml", "<a/>") + Padded("acid", std::string(24, 'a')) +
                               Padded("iXML", "<SYNC_POINT><TRACK>");
    const std::string bytes = MakeWAVE("", Padded("bext", loudness) + chunks);
    const Outcome whole = CopyBytes(bytes, "take.wav", "copy.wav");
    EXPECT_EQ(whole.warnings, json::array());
    const Outcome part = CopyBytes(bytes, "take.wav", "copy.wav", {"--duration", "5f"});
    EXPECT_EQ(part.after, Padded("bext", loudness) + chunks);
    EXPECT_EQ(part.warnings,
              json{"take.wav: not adjusted to the range: loudness in bext, axml, acid, iXML"});
    const Outcome carried = CopyBytes(bytes, "take.wav", "copy.aiff", {"--duration", "5f"});
    EXPECT_EQ(carried.warnings, part.warnings);
    const Outcome channel = CopyBytes(bytes, "take.wav", "copy.wav", {"--channels", "1"});
    EXPECT_EQ(channel.warnings,
              (json{"take.wav: not preserved, because they describe all channels: axml",
                    "take.wav: not adjusted to the channels: loudness in bext, iXML"}));
}

TEST(CopyMetadata, AddsALineToACodingHistory) {
    const std::string line = "A=ANALOGUE,M=mono";
    struct Row {
        Arguments options;
        std::string added;
    };
    for (const Row& row :
         {Row{{"--encoding", "int24"}, "A=PCM,F=48000,W=24,M=stereo,T=kelhost\r\n"},
          Row{{"--encoding", "float32", "--channels", "1"},
              "A=PCM,F=48000,W=32,M=mono,T=kelhost\r\n"},
          Row{{"--encoding", "int16", "--channels", "1,1,2"},
              "A=PCM,F=48000,W=16,T=kelhost\r\n"}}) {
        EXPECT_EQ(
            CopyBytes(MakeWAVE(Broadcast(0, line), ""), "take.wav", "copy.wav", row.options).after,
            Broadcast(0, line + "\r\n" + row.added));
    }
    EXPECT_EQ(CopyBytes(MakeWAVE(Broadcast(0, ""), ""), "take.wav", "copy.wav").after,
              Broadcast(0, ""));
}

TEST(CopyMetadata, KeepsDamagedChunksWhereNothingChanges) {
    const std::string damaged =
        Padded("bext", std::string(100, 'b')) +
        Padded("cue ", LittleEndian(9, 4) + CuePoint(1, 5)) +
        Padded("smpl", std::string(28, '\0') + LittleEndian(9, 8)) +
        Padded("LIST", "adtl" + Chunk("LIST", "adtl" + Chunk("LIST", "adtl"))) +
        Padded("LIST", "abc");
    const Outcome outcome = CopyBytes(MakeWAVE("", damaged), "take.wav", "copy.rf64");
    EXPECT_EQ(outcome.after, damaged);
    EXPECT_EQ(outcome.warnings, json::array());
    const Outcome part =
        CopyBytes(MakeWAVE("", damaged), "take.wav", "copy.rf64", {"--start", "3f"});
    EXPECT_EQ(part.after, Padded("LIST", "abc"));
    EXPECT_EQ(part.metadata, Metadata({"LIST"}, {"bext", "cue", "smpl", "LIST adtl"}));
    EXPECT_EQ(part.warnings, json{"take.wav: not preserved, because they cannot be adjusted to the "
                                  "range: bext, cue, smpl, LIST adtl"});
}

TEST(CopyMetadata, LosesAChunkThatEndsAfterTheFile) {
    std::string bytes = MakeWAVE("", Padded("iXML", "a"));
    const std::string part = "cart" + LittleEndian(0xFFFFFFFF, 4) + "abc";
    bytes += part;
    bytes.replace(4, 4, LittleEndian(bytes.size() - 8, 4));
    const Outcome outcome = CopyBytes(bytes, "take.wav", "copy.wav", {"--allow-truncated"});
    EXPECT_EQ(outcome.after, Padded("iXML", "a"));
    EXPECT_EQ(outcome.metadata, Metadata({"iXML"}, {"cart"}));
    EXPECT_EQ(outcome.warnings,
              (json{"take.wav: declares 4294967397 bytes and contains 105; it is truncated after "
                    "its samples",
                    "take.wav: not preserved, because the file ends before them: cart"}));
}

TEST(CopyMetadata, IsLimitedInANumberOfChunksThatNoFileHas) {
    std::string chunks;
    for (int i = 0; i < 100000; ++i) {
        chunks += Chunk("aa" + LittleEndian(0x2020U + static_cast<unsigned>(i % 90) * 256 +
                                                static_cast<unsigned>(i / 90 % 90),
                                            2),
                        "");
    }
    const Outcome outcome = CopyBytes(MakeWAVE("", chunks), "take.wav", "copy.wav");
    EXPECT_EQ(outcome.after.size(), (65536U - 2) * 8); // without "fmt " and "data"
    EXPECT_EQ(outcome.warnings,
              json{"take.wav: not preserved in extensible WAVE: chunks after the first 65536"});
}

TEST(CopyMetadata, IsTheSameInEveryCopy) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.wav", MakeWAVE(Broadcast(0, "A=X\r\n"), kUsualChunks));
    for (const std::string output : {"a.wav", "b.wav"}) {
        EXPECT_EQ(RunKelhost(directory, {"copy", "take.wav", output}).status, 0);
    }
    EXPECT_EQ(WithoutTime(ReadFile(directory / "a.wav")),
              WithoutTime(ReadFile(directory / "b.wav")));
}

// The samples fit into 4 GiB, and not with the metadata.
TEST(CopyMetadata, CountsForTheSizeOfTheOutput) {
    constexpr std::uint64_t kManyFrames = (0xFFFFFFFF - 528) / 2;
    const std::string samples = std::to_string(kManyFrames * 2) + " bytes of samples";
    const auto copy = [&](const Arguments& arguments, std::uint64_t metadata) {
        const TemporaryDirectory directory;
        WriteSparseAudio(directory / "take.rf64", 1, 1, kManyFrames, 0, "");
        std::ofstream(directory / "take.rf64", std::ios::binary | std::ios::app)
            << std::string(kManyFrames % 2, '\0') << Padded("iXML", std::string(metadata, 'x'));
        Command command =
            Kelhost(directory, Arguments{"copy", "take.rf64", "--encoding", "int16"} + arguments);
        DisturbSystem(command);
        command.environment["KEL_TEST_DISK_ROOM"] = "1000";
        const ProcessResult result = RunCommand(command);
        EXPECT_EQ(result.status, 1);
        return result.err;
    };
    const auto shortage = [&](const std::string& output, std::uint64_t metadata) {
        return Error(output, "needs " + std::to_string(kManyFrames * 2 + 528 + metadata) +
                                 " bytes, and its disk has 1000 left; nothing was written");
    };
    EXPECT_EQ(copy({"copy.wav"}, 100),
              "kelhost: warning: copy.wav: is written as RF64, because its " + samples +
                  " and 109 of metadata do not fit into WAVE\n" + shortage("copy.wav", 109));
    EXPECT_EQ(copy({"copy.wav", "--format", "wave"}, 100),
              Error("copy.wav", "would have " + samples +
                                    " and 109 of metadata, and extensible WAVE holds at most 4 "
                                    "GiB; use --format bwave or --metadata none"));
    EXPECT_EQ(copy({"copy.wav", "--metadata", "none"}, 100), shortage("copy.wav", 0));
}

// libsndfile 1.2.0 looks for the end of such a list forever, but does not look into W64.
TEST(CopyMetadata, LosesAListWithoutAnEnd) {
    const std::string list = "INFO" + Chunk("INAM", "name") + "abcd" + LittleEndian(0xFFFFFFF4, 4) +
                             std::string(16, '\0');
    const Outcome outcome =
        CopyBytes(MakeW64(OldChunk64("list", list) + Chunk64("abcd", "a")), "take.w64", "copy.wav");
    EXPECT_EQ(outcome.after, Padded("abcd", "a"));
    EXPECT_EQ(outcome.metadata, Metadata({"abcd"}, {"LIST INFO"}));
    EXPECT_EQ(outcome.warnings, json{"take.w64: not preserved, because of damage: LIST INFO"});
    const Outcome carried =
        CopyBytes(MakeAIFF("", Carried("LIST", "mine" + list.substr(4))), "take.aiff", "copy.wav");
    EXPECT_EQ(carried.after, "");
    EXPECT_EQ(carried.warnings, json{"take.aiff: not preserved, because of damage: LIST mine"});
}

TEST(CopyMetadata, IsReadBackWithinTheTimeLimit) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    Command command = Kelhost(directory, {"copy", "take.wav", "copy.wav", "--open-timeout", "0.3"});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "read";
    command.environment["KEL_TEST_FAULTY_NUMBER"] = "1";
    command.environment["KEL_TEST_FAULT_HANGS"] = "1";
    ExpectResult(RunCommand(command), 1, "",
                 Error("copy.wav", "cannot open the file within 0.3 s; it is damaged, a pipe "
                                   "without a writer, or on a mount that does not respond "
                                   "(--open-timeout SECONDS allows more)"));
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

// Every write and every read fails once.
TEST(CopyMetadata, FailsTheCopyWhenItCannotBeCopied) {
    struct Row {
        std::string call;
        std::string file;
        std::string error;
    };
    for (const Row& row :
         {Row{"write", "unfinished",
              Error("copy.wav", "cannot write its metadata: No space left on device")},
          Row{"read", "/take.wav",
              Error("take.wav", "cannot read its metadata: Input/output error")},
          Row{"flip", "unfinished",
              Error("copy.wav", "differs from the written metadata when it is read back; do not "
                                "trust this disk")}}) {
        const TemporaryDirectory directory;
        WriteFile(directory / "take.wav", MakeWAVE("", Padded("iXML", "<BWFXML/>")));
        bool isFound = false;
        bool hasFailed = true;
        for (int number = 1; hasFailed; ++number) {
            Command command =
                Kelhost(directory, {"copy", "take.wav", "copy.wav", "--quiet", "--verify"});
            DisturbSystem(command);
            command.environment["KEL_TEST_FAULTY_CALL"] = row.call;
            command.environment["KEL_TEST_FAULTY_FILE"] = row.file;
            command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(number);
            command.environment["KEL_TEST_FAULT_MARKER"] = directory / "marker";
            const ProcessResult result = RunCommand(command);
            hasFailed = std::filesystem::remove(directory / "marker");
            EXPECT_EQ(std::filesystem::exists(directory / "copy.wav"), result.status == 0);
            if (std::filesystem::remove(directory / "copy.wav")) {
                EXPECT_NE(row.call, hasFailed ? "write" : "") << number;
            }
            isFound = isFound || result.err == row.error;
        }
        EXPECT_TRUE(isFound) << row.error;
    }
}

} // namespace kel::test
