// Writes the seeds of the fuzz targets: for the source a small file of every container and encoding
// that libsndfile can write, for the other targets an input of every shape.
//
// MakeSeeds DIRECTORY: makes DIRECTORY/Source, DIRECTORY/Sink and so on.

#include <TemporaryDirectory.h>

#include <sndfile.h>

#include <array>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The input of the source before the file: the block size, and the seeks.
const std::string kSourcePrefix = std::string("\x06\0\0\0", 4) + std::string(16, '\x05');

template <typename Description>
std::vector<Description> Formats(int countCommand, int command) {
    int count = 0;
    sf_command(nullptr, countCommand, &count, sizeof count);
    std::vector<Description> formats;
    for (int i = 0; i < count; ++i) {
        Description description{};
        description.format = i;
        sf_command(nullptr, command, &description, sizeof description);
        formats.push_back(description);
    }
    return formats;
}

void WriteSourceSeeds(const fs::path& directory) {
    constexpr int kFrames = 20;
    const std::vector<float> values(static_cast<std::size_t>(2 * kFrames), 0.25F);
    const kel::test::TemporaryDirectory work;
    for (const SF_FORMAT_INFO& container :
         Formats<SF_FORMAT_INFO>(SFC_GET_FORMAT_MAJOR_COUNT, SFC_GET_FORMAT_MAJOR)) {
        for (const SF_FORMAT_INFO& encoding :
             Formats<SF_FORMAT_INFO>(SFC_GET_FORMAT_SUBTYPE_COUNT, SFC_GET_FORMAT_SUBTYPE)) {
            SF_INFO info{};
            info.channels = 2;
            info.samplerate = 8000;
            info.format = container.format | encoding.format;
            if (sf_format_check(&info) == 0) {
                info.channels = 1;
            }
            const std::string path = work / "seed";
            SNDFILE* file =
                sf_format_check(&info) != 0 ? sf_open(path.c_str(), SFM_WRITE, &info) : nullptr;
            if (file == nullptr) {
                continue;
            }
            sf_set_string(file, SF_STR_TITLE, "seed");
            sf_writef_float(file, values.data(), kFrames);
            sf_close(file);
            kel::test::WriteFile((directory / std::to_string(info.format)).string(),
                                 kSourcePrefix + kel::test::ReadFile(path));
        }
    }
    kel::test::WriteFile((directory / "nothing").string(), kSourcePrefix);
}

// A file with all the metadata that libsndfile can write. The byte before a file selects its use.
void WriteMetadataSeed(const fs::path& directory, int format) {
    const kel::test::TemporaryDirectory work;
    const std::string path = work / "seed";
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = 48000;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        return;
    }
    for (const int string : {SF_STR_TITLE, SF_STR_ARTIST, SF_STR_COMMENT, SF_STR_GENRE}) {
        sf_set_string(file, string, "17 \xC3\xA9");
    }
    SF_BROADCAST_INFO broadcast{};
    broadcast.version = 2;
    broadcast.time_reference_high = 1;
    sf_command(file, SFC_SET_BROADCAST_INFO, &broadcast, sizeof broadcast);
    SF_CUES cues{};
    cues.cue_count = 2;
    cues.cue_points[0].indx = 1;
    cues.cue_points[1].indx = 2;
    cues.cue_points[1].sample_offset = 10;
    sf_command(file, SFC_SET_CUE, &cues, sizeof cues);
    const std::vector<float> values(960, 0.25F);
    sf_writef_float(file, values.data(), 960);
    sf_close(file);
    kel::test::WriteFile((directory / std::to_string(format)).string(),
                         std::string(1, '\0') + kel::test::ReadFile(path));
}

