/// Calls of elements whose failures are reported in the host's words. Any thread.
///
/// The words of a plug-in, and of the library that it uses, are for its authors. They are records
/// of the log. An error has the cause that the system reported, as far as there is one.
#pragma once

#include "base/Errors.h"

#include <cerrno>
#include <exception>
#include <new>
#include <string>
#include <string_view>

namespace kel::host {

/// Tasks of elements, in errors.
inline constexpr std::string_view kOpenForReading = "cannot open for reading";
inline constexpr std::string_view kOpenForWriting = "cannot open for writing";
inline constexpr std::string_view kReadAudio = "cannot read the audio";
inline constexpr std::string_view kWriteAudio = "cannot write the audio";

/// Returns the words of the system for an error of a file; empty for a number with which no use of
/// an open file fails, such as one that a library has not reset.
std::string DescribeFileError(int error);

/// Returns the cause of a failed call: the words of the system, or general ones.
/// @param systemError errno after the failure
std::string DescribeCause(std::string_view task, int systemError);

/// Returns the error of an element that failed.
/// @param file the file or element that was worked on
/// @param task one of the above
/// @param systemError errno after the failure
JobError ElementError(const std::string& file, std::string_view task, int systemError);

/// Logs the words of an exception, unless it comes from a check, which has logged them.
void LogWords(const std::exception& error);

/// Calls an element.
/// @throws JobError as ElementError describes it, instead of an exception of the element;
/// JobError and std::bad_alloc as they are
template <typename Operation>
auto CallElement(const std::string& file, std::string_view task, Operation operation) {
    try {
        errno = 0;
        return operation();
    } catch (const JobError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        const int systemError = errno;
        LogWords(error);
        throw ElementError(file, task, systemError);
    }
}

} // namespace kel::host
