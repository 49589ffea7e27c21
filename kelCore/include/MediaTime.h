/// A position on a timeline.
///
/// A small value type: pass it by value or by const reference; distinct objects may be used on
/// different threads.
#pragma once

#include "EditRate.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kel {

class IClockInfo;

/// A count of edit units at an edit rate, with the clock that it was read from, if any.
class MediaTime {
public:
    /// Position 0 at the null rate, without a clock.
    MediaTime() = default;

    /// @param rate edit units per second
    /// @param number position in edit units of @p rate; may be negative
    /// @param clock the clock of the position, shared; may be empty
    MediaTime(const EditRate& rate, std::int64_t number, std::shared_ptr<const IClockInfo> clock)
        : editRate(rate), timeNumber(number), clockInfo(std::move(clock)) {}

    /// The position in edit units.
    std::int64_t GetTimeNumber() const { return timeNumber; }

    /// The edit units per second in which the position is counted.
    EditRate GetEditRate() const { return editRate; }

    /// The clock that the position was read from; empty when there is none.
    std::shared_ptr<const IClockInfo> GetClockInfo() const { return clockInfo; }

    /// Replaces the position; rate and clock stay.
    /// @param number position in edit units of the present rate
    void SetTimeNumber(std::int64_t number) { timeNumber = number; }

private:
    EditRate editRate;
    std::int64_t timeNumber = 0;
    std::shared_ptr<const IClockInfo> clockInfo;
};

} // namespace kel
