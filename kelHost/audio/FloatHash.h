/// A hash of sample values, or of bytes.
#pragma once

#include "audio/Samples.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace kel::host {

/// A running hash (XXH3) of floats, bit for bit. One thread at a time.
class FloatHash {
public:
    FloatHash();
    ~FloatHash();
    FloatHash(const FloatHash&) = delete;
    FloatHash& operator=(const FloatHash&) = delete;

    /// Adds the values that follow those added before.
    void Add(const FloatView& floats);

    /// Adds bytes.
    void Add(std::string_view bytes);

    /// The hash of all values so far.
    std::uint64_t Value() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace kel::host
