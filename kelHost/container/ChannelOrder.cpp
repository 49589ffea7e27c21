#include "container/ChannelOrder.h"

#include "container/HeaderReader.h"
#include "container/OggStreams.h"

#include <string>
#include <utility>

namespace kel::host {

namespace {

// The channels of the header packet at an offset; none for other packets.
std::optional<OggChannels> ChannelsIn(const HeaderReader& header, std::uint64_t packet) {
    constexpr std::uint64_t kFamily = 18;
    if (header.Name(packet) == "Opus" && header.Name(packet + 4) == "Head") {
        return OggChannels{true, static_cast<std::uint32_t>(header.Number(packet + kFamily, 1))};
    }
    if (header.Name(packet) == "\x01vor" && header.Name(packet + 3) == "rbis") {
        return OggChannels{};
    }
    return std::nullopt;
}

} // namespace

std::optional<OggChannels> ReadOggChannels(const FileName& file) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        return std::nullopt;
    }
    const HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
    // The first pages contain one header of each stream. Few files have more than one.
    constexpr int kMaxStreams = 16;
    auto page = ReadOggPage(header, 0);
    for (int stream = 0; stream < kMaxStreams && page.has_value(); ++stream) {
        if (const auto channels = ChannelsIn(header, page->content); channels.has_value()) {
            return channels;
        }
        page = ReadOggPage(header, page->end);
    }
    return std::nullopt;
}

std::vector<std::uint32_t> ReadChannelOrder(const FileName& file, std::uint32_t channels) {
    // Left, centre, right, then the sides and the rear, then the low frequencies.
    static const std::vector<std::vector<std::uint32_t>> orders{
        {0, 2, 1},                 // FL FR FC
        {},                        // FL FR BL BR
        {0, 2, 1, 3, 4},           // FL FR FC BL BR
        {0, 2, 1, 5, 3, 4},        // FL FR FC LFE BL BR
        {0, 2, 1, 6, 5, 3, 4},     // FL FR FC LFE BC SL SR
        {0, 2, 1, 7, 5, 6, 3, 4}}; // FL FR FC LFE BL BR SL SR
    constexpr std::uint32_t kFirst = 3;
    if (channels < kFirst || channels - kFirst >= orders.size()) {
        return {};
    }
    const auto declared = ReadOggChannels(file);
    return declared.has_value() && declared->HasVorbisLayout() ? orders[channels - kFirst]
                                                               : std::vector<std::uint32_t>{};
}

} // namespace kel::host
