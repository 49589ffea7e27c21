/// A rational rate in edit units per second, and the rates that video work uses most.
/// A small value type: pass it by value; any thread may use its own copy.
/// @ingroup time
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

    std::uint32_t numerator = 0;   ///< edit units in as many seconds as the denominator
    std::uint32_t denominator = 0; ///< seconds; 0 in the null rate

    /// Returns without a record when the denominator is not 0. A numerator of 0 is allowed. Defined
    /// in the header so that no caller needs a call into the library.
    /// @throws KELRuntimeError with "denominator is 0" after one record at level Error
    void CheckDenominator() const { KEL_CHECK_NOT_EQUAL(denominator, 0U, "denominator is 0"); }
};

/// Returns true when both numbers are equal: 96000/2 and 48000/1 are different by this comparison.
constexpr bool operator==(const EditRate& left, const EditRate& right) {
    return left.numerator == right.numerator && left.denominator == right.denominator;
}

/// Returns the opposite of operator==.
constexpr bool operator!=(const EditRate& left, const EditRate& right) {
    return !(left == right);
}

// Intentional: each source file that includes this header has its own copies, so that no
// initialiser of another library has to run before they are used.
constexpr EditRate kEditRateNull{0, 0}; ///< no rate

// Intentional: 23.976, 29.97 and 59.94 are these decimal fractions, not n * 1000 / 1001, because
// plug-ins compare rates by their two numbers.
constexpr EditRate kEditRate23_976{23976, 1000}; ///< 23.976 edit units per second
constexpr EditRate kEditRate24{24, 1};           ///< 24 edit units per second
constexpr EditRate kEditRate25{25, 1};           ///< 25 edit units per second
constexpr EditRate kEditRate29_97{2997, 100};    ///< 29.97 edit units per second
constexpr EditRate kEditRate50{50, 1};           ///< 50 edit units per second
constexpr EditRate kEditRate59_94{5994, 100};    ///< 59.94 edit units per second

} // namespace kel
