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
        for (const char* target : {"Source", "Sink", "Text", "Parameters", "Registry"}) {
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
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
