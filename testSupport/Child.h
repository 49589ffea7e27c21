/// Operations in a child process, so that a test can expect a crash.
/// For programs with one thread.
#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <execinfo.h>
#include <functional>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kel::test {

/// Result of an operation in a child process.
struct ChildResult {
    std::string text;      ///< its result; empty if it crashed
    std::string crashedIn; ///< the library that crashed, or the signal; empty if there was no crash
    std::string details;   ///< of a crash, see CrashDetails
};

/// A function of the child that returns more about a crash, on one line and without taking memory.
inline const char* (*&CrashDetails())() {
    static const char* (*function)() = nullptr;
    return function;
}

namespace detail {

inline int& CrashReport() {
    static int descriptor = -1;
    return descriptor;
}

inline const char* NameOfLibrary(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        return "";
    }
    const char* slash = std::strrchr(info.dli_fname, '/');
    return slash != nullptr ? slash + 1 : info.dli_fname;
}

constexpr int kCrashed = 2;
constexpr int kMute = 3;

inline void WriteText(int descriptor, const char* text) {
    for (std::size_t left = std::strlen(text); left > 0;) {
        const ssize_t count = write(descriptor, text, left);
        if (count <= 0) {
            _exit(kMute);
        }
        text += count;
        left -= static_cast<std::size_t>(count);
    }
}

// Reports the innermost library, except the C library, whose functions crash for wrong arguments of
// their callers, and the program itself, which contains this handler.
inline void ReportCrash(int /*signal*/) {
    std::array<void*, 64> frames{};
    const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
    const char* own = NameOfLibrary(reinterpret_cast<void*>(&ReportCrash));
    const char* guilty = "";
    for (int i = 0; i < depth && *guilty == '\0'; ++i) {
        const char* name = NameOfLibrary(frames[static_cast<std::size_t>(i)]);
        if (std::strncmp(name, "libc.so", 7) != 0 && std::strcmp(name, own) != 0) {
            guilty = name;
        }
    }
    WriteText(CrashReport(), *guilty != '\0' ? guilty : own);
    WriteText(CrashReport(), "\n");
    WriteText(CrashReport(), CrashDetails() != nullptr ? CrashDetails()() : "");
    _exit(kCrashed);
}

inline std::string ReadAll(int descriptor) {
    std::string text;
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while ((count = read(descriptor, piece.data(), piece.size())) != 0) {
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "read");
        }
        text.append(piece.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    }
    return text;
}

} // namespace detail

/// Runs an operation in a child process, which is killed after half a minute.
/// @param operation returns a text without null characters
inline ChildResult RunInChild(const std::function<std::string()>& operation) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    // The first call may take memory; later ones do not.
    std::array<void*, 1> warm{};
    backtrace(warm.data(), 1);
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        close(ends[0]);
        detail::CrashReport() = ends[1];
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
            std::signal(signal, detail::ReportCrash);
        }
        alarm(30);
        try {
            detail::WriteText(ends[1], operation().c_str());
        } catch (const std::exception& error) {
            detail::WriteText(ends[1], "throws ");
            detail::WriteText(ends[1], error.what());
        }
        _exit(0);
    }
    close(ends[1]);
    ChildResult result;
    result.text = detail::ReadAll(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        result.crashedIn = "signal " + std::to_string(WTERMSIG(status));
    } else if (WEXITSTATUS(status) == detail::kCrashed) {
        const std::size_t end = result.text.find('\n');
        result.crashedIn = result.text.substr(0, end);
        result.details = result.text.substr(end + 1);
        result.text.clear();
    } else if (WEXITSTATUS(status) != 0) {
        result.crashedIn = "exit status " + std::to_string(WEXITSTATUS(status));
    }
    return result;
}

} // namespace kel::test
