/// A position on a timeline.
/// A small value type: any thread may use its own copy.
/// @ingroup time
#pragma once

#include "EditRate.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kel {

class IClockInfo;

/// A count of edit units at an edit rate, with the clock that it was read from, if there is one.
class MediaTime {
public:
    /// Position 0 at the null rate, without a clock.
    MediaTime() = default;

    /// @param rate edit units per second
    /// @param number position in edit units of @p rate; may be negative
    /// @param clock the clock of the position, shared; may be empty
    MediaTime(const EditRate& rate, std::int64_t number, std::shared_ptr<const IClockInfo> clock)
        : m_editRate(rate), m_timeNumber(number), m_clockInfo(std::move(clock)) {}

    /// Returns the position in edit units.
    std::int64_t GetTimeNumber() const { return m_timeNumber; }

    /// Returns the edit units per second in which the position is counted.
    EditRate GetEditRate() const { return m_editRate; }

    /// Returns the clock that the position was read from; empty without one.
    std::shared_ptr<const IClockInfo> GetClockInfo() const { return m_clockInfo; }

    /// Replaces the position; rate and clock stay.
    /// @param number position in edit units of the current rate
    void SetTimeNumber(std::int64_t number) { m_timeNumber = number; }

private:
    EditRate m_editRate;
    std::int64_t m_timeNumber = 0;
    std::shared_ptr<const IClockInfo> m_clockInfo;
};

} // namespace kel
