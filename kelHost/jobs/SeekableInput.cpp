#include "jobs/SeekableInput.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "jobs/Posix.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// True when a path leads to a file or a directory, or to nothing.
bool CanBeSought(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

// True when standard input is a file that can be opened again, and nothing of it was read before.
bool IsFileAtItsBeginning(const std::string& path) {
    return CanBeSought(path) && lseek(STDIN_FILENO, 0, SEEK_CUR) <= 0 &&
           Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)).Number() >= 0;
}

// Opens an input; that of a named pipe waits for its writer. A descriptor of standard input may be
// a socket, which cannot be opened under a path.
Descriptor OpenStream(const FileName& input) {
    Descriptor stream(IsStandardInput(input)
                          ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(input.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (stream.Number() < 0) {
        throw JobError(input.shown,
                       fmt::format("cannot open for reading: {}", std::strerror(errno)));
    }
    if (isatty(stream.Number()) == 1) {
        throw JobError(input.shown, "cannot read audio from a terminal; name a file, or pipe the "
                                    "output of a program into kelhost");
    }
    return stream;
}

// Reports the copied bytes at the interval of a display, and before a pause.
class SpoolReports {
public:
    explicit SpoolReports(Reporter& reporter) : m_reporter(reporter) { m_reporter.Spooled(0); }

    // Copied bytes are reported when it is time for that.
    void Add(std::uint64_t bytes) {
        m_bytes += bytes;
        if (Clock::now() - m_last >= kInterval) {
            Finish();
        }
    }

    // Reports what was not reported yet.
    void Finish() {
        if (m_reported != m_bytes) {
            m_reporter.Spooled(m_bytes);
            m_reported = m_bytes;
            m_last = Clock::now();
        }
    }

    // Waits for data, and reports when none comes at once.
    void Wait(int descriptor) {
        pollfd polled{descriptor, POLLIN, 0};
        if (m_reported != m_bytes && poll(&polled, 1, static_cast<int>(kInterval.count())) == 0) {
            Finish();
        }
    }

    std::uint64_t Bytes() const { return m_bytes; }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kInterval{100};

    Reporter& m_reporter;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_reported = 0;
    Clock::time_point m_last = Clock::now();
};

// Reads some bytes, of which there are none at the end. Another program may have made a shared
// descriptor non-blocking.
ssize_t ReadSome(int descriptor, std::vector<char>& bytes) {
    for (;;) {
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        if (count >= 0 || (errno != EINTR && errno != EAGAIN)) {
            return count;
        }
        if (errno == EAGAIN) {
            pollfd polled{descriptor, POLLIN, 0};
            poll(&polled, 1, -1);
        }
    }
}

} // namespace

SeekableInput::SeekableInput(FileName input, const SpoolPolicy& policy, Reporter& reporter)
    : m_file(std::move(input)) {
    if (IsStandardInput(m_file) ? IsFileAtItsBeginning(m_file.path) : CanBeSought(m_file.path)) {
        return;
    }
    const Descriptor stream = OpenStream(m_file);
    reporter.Opened();
    Spool(stream.Number(), policy, reporter);
    m_file.path = m_copy->Path();
    reporter.ShowAs(m_file);
    reporter.Opening(m_file.shown);
}

void SeekableInput::Spool(int from, const SpoolPolicy& policy, Reporter& reporter) {
    constexpr std::size_t kPiece = std::size_t{1} << 18U;
    const auto fail = [&] {
        throw JobError(m_file.shown,
                       fmt::format("cannot keep a copy in {}: {} (--temp-dir DIRECTORY names "
                                   "another place)",
                                   policy.directory, std::strerror(errno)));
    };
    m_copy.emplace(policy.directory);
    if (m_copy->Number() < 0) {
        fail();
    }
    std::vector<char> piece(kPiece);
    SpoolReports reports(reporter);
    for (ssize_t count = 1; count > 0; reports.Add(static_cast<std::uint64_t>(count))) {
        const ReadingScope reading(reporter);
        reports.Wait(from);
        count = ReadSome(from, piece);
        if (count < 0) {
            throw JobError(m_file.shown,
                           fmt::format("cannot read the file: {}", std::strerror(errno)));
        }
        const auto size = static_cast<std::size_t>(count);
        if (policy.maxBytes != 0 && size > policy.maxBytes - reports.Bytes()) {
            throw JobError(m_file.shown,
                           fmt::format("cannot keep a copy: it is larger than {} bytes "
                                       "(--max-spool SIZE allows more, 0 any size)",
                                       policy.maxBytes));
        }
        if (!WriteAll(m_copy->Number(), piece.data(), size)) {
            fail();
        }
    }
    reports.Finish();
    if (reports.Bytes() == 0) {
        throw JobError(m_file.shown, "cannot open for reading: it is empty; the program that "
                                     "writes to it reports the cause");
    }
}

} // namespace kel::host
