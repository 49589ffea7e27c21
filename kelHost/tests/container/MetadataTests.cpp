#include "container/Metadata.h"

#include "MetadataText.h"
#include "base/Errors.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sndfile.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::host {

namespace {

using test::BigEndian;
using test::DescribeFile;
using test::Field;
using test::LittleEndian;

// A text with its length.
std::string Sized(const std::string& text) {
    return LittleEndian(text.size(), 4) + text;
}

std::string Comments(const std::vector<std::string>& comments) {
    std::string bytes = Sized("vendor") + LittleEndian(comments.size(), 4);
    for (const std::string& comment : comments) {
        bytes += Sized(comment);
    }
    return bytes;
}

std::string Block(unsigned type, const std::string& content) {
    return static_cast<char>(type) + BigEndian(content.size(), 3) + content;
}

// A page with one packet of up to 65024 bytes, or the beginning of one.
std::string OggPage(std::uint32_t stream, const std::string& content, bool isComplete = true) {
    std::string pieces(content.size() / 255, '\xFF');
    if (isComplete) {
        pieces += static_cast<char>(content.size() % 255);
    }
    return "OggS" + std::string(10, '\0') + LittleEndian(stream, 4) + std::string(8, '\0') +
           static_cast<char>(pieces.size()) + pieces + content;
}

std::string ID3v1(const std::string& title, const std::string& comment) {
    return "TAG" + Field(title, 30) + Field("Artist", 30) + Field("Album ", 30) + "1999" +
           Field(comment, 28) + std::string("\0\7\x11", 3);
}

const std::string kFrame = "\xFF\xFB\x90" + std::string(413, '\0'); // of an MP3 file

} // namespace

TEST(Metadata, OfFLACAreItsCommentsAndTheNamesOfItsOtherBlocks) {
    const std::string flac = "fLaC" + Block(0, std::string(34, '\0')) + Block(1, "pad") +
                             Block(3, "seek") + Block(2, "riff") + Block(5, "cue") +
                             Block(4, Comments({"TITLE=T\xC3\xA9", "Tracknumber=3", "artist=A",
                                                "ARTIST=B", "no text", "encoder=E"})) +
                             Block(9, "new") + Block(0x86, "picture") + "audio";
    const std::string expected = "title=T\xC3\xA9\ntrack=3\nartist=A\nartist=B\nsoftware=E\n";
    const std::string others =
        "APPLICATION of 4\nCUESHEET of 3\nmetadata block 9 of 3\nPICTURE of 7\n";
    const std::string omission = "omission: comments without a name\n";
    EXPECT_EQ(DescribeFile(flac), expected + others + omission);
    const std::string frame = "TALB" + BigEndian(2, 4) + BigEndian(0, 2) + "\3L";
    const std::string id3 = "ID3\4" + std::string(2, '\0') + BigEndian(frame.size(), 4) + frame;
    EXPECT_EQ(DescribeFile(id3 + flac + ID3v1("Title", "C")),
              "album=L\n" + expected + "date=1999\ncomment=C\ngenre=Rock\n" + others + omission +
                  "omission: title of ID3v1\nomission: artist of ID3v1\n"
                  "omission: album of ID3v1\nomission: track of ID3v1\n");
}

TEST(Metadata, OfFLACAreInALimitedNumberOfBlocks) {
    std::string blocks;
    for (int i = 0; i < 4095; ++i) {
        blocks += Block(1, "");
    }
    const std::string last = Block(0x84, Comments({"title=T"}));
    EXPECT_EQ(DescribeFile("fLaC" + blocks + last), "title=T\n");
    EXPECT_EQ(DescribeFile("fLaC" + blocks + Block(1, "") + last),
              "problem: there are more than 4096 metadata blocks\n");
}

// It describes samples, but only in FLAC.
TEST(Metadata, OfFLACHaveTheSpeakersInsteadOfTheirComment) {
    const std::string mask = "WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x3";
    const std::string packet = Block(0x84, Comments({mask, "title=T"}));
    EXPECT_EQ(DescribeFile("fLaC" + packet), "title=T\n");
    EXPECT_EQ(DescribeFile(OggPage(1, "\x7F"
                                      "FLAC...") +
                           OggPage(1, packet)),
              "title=T\n");
    EXPECT_EQ(DescribeFile(OggPage(1, "OpusHead") + OggPage(1, "OpusTags" + Comments({mask}))),
              "waveformatextensible_channel_mask=0x3\n");
    EXPECT_EQ(DescribeFile("fLaC" + Block(0x84, Comments({mask + "?"}))),
              "waveformatextensible_channel_mask=0x3?\n");
}

