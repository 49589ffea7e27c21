#include "analysis/Measurement.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace kel::host {

namespace {

Measurement MakeMeasurement() {
    Measurement measurement;
    measurement.channels = {{1.0, 0.5, 12, 0}, {0.0, 0.0, 0, 345}};
    measurement.integrated = -23.04;
    measurement.range = 5.25;
    measurement.truePeak = 0.31;
    return measurement;
}

} // namespace

TEST(MeasureText, ShowsATableOfTheChannelsAndTheLoudnessBelow) {
    EXPECT_EQ(FormatMeasurement(MakeMeasurement()),
              "Channel      Peak        RMS  At full scale  Not finite\n"
              "      1  0.0 dBFS  -6.0 dBFS             12           0\n"
              "      2      none       none              0         345\n"
              "Integrated loudness  -23.0 LUFS\n"
              "Loudness range       5.2 LU\n"
              "True peak            0.3 dBTP\n");
}

TEST(MeasureText, ShowsNoneForMissingValues) {
    Measurement measurement;
    measurement.channels = {{}};
    EXPECT_EQ(FormatMeasurement(measurement), "Channel  Peak   RMS  At full scale  Not finite\n"
                                              "      1  none  none              0           0\n"
                                              "Integrated loudness  none\n"
                                              "Loudness range       none\n"
                                              "True peak            none\n");
}

} // namespace kel::host
