// Channels of files with an order other than that of WAVE.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>
#include <sys/stat.h>
#include <vector>

// The leak checker looks for this name in the program. libvorbis loses memory when an encoder of
// several channels is set up; kelhost encodes nothing.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:vorbis_encode_setup_init\n";
}

namespace kel::test {

namespace {

// Constant levels: of 0.1 in the first channel, 0.2 in the second, and so on.
std::vector<float> Levels(std::size_t channels) {
    std::vector<float> values;
    for (std::size_t i = 0; i < 48000 * channels; ++i) {
        values.push_back(0.1F * static_cast<float>(i % channels + 1));
    }
    return values;
}

// The levels in the middle of a file, in tenths.
std::vector<int> TenthsIn(const std::string& path) {
    const Audio audio = ReadAudio(path);
    const auto channels = static_cast<std::size_t>(audio.channels);
    std::vector<int> tenths;
    for (std::size_t channel = 0; channel < channels; ++channel) {
        tenths.push_back(
            static_cast<int>(std::lround(audio.values[24000 * channels + channel] * 10)));
    }
    return tenths;
}

} // namespace

TEST(CopyChannelOrder, IsThatOfWAVEForVorbis) {
    struct Row {
        std::size_t channels;
        Arguments options;
        std::vector<int> tenths;
    };
    for (const Row& row : {
             Row{3, {}, {1, 3, 2}},
             Row{6, {}, {1, 3, 2, 6, 4, 5}},
             Row{6, {"--end", "40000f"}, {1, 3, 2, 6, 4, 5}}, // within a sample
             Row{6, {"--channels", "3,4"}, {2, 6}},           // the centre and the low frequencies
             Row{8, {}, {1, 3, 2, 8, 6, 7, 4, 5}},
             Row{9, {}, {1, 2, 3, 4, 5, 6, 7, 8, 9}},
         }) {
        SCOPED_TRACE(testing::Message() << row.channels << testing::PrintToString(row.options));
        const TemporaryDirectory directory;
        WriteAudio(directory / "take.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS,
                   static_cast<int>(row.channels), 48000, Levels(row.channels));
        ExpectResult(
            RunKelhost(directory, Arguments{"copy", "take.ogg", "copy.wav", "--quiet", "--verify"} +
                                      row.options),
            0, "", "");
        EXPECT_EQ(TenthsIn(directory / "copy.wav"), row.tenths);
    }
}

} // namespace kel::test