TEST(Metadata, NoteCommentsThatAreDeclaredButMissing) {
    const std::string comments = Comments({"title=T"}).replace(10, 1, "\x09");
    EXPECT_EQ(DescribeFile("fLaC" + Block(0x84, comments)),
              "title=T\nproblem: the file declares 9 comments and has 1\n");
    EXPECT_EQ(DescribeFile("fLaC" + Block(0x84, Comments({"title=Take"})).substr(0, 29)),
              "title=T\nproblem: VORBIS_COMMENT declares 28 bytes and has 25\n");
}

TEST(Metadata, OfOggAreTheCommentsOfItsFirstStream) {
    const std::string comments = Comments({"title=T", "METADATA_BLOCK_PICTURE=abcd"});
    const std::string expected = "title=T\nPICTURE of 4\n";
    EXPECT_EQ(DescribeFile(OggPage(1, "\x01vorbis...") +
                           OggPage(2, "\x03vorbis" + Comments({"a=b"})) +
                           OggPage(1, "\x03vorbis" + comments)),
              expected);
    EXPECT_EQ(DescribeFile(OggPage(1, "OpusHead...") + OggPage(1, "OpusTags" + comments)),
              expected);
    EXPECT_EQ(DescribeFile(OggPage(1, "\x7F"
                                      "FLAC...") +
                           OggPage(1, Block(4, comments)) + OggPage(1, Block(2, "riff")) +
                           OggPage(1, Block(0x81, "pad")) + OggPage(1, Block(2, "audio"))),
              expected + "APPLICATION of 4\n");
    EXPECT_EQ(DescribeFile(OggPage(1, "Speex   ") + OggPage(1, comments)), "");
}

TEST(Metadata, OfOggMayContinueOnFurtherPages) {
    const std::string packet = "OpusTags" + Comments({"title=" + std::string(600, 'x')});
    EXPECT_EQ(DescribeFile(OggPage(1, "OpusHead") + OggPage(1, packet.substr(0, 510), false) +
                           OggPage(2, "other") + OggPage(1, packet.substr(510))),
              "title=" + std::string(600, 'x') + "\n");
    EXPECT_EQ(DescribeFile(OggPage(1, "OpusHead") + OggPage(1, packet.substr(0, 510), false)), "");
}

TEST(Metadata, OfOggAreReadUpToALimit) {
    const std::string content(65025, 'x');
    std::string file = OggPage(1, "OpusHead");
    file += OggPage(1, "OpusTags" + Comments({"title=T"}) + content.substr(33), false);
    constexpr std::size_t kPages = 70;
    for (std::size_t i = 0; i < kPages; ++i) {
        file += OggPage(1, content, false);
    }
    EXPECT_EQ(DescribeFile(file + OggPage(1, "end")),
              "title=T\nproblem: a header of the stream has 4616778 bytes and only the first "
              "1048815 are read\n");
}

TEST(Metadata, OfOggAreInItsFirstPages) {
    constexpr std::size_t kPages = 4096;
    std::string file = OggPage(1, "OpusHead");
    for (std::size_t i = 2; i < kPages; ++i) {
        file += OggPage(2, "");
    }
    const std::string comments = OggPage(1, "OpusTags" + Comments({"title=T"}));
    EXPECT_EQ(DescribeFile(file + comments), "title=T\n");
    EXPECT_EQ(DescribeFile(file + OggPage(2, "") + comments),
              "problem: the headers of the stream are not within its first 4096 pages\n");
}

