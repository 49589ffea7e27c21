/// A pseudo-terminal for the output of a program.
/// One thread at a time.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <system_error>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace kel::test {

/// A pseudo-terminal that keeps every byte that is written to it.
class Terminal {
public:
    /// @param columns characters in a line
    explicit Terminal(unsigned short columns) {
        m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        std::array<char, 64> path{};
        if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0 ||
            ptsname_r(m_master, path.data(), path.size()) != 0) {
            throw std::system_error(errno, std::generic_category(), "no pseudo-terminal");
        }
        m_path = path.data();
        // Held open, so that the reader neither fails before the program nor ends after it.
        m_slave = open(m_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings{};
        tcgetattr(m_slave, &settings);
        cfmakeraw(&settings);
        tcsetattr(m_slave, TCSANOW, &settings);
        winsize size{};
        size.ws_col = columns;
        size.ws_row = 25;
        ioctl(m_master, TIOCSWINSZ, &size);
        m_reader = std::thread([this] { ReadAll(); });
    }

    ~Terminal() {
        HangUp();
        close(m_master);
    }

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Returns the path under which a program opens it.
    const std::string& Path() const { return m_path; }

    /// Returns everything that was written; call it when the programs that write have ended.
    const std::string& Text() {
        HangUp();
        return m_text;
    }

private:
    void HangUp() {
        if (m_slave >= 0) {
            close(m_slave);
            m_slave = -1;
            m_reader.join();
        }
    }

    void ReadAll() {
        std::array<char, 4096> piece{};
        // Fails when no process has the other side open any more.
        for (ssize_t count = 0; (count = read(m_master, piece.data(), piece.size())) > 0;) {
            m_text.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

    int m_master = -1;
    int m_slave = -1;
    std::string m_path;
    std::string m_text;
    std::thread m_reader;
};

} // namespace kel::test
