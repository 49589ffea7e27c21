#include "jobs/Progress.h"

#include "jobs/Job.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr std::size_t kWide = 120;

// A display with a clock of its own, in milliseconds.
class Display {
public:
    Display(ProgressStyle style, const std::vector<std::string>& files, std::size_t width = kWide)
        : m_progress(m_stream, style, {files.begin(), files.end()}, width,
                     Progress::Clock::time_point{}) {}

    void Spool(std::size_t job, std::uint64_t bytes, int time) {
        m_progress.Spool(job, bytes, At(time));
    }

    void Update(std::size_t job, std::int64_t done, std::int64_t total, int time) {
        m_progress.Update(job, done, total, 1000, At(time));
    }
    void Wait(std::size_t job, std::int64_t seconds, int time) {
        m_progress.Wait(job, seconds, At(time));
    }
    void Finish(std::size_t job, bool succeeded, int time) {
        m_progress.Finish(job, succeeded, At(time));
    }
    void Clear() { m_progress.Clear(); }

    // The output since the last call.
    std::string Shown() {
        const std::string text = m_stream.str();
        m_stream.str("");
        return text;
    }

private:
    static Progress::Clock::time_point At(int time) {
        return Progress::Clock::time_point{} + std::chrono::milliseconds(time);
    }

    std::ostringstream m_stream;
    Progress m_progress;
};

// A line that is drawn over the one before.
std::string Drawn(const std::string& line) {
    return "\r" + line + "\x1B[K";
}

std::size_t CountCharactersOf(const std::string& drawn) {
    std::size_t count = 0;
    for (const char byte : drawn.substr(1, drawn.size() - 4)) {
        count += (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U ? 1U : 0U;
    }
    return count;
}

} // namespace

TEST(Progress, IsABarWithPercentageSpeedAndTimeLeft) {
    Display display(ProgressStyle::Line, {"take.wav"});
    display.Update(0, 25000, 100000, 2500);
    EXPECT_EQ(display.Shown(),
              Drawn("take.wav [######..................]  25 %  10 x real time, 0:00:08 left"));
    display.Update(0, 99999, 100000, 10000);
    EXPECT_EQ(display.Shown(),
              Drawn("take.wav [#######################.]  99 %  10 x real time, 0:00:01 left"));
    display.Update(0, 100000, 100000, 20000);
    EXPECT_EQ(display.Shown(),
              Drawn("take.wav [########################] 100 %  5.0 x real time, 0:00:00 left"));
}

TEST(Progress, CountsFilesWhereThereAreSeveral) {
    Display display(ProgressStyle::Line, {"a.wav", "b.wav", "c.wav", "d.wav"});
    display.Update(1, 500, 1000, 1000);
    EXPECT_EQ(display.Shown(), Drawn("0 of 4 files [###.....................]  12 %  0.5 x real "
                                     "time, 0:00:07 left"));
    display.Update(1, 1000, 1000, 1050);
    display.Finish(1, true, 2000);
    EXPECT_EQ(display.Shown(), Drawn("1 of 4 files [######..................]  25 %  0.5 x real "
                                     "time, 0:00:06 left"));
    display.Finish(0, false, 2200);
    EXPECT_EQ(display.Shown(), Drawn("2 of 4 files [############............]  50 %  0.5 x real "
                                     "time, 0:00:03 left"));
}

TEST(Progress, ShowsNoTimeBeforeOneIsKnown) {
    Display display(ProgressStyle::Line, {"take.wav"});
    display.Update(0, 0, 1000, 1000);
    EXPECT_EQ(display.Shown(), Drawn("take.wav [........................]   0 %"));
    Display atOnce(ProgressStyle::Line, {"take.wav"});
    atOnce.Update(0, 500, 1000, 0);
    EXPECT_EQ(atOnce.Shown(), Drawn("take.wav [############............]  50 %"));
    Display empty(ProgressStyle::Line, {"take.wav"});
    empty.Update(0, 0, 0, 0);
    EXPECT_EQ(empty.Shown(), Drawn("take.wav [########################] 100 %"));
}