TEST(Metadata, OfMP3AreItsTagsAtBothEnds) {
    const std::string frame = "TIT2" + BigEndian(4, 4) + BigEndian(0, 2) + "\3New";
    const std::string id3 = "ID3\4" + std::string(2, '\0') + BigEndian(frame.size(), 4) + frame;
    const std::string old = ID3v1("Old", "C");
    EXPECT_EQ(DescribeFile(kFrame + old),
              "title=Old\nartist=Artist\nalbum=Album\ndate=1999\ncomment=C\ngenre=Rock\ntrack=7\n");
    EXPECT_EQ(DescribeFile(id3 + kFrame + old),
              "title=New\nartist=Artist\nalbum=Album\ndate=1999\ncomment=C\ngenre=Rock\ntrack=7\n"
              "omission: title of ID3v1\n");
    const std::string longComment(30, 'c'); // leaves no place for a track
    EXPECT_EQ(DescribeFile(kFrame + ID3v1("Old", "").replace(97, 30, longComment)),
              "title=Old\nartist=Artist\nalbum=Album\ndate=1999\ncomment=" + longComment +
                  "\ngenre=Rock\n");
    const std::string ape =
        "APETAGEX" + LittleEndian(2000, 4) + LittleEndian(50, 4) + std::string(16, '\0');
    EXPECT_EQ(DescribeFile(id3 + kFrame + ape), "title=New\nAPE of 50\n");
    EXPECT_EQ(DescribeFile(id3 + kFrame + ape + old.substr(0, 3) + std::string(125, '\0')),
              "title=New\ngenre=Blues\nAPE of 50\n");
}

// Texts of ID3v1 are cut, and its numbers have no zeros at their beginning.
TEST(Metadata, OfMP3AreNotRepeatedInItsShortTag) {
    const std::string title(30, 't');
    const auto text = [](const std::string& id, const std::string& value) {
        return id + BigEndian(value.size() + 1, 4) + BigEndian(0, 2) + "\3" + value;
    };
    const std::string frames = text("TIT2", title + "rest") + text("TRCK", "07/12") +
                               text("TDRC", "1999-11-22") + text("TCON", "(17)");
    const std::string id3 = "ID3\4" + std::string(2, '\0') + BigEndian(frames.size(), 4) + frames;
    EXPECT_EQ(DescribeFile(id3 + kFrame + ID3v1(title, "C")),
              "title=" + title +
                  "rest\ntrack=07/12\ndate=1999-11-22\ngenre=Rock\nartist=Artist\n"
                  "album=Album\ncomment=C\n");
}

TEST(Metadata, OfMP3MayHaveAGenreWithoutAName) {
    const std::string tag = "TAG" + std::string(124, '\0');
    EXPECT_EQ(DescribeFile(kFrame + tag + "\x93"), "genre=(147)\n");
    EXPECT_EQ(DescribeFile(kFrame + tag + "\xFF"), "");
}

TEST(Metadata, OfMP3MayHaveSeveralTagsAtEachEnd) {
    const auto id3 = [](const std::string& name, char flags = '\0') {
        const std::string frame = name + BigEndian(4, 4) + BigEndian(0, 2) + "\3New";
        return std::string("ID3\4\0", 5) + flags + BigEndian(frame.size(), 4) + frame;
    };
    const std::string start = id3("TIT2") + id3("TPE1") + kFrame;
    const std::string tags = "title=New\nartist=New\n";
    EXPECT_EQ(DescribeFile(start), tags);
    const std::string footer =
        id3("TALB", '\x10') + "3DI\4" + std::string(1, '\0') + "\x10" + BigEndian(14, 4);
    const std::string old = ID3v1("", "");
    EXPECT_EQ(DescribeFile(start + footer), tags + "album=New\n");
    EXPECT_EQ(DescribeFile("\xFF\xFB" + footer.substr(24)),
              "problem: ID3 at the end declares 34 bytes and has 12\n");
    EXPECT_EQ(DescribeFile(start + Field("TAG+Long title", 227) + "LYRICSBEGIN000007LYRICS200"),
              tags + "Lyrics3 of 7\n");
    EXPECT_EQ(DescribeFile(start + Field("TAG+Long title", 227) + old.substr(0, 127) + "\xFF"),
              "title=New\nartist=New\nalbum=Album\ndate=1999\ntrack=7\nTAG+ of 227\n"
              "omission: artist of ID3v1\n");
}

