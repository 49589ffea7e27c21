#include "container/Recognition.h"

#include "audio/Formats.h"
#include "container/HeaderReader.h"
#include "container/SndfileLibrary.h"
#include "container/StoredText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

namespace {

// Extensions of the formats that libsndfile reads.
constexpr std::array<std::string_view, 36> kExtensions{
    ".aif", ".aifc", ".aiff", ".au",  ".avr", ".bw64", ".bwf",  ".caf", ".flac",
    ".htk", ".iff",  ".m1a",  ".mat", ".mp2", ".mp3",  ".mpa",  ".mpc", ".nist",
    ".oga", ".ogg",  ".opus", ".paf", ".pvf", ".raw",  ".rf64", ".sd2", ".sds",
    ".sf",  ".snd",  ".spx",  ".svx", ".voc", ".w64",  ".wav",  ".wve", ".xi"};

// Beginnings of formats without which libsndfile does not look further.
constexpr std::array<std::string_view, 4> kBeginnings{"fLaC", "OggS", "caff", "ID3"};

constexpr std::string_view kAppleDouble{"\x00\x05\x16\x07", 4};

// Returns true when the text begins so.
bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

} // namespace

bool HasAudioExtension(std::string_view path) {
    const std::string extension = LowerCase(std::filesystem::path(path).extension().string());
    return ContainerByExtension(path) != nullptr ||
           std::find(kExtensions.begin(), kExtensions.end(), extension) != kExtensions.end();
}

bool IsUnrecognised(const FileName& file, std::string_view failure) {
    if (failure.find(Sndfile().sf_error_number(SF_ERR_UNRECOGNISED_FORMAT)) ==
        std::string_view::npos) {
        return false;
    }
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return false;
    }
    constexpr std::size_t kLongest = 4;
    const HeaderReader reader(file, std::move(input->descriptor), "cannot read its header");
    const std::string bytes = reader.Bytes(0, kLongest);
    if (bytes == kAppleDouble) {
        return true;
    }
    return !HasAudioExtension(file.shown) &&
           std::none_of(kBeginnings.begin(), kBeginnings.end(),
                        [&](std::string_view beginning) { return StartsWith(bytes, beginning); });
}

} // namespace kel::host
