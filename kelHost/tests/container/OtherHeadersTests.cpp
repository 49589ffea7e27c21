#include "container/OtherHeaders.h"

#include "AudioFiles.h"
#include "HeaderFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using test::BigEndian;
using test::MakeSamples;
using test::MakeSizedCAF;

// A header in words.
std::string DescribeOther(const std::string& bytes) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    const auto header = ReadInputHeader(directory / "take");
    if (!header.has_value()) {
        return "unknown";
    }
    std::string text = header->container + ", " + std::to_string(header->SampleBytes()) +
                       " bytes, " + std::to_string(header->FrameBytes()) + " per frame";
    text += header->declaresLength ? "" : ", unknown";
    text += header->truncation.has_value() ? ", " + DescribeCounts(*header->truncation) : "";
    text += header->isRepairable ? ", repairable" : "";
    return text + (header->Obstacle().empty() ? "" : ": " + header->Obstacle());
}

std::string NISTOf(const std::string& fields, const std::string& size = "   1024") {
    std::string lines = "NIST_1A\n" + size + "\nchannel_count -i 1\n" + fields + "end_head\n";
    lines.resize(1024, ' ');
    return lines + MakeSamples();
}

std::string SVXOf(const std::string& kind, std::uint64_t size, const std::string& before = "") {
    return "FORM" + BigEndian(0, 4) + kind + before + "BODY" + BigEndian(size, 4) + MakeSamples();
}

std::string WVEOf(std::uint64_t size) {
    return "ALawSoundFile**" + std::string(1, '\0') + BigEndian(0x0F10, 2) + BigEndian(size, 4) +
           std::string(10, '\0') + MakeSamples();
}

struct OtherCase {
    std::string name;
    std::string bytes;
    std::string text;
};

class OtherJudgement : public testing::TestWithParam<OtherCase> {};

std::vector<OtherCase> OtherCases() {
    const std::string count = "sample_count -i ";
    const std::string width = "\nsample_n_bytes -i 2\n";
    const std::string cut = "0 bytes, 0 per frame, declares 200 frames and contains 100";
    return {
        {"CAF", MakeSizedCAF(204), "CAF, 200 bytes, 2 per frame, repairable"},
        {"CAFWithTooLargeSize", MakeSizedCAF(404),
         "CAF, 200 bytes, 2 per frame, declares 200 frames and contains 100, repairable: it "
         "declares 200 frames and contains 100"},
        {"CAFWithTooSmallSize", MakeSizedCAF(104), "CAF, 100 bytes, 2 per frame, repairable"},
        {"CAFWithUnknownSize", MakeSizedCAF(~std::uint64_t{0}),
         "CAF, 200 bytes, 2 per frame, unknown, repairable: it does not declare the size of its "
         "samples"},
        {"CAFWithSizeBelowTheCountOfEdits", MakeSizedCAF(3),
         "CAF, 0 bytes, 2 per frame, repairable"},
        {"CAFWithTooLargeSizeOfPaddedFrames", MakeSizedCAF(404, BigEndian(24, 4)),
         "CAF, 200 bytes, 0 per frame, declares 400 bytes and contains 200, repairable: it "
         "declares 400 bytes and contains 200"},
        {"CAFWithoutSamples", MakeSizedCAF(204).substr(0, 52), "unknown"},
        {"CAFWithTooLargeDescription", MakeSizedCAF(204).replace(19, 1, "\xFF"), "unknown"},
        {"NIST", NISTOf(count + "100" + width), "NIST SPHERE, 200 bytes, 2 per frame"},
        {"NISTWithTooLargeCount", NISTOf(count + "200" + width), "NIST SPHERE, " + cut},
        {"NISTWithTooSmallCount", NISTOf(count + "50" + width),
         "NIST SPHERE, 100 bytes, 2 per frame"},
        {"NISTWithoutCount", NISTOf(width.substr(1)), "unknown"},
        {"NISTWithCountThatIsNoNumber", NISTOf(count + "many" + width), "unknown"},
        {"NISTWithSizeThatIsNoNumber", NISTOf(count + "100" + width, "       "), "unknown"},
        {"SVX", SVXOf("8SVX", 200), "8SVX, 200 bytes, 1 per frame"},
        {"SVXWithTooLargeSize", SVXOf("16SV", 400), "8SVX, " + cut},
        {"SVXWithTooLargeSizeOfChannels",
         SVXOf("8SVX", 400, "CHAN" + BigEndian(4, 4) + BigEndian(6, 4)),
         "8SVX, 0 bytes, 0 per frame, declares 400 bytes and contains 200"},
        {"SVXWithoutSamples", SVXOf("8SVX", 200).substr(0, 12), "unknown"},
        {"WVE", WVEOf(200), "WVE, 200 bytes, 1 per frame"},
        {"WVEWithTooLargeSize", WVEOf(400),
         "WVE, 0 bytes, 0 per frame, declares 400 frames and contains 200"},
    };
}

} // namespace

TEST_P(OtherJudgement, ComparesTheSizesWithTheFile) {
    EXPECT_EQ(DescribeOther(GetParam().bytes), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(OtherHeaders, OtherJudgement, testing::ValuesIn(OtherCases()),
                         [](const auto& one) { return one.param.name; });

} // namespace kel::host