TEST(Metadata, OfCAFAreItsInformationAndTheNamesOfOtherChunks) {
    const auto chunk = [](const std::string& name, const std::string& content) {
        return name + BigEndian(content.size(), 8) + content;
    };
    const std::string start = "caff" + BigEndian(0x10000, 4) + chunk("desc", "d");
    const std::string info = BigEndian(2, 4) + std::string("track number\0"
                                                           "3\0title\0T\0",
                                                           23);
    EXPECT_EQ(DescribeFile(start + chunk("info", info) + chunk("free", "f") + chunk("midi", "m") +
                           "data" + std::string(8, '\xFF') + "samples and more samples"),
              "track=3\ntitle=T\nmidi of 1\n");
    EXPECT_EQ(DescribeFile(start + "info" + BigEndian(99, 8) + info.substr(0, 20)),
              "track=3\nomission: empty tags\nproblem: info declares 99 bytes and has 20\n");
}

TEST(Metadata, OfCAFAreItsMarkersWithTheirTexts) {
    const auto chunk = [](const std::string& name, const std::string& content) {
        return name + BigEndian(content.size(), 8) + content;
    };
    constexpr std::uint64_t k100 = 0x4059000000000000;  // 100.0, as a number of 64 bits
    constexpr std::uint64_t k1000 = 0x408F400000000000; // 1000.0
    const std::string none(8, '\xFF');
    const auto marker = [&](std::uint64_t position, std::uint64_t number, std::uint64_t kind = 0,
                            const std::string& time = "", std::uint64_t channel = 0) {
        return BigEndian(kind, 4) + BigEndian(position, 8) + BigEndian(number, 4) +
               (time.empty() ? none : time) + BigEndian(channel, 4);
    };
    const auto describe = [&](const std::string& markers, const std::string& after = "") {
        return DescribeFile(
            "caff" + BigEndian(0x10000, 4) + chunk("desc", "d") +
            chunk("mark", BigEndian(0, 4) + BigEndian(markers.size() / 28, 4) + markers) + after);
    };
    const std::string texts = BigEndian(2, 4) + BigEndian(7, 4) + BigEndian(4, 8) +
                              BigEndian(8, 4) + BigEndian(0, 8) +
                              std::string("End\0T\xC3\xA9\0", 8);
    const std::string end = "data" + none + "samples";
    EXPECT_EQ(
        describe(marker(k1000, 8) + marker(k100, 7) + marker(0, 9), chunk("strg", texts) + end),
        "cue 8 at 1000+0: End|\ncue 7 at 100+0: T\xC3\xA9|\ncue 9 at 0+0: |\n");
    EXPECT_EQ(describe(marker(k100, 8), chunk("strg", texts) + end),
              "cue 8 at 100+0: End|\nomission: texts without a marker\n");
    const std::string point = "cue 1 at 100+0: |\nomission: ";
    EXPECT_EQ(describe(marker(k100, 1, 1)), point + "kinds of markers\n");
    EXPECT_EQ(describe(marker(k100 + 1, 1)), point + "fractions of positions\n");
    EXPECT_EQ(describe(marker(k100, 1, 0, "\1\2\3\4\1\1\1\1")), point + "times of markers\n");
    EXPECT_EQ(describe(marker(k100, 1, 0, "", 2)), point + "channels of markers\n");
    EXPECT_EQ(describe(marker(k100, 1, 0, std::string(8, '\0'))), "cue 1 at 100+0: |\n");
    const std::string problem = "problem: mark has a marker without a position\n";
    EXPECT_EQ(describe(marker(0xC059000000000000, 1)), problem); // negative
    EXPECT_EQ(describe(marker(0x43E0000000000000, 1)), problem); // 2^63
    EXPECT_EQ(describe(marker(0x7FF8000000000000, 1)), problem); // no number
    EXPECT_EQ(DescribeFile("caff" + BigEndian(0x10000, 4) + chunk("desc", "d") +
                           chunk("mark", BigEndian(0, 4) + BigEndian(9, 4) + marker(k100, 1))),
              "cue 1 at 100+0: |\nproblem: mark declares 9 markers and has 1\n");
}

