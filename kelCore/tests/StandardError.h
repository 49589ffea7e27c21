/// Captures of standard error, and streams that fail. One thread at a time.
#pragma once

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <unistd.h>

namespace kel::test {

/// Keeps everything that is written to file descriptor 2 while it lives.
class StandardErrorCapture {
public:
    StandardErrorCapture() {
        if (m_file == nullptr || m_original < 0 || dup2(fileno(m_file), STDERR_FILENO) < 0) {
            throw std::runtime_error("cannot redirect standard error");
        }
    }

    ~StandardErrorCapture() {
        dup2(m_original, STDERR_FILENO);
        close(m_original);
        std::fclose(m_file);
    }

    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    /// Everything that was written so far.
    std::string Text() const {
        std::string text(static_cast<std::size_t>(lseek(fileno(m_file), 0, SEEK_END)), '\0');
        const ssize_t got = pread(fileno(m_file), text.data(), text.size(), 0);
        text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return text;
    }

private:
    std::FILE* m_file = std::tmpfile();
    int m_original = dup(STDERR_FILENO);
};

/// Replaces the buffer of std::cerr while it lives, and lets std::cerr throw on the given states.
class CerrBuffer {
public:
    explicit CerrBuffer(std::streambuf& buffer, std::ios::iostate exceptions = std::ios::goodbit)
        : m_original(std::cerr.rdbuf(&buffer)) {
        std::cerr.exceptions(exceptions);
    }

    ~CerrBuffer() {
        std::cerr.exceptions(std::ios::goodbit);
        std::cerr.rdbuf(m_original);
        std::cerr.clear();
        std::cerr << std::unitbuf;
    }

    CerrBuffer(const CerrBuffer&) = delete;
    CerrBuffer& operator=(const CerrBuffer&) = delete;

private:
    std::streambuf* m_original;
};

/// Accepts nothing.
class RefusingBuffer final : public std::streambuf {};

/// Throws something that no library expects.
class ThrowingBuffer final : public std::streambuf {
protected:
    int_type overflow(int_type) override { throw 42; }
    std::streamsize xsputn(const char*, std::streamsize) override { throw 42; }
};

/// Accepts everything, but cannot be flushed.
class UnflushableBuffer final : public std::streambuf {
protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int sync() override { return -1; }
};

} // namespace kel::test
