/// Pseudo-random sample values, and the bit patterns of floats.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace kel::test {

/// The same noise in every run, over all 2^32 patterns.
inline std::vector<std::uint32_t> MakeNoise(std::size_t count, std::uint32_t seed = 1) {
    std::mt19937 generator(seed);
    std::vector<std::uint32_t> noise(count);
    for (std::uint32_t& value : noise) {
        value = static_cast<std::uint32_t>(generator());
    }
    return noise;
}

/// The same bits as values of another type of the same size.
template <typename To, typename From>
std::vector<To> CopyBits(const std::vector<From>& from) {
    static_assert(sizeof(To) == sizeof(From));
    std::vector<To> to(from.size());
    if (!from.empty()) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(From));
    }
    return to;
}

/// The bit patterns of floats: NaN equals no number, but its bits equal themselves.
inline std::vector<std::uint32_t> BitsOf(const std::vector<float>& values) {
    return CopyBits<std::uint32_t>(values);
}

/// The floats of bit patterns.
inline std::vector<float> FloatsOf(const std::vector<std::uint32_t>& bits) {
    return CopyBits<float>(bits);
}

} // namespace kel::test
