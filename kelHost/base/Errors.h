/// Failures of the host and the exit statuses that they lead to.
///
/// Messages hold file names and other texts as they are. They are escaped for display once, by
/// DescribeError.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kel::host {

/// The job failed; exit status 1, for most commands.
class JobError : public std::runtime_error {
public:
    /// @param file the file or element that the error is about, as the user knows it
    /// @param message the problem and, where there is one, a remedy; without the file's name
    JobError(std::string file, const std::string& message);

    /// An error that is not about a file.
    explicit JobError(const std::string& message);

    /// The file or element; empty for none.
    const std::string& File() const { return m_file; }

private:
    std::string m_file;
};

/// The command line asks for something that does not exist or does not fit together; exit status 2.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

/// Returns the error of an option or variable with a value that it does not accept.
/// @param name "--seed"
/// @param value the refused text
/// @param expected the accepted values: "an integer from 0 to 7"
UsageError InvalidValue(std::string_view name, std::string_view value, std::string_view expected);

/// Message for exhausted memory.
inline constexpr const char* kNoMemory = "there is not enough memory";

/// Returns the message of an exception in words for users.
const char* UserMessage(const std::exception& error);

/// An error as it is displayed.
struct ErrorText {
    std::string file;    ///< escaped; may be empty
    std::string message; ///< escaped, beginning with the file
    std::string path;    ///< the file or element as it is; empty where the error names none
};

/// Returns the display form of an error: the one place where errors are escaped.
/// @param file the file to name when the error does not name one; may be empty
ErrorText DescribeError(const std::exception& error, const std::string& file = "");

/// Runs an operation on a file or an element; failures of libraries and elements become JobErrors
/// that name it.
/// @param context precedes the cause: "cannot read the file"; empty to report only the cause
/// @throws JobError
template <typename Operation>
auto WithFileContext(const std::string& file, std::string_view context, Operation operation) {
    try {
        return operation();
    } catch (const JobError&) {
        throw;
    } catch (const std::exception& error) {
        const std::string cause = UserMessage(error);
        throw JobError(file, context.empty() ? cause : std::string(context) + ": " + cause);
    }
}

/// Exit statuses of the program.
enum ExitStatus : int { kSuccess = 0, kFailure = 1, kUsage = 2 };

} // namespace kel::host
