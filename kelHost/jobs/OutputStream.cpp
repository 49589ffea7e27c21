#include "jobs/OutputStream.h"

#include "jobs/Posix.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <poll.h>
#include <string_view>
#include <sys/time.h>
#include <unistd.h>

namespace kel::host {

namespace {

void DoNothing(int /*signal*/) {}

// During its lifetime, a call that waits fails with EINTR ten times a second. A signal that comes
// just before the wait begins is therefore noticed, too.
class WaitTimer {
public:
    WaitTimer() {
        struct sigaction action {};
        action.sa_handler = DoNothing; // without SA_RESTART
        sigaction(SIGALRM, &action, &m_formerAction);
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        sigprocmask(SIG_UNBLOCK, &alarm, &m_formerMask);
        constexpr timeval kInterval{0, 100000};
        const itimerval timer{kInterval, kInterval};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    ~WaitTimer() {
        const itimerval none{};
        setitimer(ITIMER_REAL, &none, nullptr);
        sigprocmask(SIG_SETMASK, &m_formerMask, nullptr);
        sigaction(SIGALRM, &m_formerAction, nullptr);
    }
    WaitTimer(const WaitTimer&) = delete;
    WaitTimer& operator=(const WaitTimer&) = delete;

private:
    struct sigaction m_formerAction {};
    sigset_t m_formerMask{};
};

} // namespace

int WriteUnlessInterrupted(int descriptor, std::string_view bytes) {
    const WaitTimer timer;
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        if (written == 0 || (errno != EINTR && errno != EAGAIN)) {
            return written == 0 ? EIO : errno;
        }
        if (SignalReader::IsInterrupted()) {
            return EINTR;
        }
        // Another program may have made a shared descriptor non-blocking.
        if (errno == EAGAIN) {
            pollfd polled{descriptor, POLLOUT, 0};
            poll(&polled, 1, -1);
        }
    }
    return 0;
}

OutputStream::OutputStream(int descriptor, LostReader lostReader)
    : std::ostream(nullptr), m_buffer(descriptor, lostReader) {
    rdbuf(&m_buffer);
}

OutputStream::~OutputStream() {
    flush();
}

OutputStream::Buffer::Buffer(int descriptor, LostReader lostReader)
    : m_descriptor(descriptor), m_lostReader(lostReader), m_isTerminal(isatty(descriptor) == 1) {
    setp(m_bytes.data(), m_bytes.data() + m_bytes.size());
}

OutputStream::Buffer::int_type OutputStream::Buffer::overflow(int_type byte) {
    if (sync() != 0) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(byte, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(byte);
        pbump(1);
    }
    return traits_type::not_eof(byte);
}

std::streamsize OutputStream::Buffer::xsputn(const char* bytes, std::streamsize count) {
    const std::streamsize kept = std::streambuf::xsputn(bytes, count);
    const bool hasLine = std::string_view(bytes, static_cast<std::size_t>(count)).find('\n') !=
                         std::string_view::npos;
    return m_isTerminal && hasLine && sync() != 0 ? 0 : kept;
}

int OutputStream::Buffer::sync() {
    const std::string_view bytes(pbase(), static_cast<std::size_t>(pptr() - pbase()));
    setp(m_bytes.data(), m_bytes.data() + m_bytes.size());
    const int error = WriteUnlessInterrupted(m_descriptor, bytes);
    if (error == EPIPE && m_lostReader == LostReader::EndsProgram) {
        SignalReader::NoteLostReader();
    }
    return error == 0 ? 0 : -1;
}

} // namespace kel::host
