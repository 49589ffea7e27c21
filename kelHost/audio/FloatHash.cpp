#include "audio/FloatHash.h"

#define XXH_INLINE_ALL // no library to load; and the state is a member, whose allocation cannot
                       // fail
#include <xxhash.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace kel::host {

struct FloatHash::State {
    XXH3_state_t hash;
};

FloatHash::FloatHash() : m_state(std::make_unique<State>()) {
    XXH3_64bits_reset(&m_state->hash);
}

FloatHash::~FloatHash() = default;

void FloatHash::Add(const FloatView& floats) {
    XXH3_64bits_update(&m_state->hash, floats.values, floats.count * sizeof(float));
}

void FloatHash::Add(std::string_view bytes) {
    XXH3_64bits_update(&m_state->hash, bytes.data(), bytes.size());
}

std::uint64_t FloatHash::Value() const {
    return XXH3_64bits_digest(&m_state->hash);
}

} // namespace kel::host
