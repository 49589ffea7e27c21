// Pushes arbitrary bytes with an arbitrary description into the sink: a refused input leaves no
// file, and libsndfile reads back the bytes of an accepted one.

#include "Fuzz.h"

#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <sndfile.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace kel;
using fuzz::Input;

const char* const kTypes[] = {"WAVE", "BWAVE", "AIFF", "RAW", "Unknown"};
const char* const kNames[] = {"take.wav", "take.rf64", "take.aiff", "take.raw", "take"};

// Mostly near a valid layout: the first check refuses most others.
test::Layout MakeLayout(Input& input) {
    constexpr std::uint8_t kBytes[] = {2, 3, 4, 8};
    test::Layout layout;
    const std::uint8_t choice = input.Byte();
    layout.type = static_cast<AudioPCMType>(choice % 16 == 15 ? input.Byte() : choice % 2 + 1);
    layout.bytes = choice % 16 == 14 ? input.Byte() : kBytes[choice / 16 % 4];
    layout.bits = choice % 16 == 13 ? input.Byte() : static_cast<std::uint8_t>(layout.bytes * 8);
    layout.endianness = static_cast<PCMEndianness>(input.Byte() % 3);
    layout.muxing = static_cast<PCMMuxing>(input.Byte() % 5);
    layout.rate = choice % 16 == 12 ? input.Word() : 48000;
    layout.channels = choice % 16 == 11 ? input.Word() : input.Byte() % 40U;
    return layout;
}

std::string ReadBack(const std::string& path, std::size_t bytes) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    KEL_FUZZ_REQUIRE(file != nullptr);
    std::string content(bytes, '\0');
    const sf_count_t count =
        sf_read_raw(file, content.data(), static_cast<sf_count_t>(content.size()));
    sf_close(file);
    KEL_FUZZ_REQUIRE(count == static_cast<sf_count_t>(bytes));
    return content;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    static const test::TemporaryDirectory directory(test::DirectoryPlace::Memory);
    Input input(data, size);
    const std::string path = directory / kNames[input.Byte() % 5];
    auto settings = test::MakeSinkSettings();
    settings->SetStringValue("FilePath", path);
    const auto sink = test::MakeSink(kTypes[input.Byte() % 5]);
    sink->SetInitConfig(settings);
    const test::Layout layout = MakeLayout(input);

    const auto description = test::MakeInput(layout);
    bool isAccepted = false;
    const bool cannotSay = fuzz::Refuses([&] {
        isAccepted = sink->CheckInputAndAdaptIfNecessary(description, "")->GetErrorType() == 0;
    });
    const bool refused = fuzz::Refuses([&] { sink->DefineInput(description, ""); });
    KEL_FUZZ_REQUIRE(refused || (isAccepted && !cannotSay));
    if (refused) {
        // An empty file remains if libsndfile refuses a format only after it has created the file.
        KEL_FUZZ_REQUIRE(isAccepted || !std::filesystem::exists(path));
        std::filesystem::remove(path);
        return 0;
    }
    const std::size_t frame = std::size_t{layout.bytes} * layout.channels;
    std::string pushed;
    while (!input.IsAtEnd()) {
        const std::string bytes = input.Text(input.Byte());
        sink->PushSample(test::MakeContainer(bytes));
        // libsndfile writes no bytes that end within a frame.
        if (bytes.size() % frame == 0) {
            pushed += bytes;
        }
    }
    sink->Close(false);
    // libsndfile may refuse to read a file without frames.
    if (!pushed.empty()) {
        KEL_FUZZ_REQUIRE(ReadBack(path, pushed.size()) == pushed);
    }
    std::filesystem::remove(path);
    return 0;
}
