#include "elements/ElementCall.h"

#include <CapturingWriter.h>
#include <KELRuntimeError.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

// The error of a call that fails with a number of the system.
std::string ErrorOfCall(std::string_view task, int number) {
    errno = EROFS; // of something before
    try {
        CallElement("a.wav", task, [number] {
            errno = number != 0 ? number : errno;
            throw KELRuntimeError("the words of a library");
        });
    } catch (const JobError& error) {
        return error.File() + ": " + error.what();
    }
    return "";
}

} // namespace

TEST(ElementCall, HasTheCauseOfTheSystem) {
    EXPECT_EQ(ErrorOfCall(kWriteAudio, ENOSPC),
              "a.wav: cannot write the audio: No space left on device");
    EXPECT_EQ(ErrorOfCall(kOpenForWriting, EACCES),
              "a.wav: cannot open for writing: Permission denied");
    for (const int number : {0, ENOTTY, EAGAIN}) {
        EXPECT_EQ(ErrorOfCall(kWriteAudio, number),
                  "a.wav: cannot write the audio: the plug-in failed (--verbose shows more)");
        EXPECT_EQ(ErrorOfCall(kReadAudio, number),
                  "a.wav: cannot read the audio: it may be damaged (--verbose shows more)");
    }
}

TEST(ElementCall, LogsWordsThatNoCheckHasLogged) {
    const test::LogCapture log;
    const auto call = [](const std::function<void()>& operation) {
        EXPECT_THROW(CallElement("a.wav", kReadAudio, operation), JobError);
    };
    call([] { throw KELRuntimeError("of a check"); });
    call([] { throw std::runtime_error("of a plug-in"); });
    EXPECT_EQ(log->Messages(LogLevel::Error), std::vector<std::string>{"of a plug-in"});
}

TEST(ElementCall, PassesOnErrorsOfTheHostAndOfMemory) {
    const auto fail = [](const auto& error) {
        CallElement("a.wav", kReadAudio, [&error] { throw error; });
    };
    EXPECT_THROW(fail(std::bad_alloc()), std::bad_alloc);
    try {
        fail(JobError("b.wav", "as it is"));
        FAIL() << "no error";
    } catch (const JobError& error) {
        EXPECT_EQ(error.File() + ": " + error.what(), "b.wav: as it is");
    }
    EXPECT_EQ(CallElement("a.wav", kReadAudio, [] { return 7; }), 7);
}

} // namespace kel::host
