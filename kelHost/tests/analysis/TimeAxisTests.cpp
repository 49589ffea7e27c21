#include "analysis/TimeAxis.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::host {

namespace {

struct Axis {
    std::string what;
    double start;
    double length;
    std::size_t most;
    std::vector<std::string> labels;
};

} // namespace

TEST(TimeAxis, HasRoundTimesFromMillisecondsToDays) {
    const std::vector<Axis> axes{
        {"2 ms", 0, 0.002, 8, {"0:00:00.000", "0:00:00.001", "0:00:00.002"}},
        {"1 s",
         0,
         1,
         5,
         {"0:00:00.000", "0:00:00.200", "0:00:00.400", "0:00:00.600", "0:00:00.800",
          "0:00:01.000"}},
        {"1 min", 0, 60, 4, {"0:00:00", "0:00:15", "0:00:30", "0:00:45", "0:01:00"}},
        {"10 h", 0, 36000, 5, {"0:00:00", "2:00:00", "4:00:00", "6:00:00", "8:00:00", "10:00:00"}},
        {"a week", 0, 7 * 86400, 4, {"0:00:00", "48:00:00", "96:00:00", "144:00:00"}},
        {"no end in the steps", 0.25, 1.5, 2, {"0:00:01"}},
        {"a part", 59.9, 0.3, 4, {"0:00:59.900", "0:01:00.000", "0:01:00.100", "0:01:00.200"}},
        {"too short for a tick", 0.0005, 0.0001, 4, {}},
        {"room for nothing", 0, 60, 0, {"0:00:00", "0:01:00"}},
    };
    for (const Axis& axis : axes) {
        SCOPED_TRACE(axis.what);
        std::vector<std::string> labels;
        for (const TimeTick& tick : TimeTicks(axis.start, axis.length, axis.most)) {
            labels.push_back(tick.label);
        }
        EXPECT_EQ(labels, axis.labels);
    }
}

TEST(TimeAxis, PlacesTicksAtTheTimesOfTheirLabels) {
    const std::vector<TimeTick> ticks = TimeTicks(90, 100, 5);
    ASSERT_EQ(ticks.size(), 4U);
    EXPECT_EQ(ticks[0].seconds, 90);
    EXPECT_EQ(ticks[0].label, "0:01:30");
    EXPECT_EQ(ticks[3].seconds, 180);
    EXPECT_EQ(ticks[3].label, "0:03:00");
}

TEST(TimeAxis, HasNoMoreTicksThanAskedForAndOneForTheEnd) {
    for (double length = 0.001; length < 1e7; length *= 1.37) {
        for (const std::size_t most : {1U, 2U, 7U, 20U}) {
            EXPECT_LE(TimeTicks(0, length, most).size(), most + 1) << length << " s, " << most;
        }
    }
}

} // namespace kel::host
