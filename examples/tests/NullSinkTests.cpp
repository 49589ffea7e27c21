#include "Examples.h"

#include <CapturingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kel::test {

using testing::ElementsAre;

TEST(NullSink, CountsTheFramesOfEachInput) {
    const auto sink = MakeSink("example.NullSink");
    const LogCapture log;
    PushAll(*MakeTone({{"Length", 2500}}), *sink);
    log->Clear(); // also the records of the source
    PushAll(*MakeTone({{"Length", 0}}), *sink);
    PushAll(*MakeTone({{"Length", 3000}, {"Channels", 5}}), *sink);
    EXPECT_THAT(log->Messages(LogLevel::Info),
                ElementsAre("ToneSource: 1000 Hz, 0 frames, 48000 a second, 2 channels",
                            "NullSink: 0 frames",
                            "ToneSource: 1000 Hz, 3000 frames, 48000 a second, 5 channels",
                            "NullSink: 3000 frames"));
}

} // namespace kel::test
