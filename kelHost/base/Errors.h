/// What can go wrong in the host, by the exit status that it leads to.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

namespace kel::host {

/// The job failed; exit status 1. The message names the file and what to do about it.
class JobError : public std::runtime_error {
public:
    explicit JobError(const std::string& message) : std::runtime_error(message) {}
};

/// The command line asks for something that does not exist or does not go together; exit status 2.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

/// What is said where memory runs out.
inline constexpr const char* kNoMemory = "there is not enough memory";

/// What an exception says, in words for users.
inline const char* UserMessage(const std::exception& error) {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? kNoMemory : error.what();
}

/// The exit statuses of the program.
enum ExitStatus : int { kSuccess = 0, kFailure = 1, kUsage = 2 };

} // namespace kel::host