TEST(Metadata, OfCAFHaveTextsUpToALimitWhereTheyOverlap) {
    constexpr std::size_t kLong = 300000;
    std::string texts = BigEndian(3, 4);
    for (std::uint64_t number = 1; number <= 3; ++number) {
        texts += BigEndian(number, 4) + BigEndian(0, 8);
    }
    texts += std::string(kLong, 'x');
    const std::string markers = BigEndian(0, 4) + BigEndian(2, 4) + std::string(12, '\0') +
                                BigEndian(2, 4) + std::string(24, '\0') + BigEndian(3, 4) +
                                std::string(12, '\0');
    EXPECT_EQ(DescribeFile("caff" + BigEndian(0x10000, 4) + "strg" + BigEndian(texts.size(), 8) +
                           texts + "mark" + BigEndian(markers.size(), 8) + markers),
              "cue 2 at 0+0: " + std::string((1U << 19U) - kLong, 'x') +
                  "|\ncue 3 at 0+0: |\nomission: texts without a marker\n"
                  "problem: there are more than 524288 bytes of text\n");
}

TEST(Metadata, OfAUAreItsAnnotation) {
    EXPECT_EQ(DescribeFile(".snd" + BigEndian(32, 4) + std::string(16, '\0') + "Take 1" +
                           std::string(2, '\0') + "samples"),
              "comment=Take 1\n");
    EXPECT_EQ(DescribeFile(".snd" + BigEndian(32, 4) + std::string(17, '\0') + "Take 1" + "1"),
              "omission: texts after a zero byte\nomission: empty tags\n");
    EXPECT_EQ(DescribeFile("dns." + LittleEndian(32, 4) + std::string(16, '\0') + "Take 1"),
              "comment=Take 1\nproblem: annotation declares 8 bytes and has 6\n");
    EXPECT_EQ(DescribeFile(".snd" + BigEndian(0, 4) + std::string(16, '\0') + "samples"), "");
}

TEST(Metadata, AreNotReadInChunksAfterATag) {
    const std::string frame = "TALB" + BigEndian(4, 4) + BigEndian(0, 2) + "\3Alb";
    const std::string id3 = "ID3\4" + std::string(2, '\0') + BigEndian(frame.size(), 4) + frame;
    for (const char* name : {"RIFF", "RIFX", "RF64", "BW64", "FORM"}) {
        EXPECT_EQ(DescribeFile(id3 + name + "1234WAVE"),
                  "album=Alb\nomission: chunks after the ID3 tag\n");
        EXPECT_EQ(DescribeFile(name + std::string("1234none")), "");
    }
}

TEST(Metadata, OfOtherFilesAreEmpty) {
    EXPECT_EQ(DescribeFile(""), "");
    EXPECT_EQ(DescribeFile("no audio"), "");
}

TEST(Metadata, NeedAFile) {
    const test::TemporaryDirectory directory;
    try {
        ReadMetadata(FileName(directory / "take.wav", "take.wav"));
        FAIL();
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), "take.wav");
        EXPECT_STREQ(error.what(), "cannot read its metadata: No such file or directory");
    }
}

// Tags that the library writes and this reader reads.
TEST(Metadata, OfTheLibrarysFilesAreTheTagsThatItWrote) {
    for (const int format :
         {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_RF64 | SF_FORMAT_PCM_16,
          SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_CAF | SF_FORMAT_PCM_16,
          SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_OGG | SF_FORMAT_VORBIS,
          SF_FORMAT_OGG | SF_FORMAT_OPUS, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}) {
        const test::TemporaryDirectory directory;
        SF_INFO info{0, 48000, 1, format, 0, 0};
        {
            const test::SoundFile file(directory / "take", SFM_WRITE, info);
            sf_set_string(file.Handle(), SF_STR_TITLE, "T\xC3\xA9");
            sf_set_string(file.Handle(), SF_STR_ARTIST, "A");
            const std::vector<float> values = test::MakeValues(9600);
            sf_write_float(file.Handle(), values.data(), 9600);
        }
        std::vector<std::string> found;
        for (const Tag& tag : ReadMetadata(directory / "take").tags) {
            if (tag.name == "title" || tag.name == "artist") {
                found.push_back(tag.name + "=" + tag.value);
            }
        }
        EXPECT_EQ(found, (std::vector<std::string>{"title=T\xC3\xA9", "artist=A"})) << format;
    }
}

} // namespace kel::host