// Chunks that libsndfile does not write, and metadata.
std::vector<std::string> MetadataSeeds() {
    const std::string id3("ID3\3\0\0\0\0\0\x3DTIT2\0\0\0\5\0\0\1\xFF\xFE"
                          "a\0COMM\0\0\0\7\0\0\0engx\0yTXXX"
                          "\0\0\0\4\0\0\3a\0bTCON\0\0\0\5\0\0\0(17)",
                          71);
    const std::string labels("adtllabl\6\0\0\0\1\0\0\0A\0note\6\0\0\0\1\0\0\0B\0ltxt\x14\0\0\0\1\0"
                             "\0\0\5\0\0\0rgn \0\0\0\0\0\0\0\0",
                             60);
    const std::string cue("cue \x1C\0\0\0\1\0\0\0\1\0\0\0\2\0\0\0data\0\0\0\0\0\0\0\0\2\0\0\0", 36);
    const std::string aiff("FORM\0\0\0\x60"
                           "AIFFNAME\0\0\0\2abMARK\0\0\0\x0C\0\1\0\1\0\0\0\5\3odd"
                           "COMT\0\0\0\x0C\0\1\0\0\0\0\0\1\0\2hiID3 \0\0\0\x47",
                           70);
    const std::string carried("FORM\0\0\0\x36"
                              "AIFFAPPL\0\0\0\x10kelWiXML\4\0\0\0<a/>"
                              "APPL\0\0\0\x11kelWLIST\5\0\0\0mineA\0",
                              62);
    const std::string caf(
        "caff\0\1\0\0mark\0\0\0\0\0\0\0\x24\0\0\0\0\0\0\0\1\0\0\0\0\x40\x59\0\0\0\0"
        "\0\0\0\0\0\7\0\0\0\0\0\0\0\0\0\0\0\0strg\0\0\0\0\0\0\0\x13\0\0\0\1"
        "\0\0\0\7\0\0\0\0\0\0\0\0ab\0",
        87);
    const std::string svx("FORM\0\0\0\x2A"
                          "8SVXVHDR\0\0\0\x14\0\0\0\4\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0"
                          "ANNO\0\0\0\2hi",
                          50);
    const std::string ircam("\x64\xA3\1\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0\6\0hi\7\0\5\0x", 27);
    const std::string mp3 = id3 + "\xFF\xFB\x90TAG" + std::string(125, 'x');
    const std::string zero(1, '\0');
    return {zero + "RIFF\x80" + std::string(3, '\0') + "WAVE" + cue + "LIST\x3C" +
                std::string(3, '\0') + labels + "id3 \x47" + std::string(3, '\0') + id3,
            zero + aiff + id3,
            zero + carried,
            zero + mp3,
            zero + mp3 + "LYRICSBEGIN000005LYRICS200",
            zero + caf,
            zero + svx,
            zero + ircam,
            zero + "NIST_1A\n   1024\nspeaker_id -s3 mjw\nend_head\n",
            zero + "2BITname" + std::string(52, '\1') + "text",
            zero + "Extended Instrument: name" + std::string(313, '\1'),
            zero + ".snd" + std::string("\0\0\0\x20", 4) + std::string(16, '\0') + "hi",
            "\1\5title\6artist\3\xE9 c" + std::string(40, '\2')};
}

void WriteSeeds(const fs::path& directory, const std::vector<std::string>& contents) {
    for (std::size_t i = 0; i < contents.size(); ++i) {
        kel::test::WriteFile((directory / std::to_string(i)).string(), contents[i]);
    }
}

std::vector<std::string> SinkSeeds() {
    std::vector<std::string> seeds;
    for (char type = 0; type < 3; ++type) {
        for (int choice = 0; choice < 64; choice += 3) {
            for (char endianness = 1; endianness < 3; ++endianness) {
                seeds.push_back({type, type, static_cast<char>(choice), endianness, 2, 3, 24, 'a',
                                 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'});
            }
        }
    }
    return seeds;
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 2) {
            std::cerr << "usage: MakeSeeds DIRECTORY\n";
            return 2;
        }
        const fs::path directory = argv[1];
        for (const char* target :
             {"Source", "Sink", "Text", "Parameters", "Registry", "Metadata", "MetadataCopy"}) {
            fs::create_directories(directory / target);
        }
        WriteSourceSeeds(directory / "Source");
        WriteSeeds(directory / "Sink", SinkSeeds());
        WriteSeeds(directory / "Text",
                   {"take.wav", "/directory/t\xC3\xA4ke.wav", "\xED\xA0\x80\xFF/\x80",
                    "\xF0\x9F\x8E\xB5", std::string("a\0\0\0/\0\0\0b\0\0\0", 12),
                    std::string("\x80\xDC\0\0", 4)});
        WriteSeeds(directory / "Parameters",
                   {std::string("\3\1\0\0\1\1\1\1\4text\1\2\2\1\0\0\7\1\1\1\2hi\1\1\3", 27)});
        WriteSeeds(directory / "Registry",
                   {std::string("\0\1\0\0\0\1\1\0\0\0\1\0\2\1\1\0\0\0\1", 19)});
        for (const int format :
             {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_RF64 | SF_FORMAT_PCM_16,
              SF_FORMAT_W64 | SF_FORMAT_PCM_16, SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
              SF_FORMAT_CAF | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
              SF_FORMAT_OGG | SF_FORMAT_VORBIS, SF_FORMAT_OGG | SF_FORMAT_OPUS,
              SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}) {
            WriteMetadataSeed(directory / "Metadata", format);
            WriteMetadataSeed(directory / "MetadataCopy", format);
        }
        WriteSeeds(directory / "Metadata", MetadataSeeds());
        // Into another container: RF64; AIFF, of other channels; a part, into WAVE and AIFF.
        std::vector<std::string> copies;
        for (const std::string start : {"\1", "\6", "\x08\1\5", "\x0A\1\5"}) {
            for (const std::string& seed : MetadataSeeds()) {
                copies.push_back(start + seed.substr(1));
            }
        }
        WriteSeeds(directory / "MetadataCopy", copies);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