TEST(Progress, IsTheTimeThatIsDoneWhereTheEndIsUnknown) {
    Display display(ProgressStyle::Line, {"take.flac"});
    display.Update(0, 0, kUnknownTotal, 0);
    EXPECT_EQ(display.Shown(), Drawn("take.flac 0:00:00 done"));
    display.Update(0, 62000, kUnknownTotal, 6200);
    EXPECT_EQ(display.Shown(), Drawn("take.flac 0:01:02 done, 10 x real time"));

    // It counts when it is finished.
    Display several(ProgressStyle::Line, {"take.flac", "b.wav"});
    several.Update(1, 1000, 1000, 1000);
    EXPECT_EQ(
        several.Shown(),
        Drawn("0 of 2 files [############............]  50 %  1.0 x real time, 0:00:01 left"));
    several.Update(0, 1000, kUnknownTotal, 2000);
    EXPECT_EQ(
        several.Shown(),
        Drawn("0 of 2 files [############............]  50 %  1.0 x real time, 0:00:02 left"));
    several.Finish(0, true, 3000);
    EXPECT_EQ(
        several.Shown(),
        Drawn("1 of 2 files [########################] 100 %  0.7 x real time, 0:00:00 left"));

    Display programs(ProgressStyle::JSON, {"take.flac"});
    programs.Update(0, 500, kUnknownTotal, 0);
    EXPECT_EQ(
        programs.Shown(),
        R"({"document":"kelhost.progress","done":500,"file":"take.flac","path":"take.flac","rate":1000,"total":null,"version":1})"
        "\n");
    display.Wait(0, 5, 70000);
    EXPECT_EQ(display.Shown(), Drawn("take.flac 0:01:02 done, no data for 5 s"));
}

TEST(Progress, IsTheSizeThatIsReadBeforeTheWorkBegins) {
    Display display(ProgressStyle::Line, {"standard input"});
    display.Wait(0, 1, 1000);
    EXPECT_EQ(display.Shown(),
              Drawn("standard input [........................]   0 %  no data for 1 s"));
    display.Spool(0, 0, 2000);
    EXPECT_EQ(display.Shown(), Drawn("standard input 0 bytes read"));
    display.Spool(0, 3 << 20, 4000);
    EXPECT_EQ(display.Shown(), Drawn("standard input 3.0 MiB read, 1.5 MiB/s"));
    display.Wait(0, 7, 11000);
    EXPECT_EQ(display.Shown(), Drawn("standard input 3.0 MiB read, no data for 7 s"));
    display.Spool(0, 4 << 20, 11050);
    EXPECT_EQ(display.Shown(), "") << "too early";
    // The next input of a comparison.
    display.Spool(0, 0, 12000);
    display.Spool(0, 1 << 20, 13000);
    EXPECT_EQ(display.Shown(), Drawn("standard input 0 bytes read") +
                                   Drawn("standard input 1.0 MiB read, 1.0 MiB/s"));
    display.Update(0, 250, 1000, 13001);
    EXPECT_EQ(display.Shown(), Drawn("standard input [######..................]  25 %"));
    display.Update(0, 500, 1000, 13501);
    EXPECT_EQ(
        display.Shown(),
        Drawn("standard input [############............]  50 %  1.0 x real time, 0:00:01 left"));

    Display several(ProgressStyle::Line, {"a.wav", "b.wav"});
    several.Spool(0, 1 << 20, 1000);
    EXPECT_EQ(several.Shown(), Drawn("0 of 2 files [........................]   0 %"));

    Display programs(ProgressStyle::JSON, {"pipe"});
    programs.Spool(0, 1500, 0);
    EXPECT_EQ(
        programs.Shown(),
        R"({"document":"kelhost.progress","file":"pipe","path":"pipe","spooled":1500,"version":1})"
        "\n");
}

