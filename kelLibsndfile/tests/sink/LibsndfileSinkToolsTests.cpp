// The files that a sink writes, as other audio tools read them.

#include "Combinations.h"

#include <Process.h>
#include <TemporaryDirectory.h>

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kel::test {
namespace {

// The samples alone, without dither, in the layout that was written. What sox only warns of is kept
// out of its errors: it expects a part of the header that the extensible form does not have.
Command SoxCommand(const std::string& path, const Layout& layout) {
    Command command;
    command.program = KEL_TEST_SOX;
    command.arguments = {
        "-V1", "-D",
        path,  "-t",
        "raw", layout.endianness == PCMEndianness::Little ? "-L" : "-B",
        "-e",  layout.type == AudioPCMType::Integer ? "signed-integer" : "floating-point",
        "-b",  std::to_string(layout.bits),
        "-"};
    return command;
}

Command FFmpegCommand(const std::string& path, const Layout& layout) {
    const std::string format = (layout.type == AudioPCMType::Integer ? "s" : "f") +
                               std::to_string(layout.bits) +
                               (layout.endianness == PCMEndianness::Little ? "le" : "be");
    Command command;
    command.program = KEL_TEST_FFMPEG;
    command.arguments = {"-v", "error", "-nostdin", "-i", path, "-f", format, "-"};
    return command;
}

template <typename MakeCommand>
void ExpectSameAudio(const Combination& combination, MakeCommand makeCommand) {
    for (const std::uint32_t channels : kChannelCounts) {
        SCOPED_TRACE(std::to_string(channels) + " channels");
        const TemporaryDirectory directory;
        const std::string path =
            directory / (combination.type == "AIFF" ? "take.aiff" : "take.wav");
        const Layout layout = WithChannels(combination.layout, channels);
        const std::string bytes = Encode(MakeValues(layout, std::size_t{2000} * channels), layout);
        WriteThroughSink(path, combination.type, layout, bytes);
        const ProcessResult result = RunCommand(makeCommand(path, layout));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, bytes);
    }
}

std::vector<Combination> Writable(bool (*wanted)(const Combination&)) {
    std::vector<Combination> combinations;
    for (const Combination& combination : WritableCombinations()) {
        if (combination.type != "AIFF" || wanted(combination)) {
            combinations.push_back(combination);
        }
    }
    return combinations;
}

class LibsndfileSinkFileInSox : public ::testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSinkFileInSox, IsTheSameAudio) {
    ExpectSameAudio(GetParam(), SoxCommand);
}

// Of AIFF-C, sox knows the forms with 16 bits.
INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFileInSox,
                         ::testing::ValuesIn(Writable([](const Combination& aiff) {
                             return aiff.layout.bits == 16;
                         })),
                         NameOf);

class LibsndfileSinkFileInFFmpeg : public ::testing::TestWithParam<Combination> {};

TEST_P(LibsndfileSinkFileInFFmpeg, IsTheSameAudio) {
    ExpectSameAudio(GetParam(), FFmpegCommand);
}

// Of AIFF-C, ffmpeg knows the forms with 16 bits and the others in big-endian order.
INSTANTIATE_TEST_SUITE_P(Of, LibsndfileSinkFileInFFmpeg,
                         ::testing::ValuesIn(Writable([](const Combination& aiff) {
                             return aiff.layout.bits == 16 ||
                                    aiff.layout.endianness == PCMEndianness::Big;
                         })),
                         NameOf);

} // namespace
} // namespace kel::test
