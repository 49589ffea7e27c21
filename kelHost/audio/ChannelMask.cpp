#include "audio/ChannelMask.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace kel::host {

namespace {

bool AreAllInOrder(std::uint32_t channels, const std::vector<std::uint32_t>& picked) {
    for (std::size_t i = 0; i < picked.size(); ++i) {
        if (picked[i] != i) {
            return false;
        }
    }
    return picked.empty() || picked.size() == channels;
}

// The speaker of each channel that has one.
std::vector<std::uint32_t> SpeakersIn(std::uint32_t mask) {
    std::vector<std::uint32_t> speakers;
    for (std::uint32_t bit = 1; bit != 0; bit <<= 1U) {
        if ((mask & bit) != 0) {
            speakers.push_back(bit);
        }
    }
    return speakers;
}

} // namespace

std::uint32_t PickSpeakers(std::uint32_t mask, std::uint32_t channels,
                           const std::vector<std::uint32_t>& picked) {
    if (AreAllInOrder(channels, picked)) {
        return mask;
    }
    return PickSpeakers(SpeakersIn(mask), picked);
}

std::uint32_t PickSpeakers(const std::vector<std::uint32_t>& speakers,
                           const std::vector<std::uint32_t>& picked) {
    std::uint32_t result = 0;
    for (const std::uint32_t channel : picked) {
        const std::uint32_t speaker = channel < speakers.size() ? speakers[channel] : 0;
        if (speaker <= result) {
            return 0; // none, a repeated one, or another order
        }
        result |= speaker;
    }
    return result;
}

std::vector<std::uint32_t> OrderBySpeakers(const std::vector<std::uint32_t>& speakers) {
    std::vector<std::uint32_t> channels(speakers.size());
    std::iota(channels.begin(), channels.end(), 0U);
    std::sort(channels.begin(), channels.end(),
              [&](std::uint32_t a, std::uint32_t b) { return speakers[a] < speakers[b]; });
    return PickSpeakers(speakers, channels) != 0 ? channels : std::vector<std::uint32_t>{};
}

} // namespace kel::host
