// Inputs that do not answer, and libraries that print.

#include "AudioFiles.h"
#include "Orphans.h"
#include "Program.h"
#include "Schemas.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// A FIFO that delivers the beginning of a recording, and then nothing while it lives.
class StalledFifo {
public:
    explicit StalledFifo(const std::string& path) {
        const TemporaryDirectory directory;
        WriteTake(directory / "take.wav", 20000);
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        // For both directions, so that it is open before there is a reader.
        m_descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(write(m_descriptor, ReadFile(directory / "take.wav").data(), 20000), 20000);
    }
    ~StalledFifo() { close(m_descriptor); }
    StalledFifo(const StalledFifo&) = delete;
    StalledFifo& operator=(const StalledFifo&) = delete;

private:
    int m_descriptor = -1;
};

std::string Stalled(const std::string& file, const std::string& seconds) {
    return Error(file, "cannot read the file: it delivered nothing for " + seconds +
                           " s (--stall-timeout SECONDS allows more, 0 any time)");
}

// A run in which the first call on a file whose name has "stuck" never returns, as on a mount that
// does not respond.
Command StuckRun(const TemporaryDirectory& directory, const Arguments& arguments) {
    Command command = Kelhost(directory, arguments + Arguments{"--open-timeout", "0.3"});
    DisturbSystem(command);
    command.environment["KEL_TEST_FAULTY_CALL"] = "stat";
    command.environment["KEL_TEST_FAULTY_FILE"] = "stuck";
    command.environment["KEL_TEST_FAULTY_NUMBER"] = "1";
    command.environment["KEL_TEST_FAULT_HANGS"] = "1";
    return command;
}

} // namespace

TEST(StalledInput, FailsAloneInABatch) {
    const Orphans orphans;
    const TemporaryDirectory directory;
    const StalledFifo fifo(directory / "fifo.wav");
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "fifo.wav", "take.wav", "--output-dir", "out",
                                        "--stall-timeout", "0.2", "--jobs", "1"}),
                 1, CopyReport("take.wav", "out/take.wav") + "2 files: 1 copied, 1 failed\n",
                 Stalled("fifo.wav", "0.2"));
    EXPECT_EQ(SortedNames(directory / "out"), Names{"take.wav"});
    EXPECT_TRUE(Orphans::AreNone());
}

TEST(StalledInput, FailsEveryCommandThatReads) {
    for (const Arguments& arguments :
         {Arguments{"copy", "fifo.wav", "out.wav", "--encoding", "int16"},
          Arguments{"info", "--measure", "fifo.wav"}, Arguments{"plot", "fifo.wav"},
          Arguments{"run", "kel.LibsndfileSource:WAVE", "FilePath=fifo.wav", "!",
                    "kel.LibsndfileSink:WAVE", "FilePath=out.wav"}}) {
        SCOPED_TRACE(arguments[0]);
        const TemporaryDirectory directory;
        const StalledFifo fifo(directory / "fifo.wav");
        ExpectResult(RunKelhost(directory, arguments + Arguments{"--stall-timeout", "0.2"}), 1, "",
                     Stalled("fifo.wav", "0.2"));
        EXPECT_EQ(SortedNames(directory), Names{"fifo.wav"});
    }
}

TEST(StalledInput, OfAComparisonIsOneOfTwoFiles) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 20000);
    const StalledFifo fifo(directory / "fifo.wav");
    ExpectResult(
        RunKelhost(directory, {"compare", "take.wav", "fifo.wav", "--stall-timeout", "0.2"}), 2, "",
        Stalled("take.wav and fifo.wav", "0.2"));
}

TEST(StalledInput, FailsWhereItIsMovedIn) {
    for (const Arguments& arguments : {Arguments{"copy", "in.wav", "out.wav", "--start", "10f"},
                                       Arguments{"plot", "in.wav", "--start", "10f"}}) {
        SCOPED_TRACE(arguments[0]);
        const TemporaryDirectory directory;
        WriteFile(directory / "in.wav", "1000 2 48000 waits while seeking\n");
        Command command =
            Kelhost(directory, arguments + Arguments{"--stall-timeout", "0.2", "--plugin",
                                                     TestPlugin("kelFaultyElements")});
        command.environment["KEL_TEST_WAITING"] = directory / "in.wav";
        command.environment["KEL_TEST_GO_ON"] = directory / "never";
        ExpectResult(RunCommand(command), 1, "", Stalled("in.wav", "0.2"));
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    }
}