TEST(Progress, ShowsTheLongestWaitForDataInsteadOfTheSpeed) {
    Display display(ProgressStyle::Line, {"take.wav"});
    display.Wait(0, 1, 1000);
    EXPECT_EQ(display.Shown(), Drawn("take.wav [........................]   0 %  no data for 1 s"));
    display.Update(0, 500, 1000, 2000);
    EXPECT_EQ(display.Shown(), Drawn("take.wav [############............]  50 %  0.2 x real time, "
                                     "0:00:02 left"));
    display.Wait(0, 12, 14000);
    EXPECT_EQ(display.Shown(),
              Drawn("take.wav [############............]  50 %  no data for 12 s"));
    display.Wait(0, 0, 15000);
    EXPECT_EQ(display.Shown(), Drawn("take.wav [############............]  50 %  0.0 x real time, "
                                     "0:00:15 left"));

    Display several(ProgressStyle::Line, {"a.wav", "b.wav", "c.wav"});
    several.Wait(0, 2, 1000);
    several.Wait(1, 3, 2000);
    several.Shown();
    several.Finish(2, true, 3000);
    EXPECT_EQ(several.Shown(),
              Drawn("1 of 3 files [########................]  33 %  b.wav: no data for 3 s"));
    several.Finish(1, false, 4000);
    EXPECT_EQ(several.Shown(),
              Drawn("2 of 3 files [################........]  66 %  a.wav: no data for 2 s"));
}

TEST(Progress, IsDrawnTenTimesASecondAtMost) {
    Display display(ProgressStyle::Line, {"take.wav"});
    std::size_t drawn = 0;
    for (int millisecond = 0; millisecond < 3000; ++millisecond) {
        display.Update(0, millisecond, 3000, millisecond);
        drawn += display.Shown().empty() ? 0U : 1U;
    }
    EXPECT_EQ(drawn, 30U);
}

TEST(Progress, IsTakenAwayOnceWhereItWasShown) {
    Display display(ProgressStyle::Line, {"take.wav"});
    display.Clear();
    EXPECT_EQ(display.Shown(), "");
    display.Update(0, 1, 2, 1000);
    EXPECT_NE(display.Shown(), "");
    display.Clear();
    EXPECT_EQ(display.Shown(), "\r\x1B[K");
    display.Clear();
    EXPECT_EQ(display.Shown(), "");

    Display none(ProgressStyle::None, {"take.wav"});
    none.Update(0, 500, 1000, 1000);
    none.Finish(0, true, 2000);
    none.Clear();
    EXPECT_EQ(none.Shown(), "");
}

TEST(Progress, ShortensTheNameThenTheBarAndNeverFillsTheLine) {
    const std::string name = "a long n\xC3\xA4me of a recording that goes on and on.wav";
    const auto shown = [&name](std::size_t width) {
        Display display(ProgressStyle::Line, {name}, width);
        display.Update(0, 25000, 100000, 2500);
        return display.Shown();
    };
    for (std::size_t width = 1; width < 130; ++width) {
        EXPECT_LT(CountCharactersOf(shown(width)), width);
    }
    EXPECT_EQ(shown(120),
              Drawn("...ording that goes on and on.wav [######..................]  25 %  10 "
                    "x real time, 0:00:08 left"));
    EXPECT_EQ(shown(80), Drawn("...on and on.wav [######..................]  25 %  10 x real time, "
                               "0:00:08 left"));
    EXPECT_EQ(shown(60), Drawn("...nd on.wav [##......]  25 %  10 x real time, 0:00:08 left"));
}

TEST(Progress, IsALineOfJSONEachTimeForPrograms) {
    Display display(ProgressStyle::JSON, {"a.wav", "b\n.wav"});
    display.Wait(1, 12, 0);
    display.Wait(1, 0, 0);
    display.Update(1, 500, 1000, 0);
    display.Update(1, 1000, 1000, 1);
    display.Finish(1, true, 2);
    display.Finish(0, false, 3);
    display.Clear();
    EXPECT_EQ(
        display.Shown(),
        R"({"document":"kelhost.progress","file":"b\\n.wav","path":"b\n.wav","version":1,"waiting":12})"
        "\n"
        R"({"document":"kelhost.progress","done":500,"file":"b\\n.wav","path":"b\n.wav","rate":1000,"total":1000,"version":1})"
        "\n"
        R"({"document":"kelhost.progress","done":1000,"file":"b\\n.wav","path":"b\n.wav","rate":1000,"total":1000,"version":1})"
        "\n"
        R"({"document":"kelhost.progress","file":"b\\n.wav","finished":true,"path":"b\n.wav","succeeded":true,"version":1})"
        "\n"
        R"({"document":"kelhost.progress","file":"a.wav","finished":true,"path":"a.wav","succeeded":false,"version":1})"
        "\n");
}

} // namespace kel::host
