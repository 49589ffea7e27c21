#include "jobs/OutputStream.h"

#include "Orphans.h"
#include "jobs/Posix.h"

#include <Terminal.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

namespace kel::host {

namespace {

// Fills a pipe, so that writing to it waits for a reader.
void Fill(const Pipe& pipe) {
    fcntl(pipe.out.Number(), F_SETFL, O_NONBLOCK);
    const std::array<char, 4096> bytes{};
    while (write(pipe.out.Number(), bytes.data(), bytes.size()) > 0) {
    }
    fcntl(pipe.out.Number(), F_SETFL, 0);
}

std::string ReadSome(const Pipe& pipe) {
    std::array<char, 65536> bytes{};
    const ssize_t count = read(pipe.in.Number(), bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(count > 0 ? count : 0)};
}

class Output : public testing::Test {
protected:
    Pipe m_pipe = MakePipe();

private:
    test::SignalDisposition m_terminate{SIGTERM, SIG_DFL};
    test::SignalDisposition m_broken{SIGPIPE, SIG_IGN};
};

} // namespace

TEST_F(Output, IsWrittenWhenItIsFlushedAndAtTheEnd) {
    fcntl(m_pipe.in.Number(), F_SETFL, O_NONBLOCK);
    {
        OutputStream stream(m_pipe.out.Number());
        stream << "one\n";
        EXPECT_EQ(ReadSome(m_pipe), "");
        stream << 2 << std::flush;
        EXPECT_EQ(ReadSome(m_pipe), "one\n2");
        stream << "three";
    }
    EXPECT_EQ(ReadSome(m_pipe), "three");
}

TEST_F(Output, IsWrittenInOrderWhenItIsMoreThanTheStreamKeeps) {
    std::string expected;
    OutputStream stream(m_pipe.out.Number());
    for (int i = 0; i < 10000; ++i) {
        const std::string text = std::to_string(i) + " ";
        expected += text;
        stream << text;
    }
    stream << std::string(10000, 'x') << 'y' << std::flush;
    expected += std::string(10000, 'x') + "y";
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(ReadSome(m_pipe), expected);
}

TEST_F(Output, ToATerminalIsWrittenLineByLine) {
    test::Terminal terminal(80);
    const int descriptor = open(terminal.Path().c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    OutputStream stream(descriptor);
    stream << "one\ntwo";
    stream << "three";
    close(descriptor); // what is written later is lost
    EXPECT_EQ(terminal.Text(), "one\ntwo");
}

TEST_F(Output, FailsWhenThereIsNoReader) {
    m_pipe.in = Descriptor();
    OutputStream stream(m_pipe.out.Number());
    stream << "text";
    EXPECT_TRUE(stream.good());
    stream.flush();
    EXPECT_FALSE(stream.good());
}

TEST_F(Output, ToAFullPipeWaitsForItsReader) {
    for (const int flags : {0, O_NONBLOCK}) {
        SCOPED_TRACE(flags);
        Pipe pipe = MakePipe();
        Fill(pipe);
        fcntl(pipe.out.Number(), F_SETFL, flags);
        const pid_t reader = ForkChild();
        if (reader == 0) {
            pipe.out = Descriptor();
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            std::string all;
            for (std::string some; !(some = ReadSome(pipe)).empty();) {
                all += some;
            }
            const bool isWhole = all.size() > 4 && all.substr(all.size() - 4) == "text";
            _exit(isWhole ? 0 : 1);
        }
        pipe.in = Descriptor();
        OutputStream stream(pipe.out.Number());
        stream << "text" << std::flush;
        EXPECT_TRUE(stream.good());
        pipe.out = Descriptor();
        EXPECT_EQ(WaitForEnd(reader, std::chrono::minutes(1)), 0);
    }
}

TEST_F(Output, ThatWaitsIsEndedByASignalAndNoOtherOneWaitsAfterIt) {
    Fill(m_pipe);
    {
        const SignalReader signals;
        OutputStream stream(m_pipe.out.Number());
        stream << "text";
        kill(getpid(), SIGTERM);
        stream.flush();
        EXPECT_FALSE(stream.good());
        EXPECT_THROW(signals.Check(), Interrupted);
    }
    // The message that the program was interrupted must not wait either.
    OutputStream other(m_pipe.out.Number());
    other << "text" << std::flush;
    EXPECT_FALSE(other.good());
    EXPECT_TRUE(SignalReader::IsInterrupted());
    const SignalReader next;
    EXPECT_FALSE(SignalReader::IsInterrupted());
}

TEST_F(Output, ThatNeedNotWaitIsWrittenAfterASignal) {
    const SignalReader signals;
    kill(getpid(), SIGTERM);
    OutputStream stream(m_pipe.out.Number());
    stream << "text" << std::flush;
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(ReadSome(m_pipe), "text");
    EXPECT_THROW(signals.Check(), Interrupted);
}

} // namespace kel::host
