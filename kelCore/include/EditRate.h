/// A rational rate in edit units per second, and the rates that video work uses most.
///
/// A small value type: pass it by value, share it between threads as any other value.
#pragma once

#include "Checks.h"

#include <cstdint>

namespace kel {

/// A rate in edit units per second, numerator over denominator. For audio the rate is the sample
/// rate in hertz over 1, so that one edit unit is one frame.
struct EditRate {
    /// The null rate 0/0.
    constexpr EditRate() = default;

    /// The rate @p unitsPerSecond / @p divisor. A zero divisor is accepted here; CheckDenominator
    /// refuses it where the rate is used for arithmetic.
    constexpr EditRate(std::uint32_t unitsPerSecond, std::uint32_t divisor)
        : numerator(unitsPerSecond), denominator(divisor) {}

    std::uint32_t numerator = 0;   ///< edit units in as many seconds as the denominator says
    std::uint32_t denominator = 0; ///< seconds; 0 in the null rate

    /// Returns quietly when the denominator is not 0. A numerator of 0 is allowed.
    /// @throws KELRuntimeError with "denominator is 0" after one record at level Error. Written in
    /// the header so that every caller has it without a call into the library.
    void CheckDenominator() const { KEL_CHECK_NOT_EQUAL(denominator, 0U, "denominator is 0"); }
};

/// True when both parts agree: 96000/2 and 48000/1 are not the same by this comparison.
constexpr bool operator==(const EditRate& left, const EditRate& right) {
    return left.numerator == right.numerator && left.denominator == right.denominator;
}

/// The opposite of operator==.
constexpr bool operator!=(const EditRate& left, const EditRate& right) {
    return !(left == right);
}

// Each source file that includes this header has its own copies.
constexpr EditRate kEditRateNull{0, 0};          ///< no rate at all
constexpr EditRate kEditRate23_976{23976, 1000}; ///< 23.976 edit units per second
constexpr EditRate kEditRate24{24, 1};           ///< 24 edit units per second
constexpr EditRate kEditRate25{25, 1};           ///< 25 edit units per second
constexpr EditRate kEditRate29_97{2997, 100};    ///< 29.97 edit units per second
constexpr EditRate kEditRate50{50, 1};           ///< 50 edit units per second
constexpr EditRate kEditRate59_94{5994, 100};    ///< 59.94 edit units per second

} // namespace kel
