#include "analysis/Loudness.h"

#include "base/LoadedLibrary.h"

#include <ebur128.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <vector>

namespace kel::host {

namespace {

struct EBUR128Library {
    LoadedLibrary library{"libebur128.so.1", "libebur128-1"};
    KEL_LIBRARY_FUNCTION(ebur128_add_frames_float);
    KEL_LIBRARY_FUNCTION(ebur128_destroy);
    KEL_LIBRARY_FUNCTION(ebur128_init);
    KEL_LIBRARY_FUNCTION(ebur128_loudness_global);
    KEL_LIBRARY_FUNCTION(ebur128_loudness_range);
    KEL_LIBRARY_FUNCTION(ebur128_set_channel);
};

const EBUR128Library& Library() {
    static const EBUR128Library library;
    return library;
}

// Returns a type of libebur128 with this weight.
int ChannelType(LoudnessWeight weight) {
    switch (weight) {
    case LoudnessWeight::None:
        return EBUR128_UNUSED;
    case LoudnessWeight::Full:
        return EBUR128_CENTER;
    case LoudnessWeight::Surround:
        return EBUR128_LEFT_SURROUND;
    }
    return EBUR128_UNUSED;
}

} // namespace

// The meter of the library; null where loudness is not defined.
class LoudnessMeter::State {
public:
    State(const std::vector<LoudnessWeight>& weights, std::uint32_t rate)
        : m_handle(Library().ebur128_init(static_cast<unsigned>(weights.size()), rate,
                                          EBUR128_MODE_I | EBUR128_MODE_LRA)) {
        for (unsigned channel = 0; m_handle != nullptr && channel < weights.size(); ++channel) {
            Library().ebur128_set_channel(m_handle, channel, ChannelType(weights[channel]));
        }
    }

    ~State() {
        if (m_handle != nullptr) {
            Library().ebur128_destroy(&m_handle);
        }
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    ebur128_state* Handle() const { return m_handle; }

private:
    ebur128_state* m_handle;
};

LoudnessMeter::LoudnessMeter(const std::vector<LoudnessWeight>& weights, std::uint32_t rate)
    : m_state(std::make_unique<State>(weights, rate)) {}

LoudnessMeter::~LoudnessMeter() = default;

void LoudnessMeter::Add(const FloatView& floats) {
    ebur128_state* const state = m_state->Handle();
    if (state == nullptr) {
        return;
    }
    m_values.assign(floats.values, floats.values + floats.count);
    for (float& value : m_values) {
        value = std::isfinite(value) ? value : 0.0F;
    }
    const std::size_t frames = floats.count / state->channels;
    if (Library().ebur128_add_frames_float(state, m_values.data(), frames) != EBUR128_SUCCESS) {
        throw std::bad_alloc();
    }
    m_frames += frames;
}

std::optional<double> LoudnessMeter::Integrated() const {
    double integrated = 0;
    if (m_state->Handle() == nullptr ||
        Library().ebur128_loudness_global(m_state->Handle(), &integrated) != EBUR128_SUCCESS ||
        !std::isfinite(integrated)) {
        return std::nullopt;
    }
    return integrated;
}

std::optional<double> LoudnessMeter::Range() const {
    // The range is measured over 3 s; the library returns 0 for less, and for silence.
    constexpr std::uint64_t kRangeSeconds = 3;
    double range = 0;
    if (!Integrated().has_value() || m_frames < kRangeSeconds * m_state->Handle()->samplerate ||
        Library().ebur128_loudness_range(m_state->Handle(), &range) != EBUR128_SUCCESS) {
        return std::nullopt;
    }
    return range;
}

} // namespace kel::host
