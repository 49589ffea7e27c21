#include "commands/StreamedOutput.h"

#include "base/Errors.h"
#include "jobs/OutputStream.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// Opens a named pipe, for which its reader has to be there.
Descriptor OpenPipe(const FileName& pipe, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds kPause{20};
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + limit;
    for (;;) {
        Descriptor opened(open(pipe.path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (opened.Number() >= 0) {
            return opened;
        }
        if (errno != ENXIO) {
            throw JobError(pipe.shown,
                           fmt::format("cannot open for writing: {}", std::strerror(errno)));
        }
        if (Clock::now() >= end) {
            throw JobError(pipe.shown,
                           fmt::format("cannot open for writing: no program has read it within {} "
                                       "s (--open-timeout SECONDS allows more)",
                                       std::chrono::duration<double>(limit).count()));
        }
        std::this_thread::sleep_for(kPause);
    }
}

bool IsPipe(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

std::unique_ptr<StreamedOutput> StreamedOutput::Open(const FileName& output, const FileName& input,
                                                     const std::string& directory,
                                                     std::chrono::milliseconds limit) {
    const bool isStandard = IsStandardOutput(output);
    if (!isStandard && !IsPipe(output.path)) {
        return nullptr;
    }
    RequireDifferentFiles(input, output);
    Descriptor stream =
        isStandard ? Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)) : OpenPipe(output, limit);
    if (isatty(stream.Number()) == 1) {
        throw JobError(output.shown, "cannot write audio to a terminal; redirect it to a file, or "
                                     "pipe it into a program");
    }
    std::unique_ptr<StreamedOutput> streamed(
        new StreamedOutput(output.shown, std::move(stream), directory));
    if (streamed->m_file.Number() < 0) {
        throw JobError(output.shown,
                       fmt::format("cannot create its temporary file in {}: {} (--temp-dir "
                                   "DIRECTORY names another place)",
                                   directory, std::strerror(errno)));
    }
    return streamed;
}

StreamedOutput::StreamedOutput(std::string name, Descriptor stream, const std::string& directory)
    : m_name(std::move(name)), m_stream(std::move(stream)), m_file(directory) {}

int StreamedOutput::Run(const Streams& streams,
                        const std::function<bool(const Streams&)>& work) const {
    const SignalReader signals; // also between the work and the sending
    std::ostringstream results;
    const bool succeeded = work({results, streams.err});
    if (succeeded) {
        Send(signals);
    }
    streams.err << results.str() << std::flush;
    return succeeded ? kSuccess : kFailure;
}

void StreamedOutput::Send(const SignalReader& signals) const {
    constexpr std::size_t kPiece = std::size_t{1} << 18U;
    const auto require = [&](int error) {
        signals.Check();
        if (error == EPIPE) {
            throw Interrupted{SIGPIPE};
        }
        if (error != 0) {
            throw JobError(m_name, fmt::format("cannot write the audio: {}", std::strerror(error)));
        }
    };
    std::vector<char> piece(kPiece);
    off_t offset = 0;
    for (ssize_t count = 1; count > 0; offset += count) {
        count = pread(m_file.Number(), piece.data(), piece.size(), offset);
        require(count < 0
                    ? errno
                    : WriteUnlessInterrupted(m_stream.Number(),
                                             {piece.data(), static_cast<std::size_t>(count)}));
    }
    // Some file systems report lost data when a descriptor is closed.
    const int second = fcntl(m_stream.Number(), F_DUPFD_CLOEXEC, 0);
    const bool isStored = second >= 0 && (close(second) == 0 || errno == EINTR);
    require(isStored ? 0 : errno);
}

} // namespace kel::host
