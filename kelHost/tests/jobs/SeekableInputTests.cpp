#include "jobs/SeekableInput.h"

#include "jobs/Posix.h"

#include <Child.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kel::host {

namespace {

class CallRecorder final : public Reporter {
public:
    void Opening(const std::string& file) override { calls += "opening " + file + "\n"; }
    void Opened() override { calls += "opened\n"; }
    void Spooled(std::uint64_t bytes) override {
        calls += "spooled " + std::to_string(bytes) + "\n";
    }
    void Progress(std::int64_t /*done*/, std::int64_t /*total*/, std::uint32_t /*rate*/) override {}
    void Show(const std::string& /*line*/) override {}
    void ShowAs(const FileName& file) override { calls += "show as " + file.shown + "\n"; }
    void BeginReading() override { calls += "reading\n"; }
    void EndReading() override { calls += "read\n"; }

    std::string calls;
};

} // namespace

TEST(SeekableInput, WaitsForDataAsOneThatIsRead) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] {
        const Descriptor end(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        EXPECT_TRUE(WriteAll(end.Number(), "take", 4));
    });
    CallRecorder reporter;
    const SeekableInput input({path, "shown"}, SpoolPolicy(), reporter);
    writer.join();
    EXPECT_EQ(reporter.calls, "opened\nspooled 0\nreading\nread\nreading\nread\nspooled 4\n"
                              "show as shown\nopening shown\n");
    EXPECT_EQ(test::ReadFile(input.File().path), "take");
    EXPECT_EQ(input.File().shown, "shown");
}

// As another program may leave a descriptor that it shares.
TEST(SeekableInput, WaitsForStandardInputThatDoesNotBlock) {
    Pipe pipe = MakePipe();
    const Descriptor former(dup(STDIN_FILENO));
    dup2(pipe.in.Number(), STDIN_FILENO);
    fcntl(STDIN_FILENO, F_SETFL, O_NONBLOCK);
    const std::string state = "/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/stat";
    std::thread writer([&] {
        while (test::ReadFile(state).find(") S ") == std::string::npos) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(WriteAll(pipe.out.Number(), "take", 4));
        pipe.out = Descriptor();
    });
    CallRecorder reporter;
    const SeekableInput input(InputName("-"), SpoolPolicy(), reporter);
    writer.join();
    dup2(former.Number(), STDIN_FILENO);
    EXPECT_EQ(test::ReadFile(input.File().path), "take");
    EXPECT_EQ(input.File().shown, "standard input");
}

TEST(SeekableInput, IsTheFileItselfWhereThatIsPossible) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take.wav", "take");
    CallRecorder reporter;
    for (const std::string name : {"take.wav", "missing.wav", "."}) {
        EXPECT_EQ(SeekableInput(directory / name, SpoolPolicy(), reporter).File().path,
                  directory / name);
    }
}

} // namespace kel::host