TEST(StalledInput, IsReportedWhileItIsWaitedFor) {
    const TemporaryDirectory directory;
    const StalledFifo fifo(directory / "fifo.wav");
    const ProcessResult result =
        RunKelhost(directory, {"copy", "fifo.wav", "out.wav", "--stall-timeout", "1.5",
                               "--progress", "json", "--json"});
    EXPECT_EQ(result.status, 1);
    const std::string message = Stalled("fifo.wav", "1.5").substr(9);
    const std::string progress = R"({"document":"kelhost.progress","file":"fifo.wav",)";
    EXPECT_EQ(result.err,
              progress + "\"path\":\"fifo.wav\",\"spooled\":0,\"version\":1}\n" + progress +
                  "\"path\":\"fifo.wav\",\"spooled\":20000,\"version\":1}\n" + progress +
                  "\"path\":\"fifo.wav\",\"version\":1,\"waiting\":1}\n"
                  "{\"document\":\"kelhost.error\",\"file\":\"fifo.wav\",\"message\":\"" +
                  message.substr(0, message.size() - 1) +
                  "\",\"path\":\"fifo.wav\",\"version\":1}\n" + progress +
                  "\"finished\":true,\"path\":\"fifo.wav\",\"succeeded\":false,\"version\":1}\n");
    ExpectDocuments({"kelhost.progress", "kelhost.progress", "kelhost.progress", "kelhost.error",
                     "kelhost.progress"},
                    result.err);
}

TEST(StuckInput, FailsWhenEvenLookingAtItTakesTooLong) {
    const TemporaryDirectory directory;
    WriteTake(directory / "stuck.wav");
    WriteFile(directory / "out.wav", "before");
    fs::create_directory(directory / "out");
    for (const Arguments& arguments :
         {Arguments{"copy", "stuck.wav", "out.wav", "--force"},
          Arguments{"copy", "stuck.wav", "--output-dir", "out", "--skip-existing"},
          Arguments{"info", "stuck.wav"}, Arguments{"plot", "stuck.wav"},
          Arguments{"run", "kel.LibsndfileSource", "FilePath=stuck.wav", "!", "kel.LibsndfileSink",
                    "FilePath=out.wav", "--force"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ExpectResult(RunCommand(StuckRun(directory, arguments)), 1, "",
                     Error("stuck.wav", "cannot open the file within 0.3 s; it is damaged, a pipe "
                                        "without a writer, or on a mount that does not respond "
                                        "(--open-timeout SECONDS allows more)"));
        EXPECT_EQ(ReadFile(directory / "out.wav"), "before");
        EXPECT_EQ(SortedNames(directory), (Names{"out", "out.wav", "stuck.wav"}));
    }
}

TEST(StuckInput, IsNamedByAComparisonThatOpensItSecond) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ASSERT_EQ(mkfifo((directory / "fifo.wav").c_str(), 0600), 0);
    ExpectResult(
        RunKelhost(directory, {"compare", "take.wav", "fifo.wav", "--open-timeout", "0.3"}), 2, "",
        Error("fifo.wav", "cannot open the file within 0.3 s; it is damaged, a pipe without a "
                          "writer, or on a mount that does not respond (--open-timeout SECONDS "
                          "allows more)"));
}

TEST(PrintedLines, AreLogRecordsWithTheNameOfTheFile) {
    const TemporaryDirectory directory;
    WriteFile(directory / "in.wav", "1000 2 48000 prints while reading\n");
    Command command = Kelhost(directory, {"copy", "in.wav", "out.wav", "--force", "--plugin",
                                          TestPlugin("kelFaultyElements")});
    const std::string report =
        CopyReport("in.wav", "out.wav", "extensible WAVE, float32 little-endian");
    ExpectResult(RunCommand(command), 0, report,
                 "in.wav: note: \\x1B[2Jfirst\nin.wav: second\nin.wav: third\n");
    command.environment["KEL_LOG"] = "error";
    ExpectResult(RunCommand(command), 0, report, "");
    command.environment["KEL_LOG"] = "warning";
    ExpectResult(RunCommand(command), 0, report,
                 "in.wav: note: \\x1B[2Jfirst\nin.wav: second\nin.wav: third\n");
    command.arguments.emplace_back("--json");
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "{\"document\":\"kelhost.log\",\"text\":\"in.wav: note: \\\\x1B[2Jfirst\","
              "\"version\":1}\n"
              "{\"document\":\"kelhost.log\",\"text\":\"in.wav: second\",\"version\":1}\n"
              "{\"document\":\"kelhost.log\",\"text\":\"in.wav: third\",\"version\":1}\n");
    ExpectDocuments({"kelhost.log", "kelhost.log", "kelhost.log", "kelhost.copy"},
                    result.err + result.out);
}

} // namespace kel::test
