// The simplest copy with libsndfile: one loop and one thread that read and write blocks of 16384
// frames of floats. kelhost is compared with it.
//
// BareCopy INPUT OUTPUT wavex|rf64

#include <cstdio>
#include <cstring>
#include <sndfile.h>
#include <vector>

int main(int argc, char** argv) {
    constexpr sf_count_t kBlockFrames = 16384;
    if (argc != 4) {
        std::fprintf(stderr, "usage: BareCopy INPUT OUTPUT wavex|rf64\n");
        return 2;
    }
    SF_INFO info{};
    SNDFILE* input = sf_open(argv[1], SFM_READ, &info);
    if (input == nullptr) {
        std::fprintf(stderr, "%s: %s\n", argv[1], sf_strerror(nullptr));
        return 1;
    }
    SF_INFO outputInfo{};
    outputInfo.samplerate = info.samplerate;
    outputInfo.channels = info.channels;
    outputInfo.format =
        (std::strcmp(argv[3], "rf64") == 0 ? SF_FORMAT_RF64 : SF_FORMAT_WAVEX) | SF_FORMAT_FLOAT;
    SNDFILE* output = sf_open(argv[2], SFM_WRITE, &outputInfo);
    if (output == nullptr) {
        std::fprintf(stderr, "%s: %s\n", argv[2], sf_strerror(nullptr));
        return 1;
    }
    std::vector<float> values(static_cast<std::size_t>(kBlockFrames * info.channels));
    while (const sf_count_t frames = sf_readf_float(input, values.data(), kBlockFrames)) {
        const sf_count_t bytes = frames * info.channels * static_cast<sf_count_t>(sizeof(float));
        if (sf_write_raw(output, values.data(), bytes) != bytes) {
            std::fprintf(stderr, "%s: short write\n", argv[2]);
            return 1;
        }
    }
    sf_close(input);
    return sf_close(output) == 0 ? 0 : 1;
}
