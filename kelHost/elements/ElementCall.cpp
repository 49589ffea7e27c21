#include "elements/ElementCall.h"

#include <KELRuntimeError.h>
#include <Logging.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

namespace kel::host {

// Others, such as ENOTTY or EAGAIN, are answers that libraries expect.
std::string DescribeFileError(int error) {
    constexpr std::array<int, 22> kFileErrors{
        EACCES, ECONNRESET,   EDQUOT, EFBIG,  EHOSTDOWN, EIO,      EISDIR,   ELOOP,
        EMFILE, ENAMETOOLONG, ENFILE, ENODEV, ENOENT,    ENOSPC,   ENOTCONN, ENOTDIR,
        ENXIO,  EPERM,        EPIPE,  EROFS,  ESTALE,    ETIMEDOUT};
    return std::find(kFileErrors.begin(), kFileErrors.end(), error) == kFileErrors.end()
               ? ""
               : std::strerror(error);
}

std::string DescribeCause(std::string_view task, int systemError) {
    std::string cause = DescribeFileError(systemError);
    if (!cause.empty()) {
        return cause;
    }
    const bool isInput = task == kOpenForReading || task == kReadAudio;
    return isInput ? "it may be damaged (--verbose shows more)"
                   : "the plug-in failed (--verbose shows more)";
}

JobError ElementError(const std::string& file, std::string_view task, int systemError) {
    return {file, fmt::format("{}: {}", task, DescribeCause(task, systemError))};
}

void LogWords(const std::exception& error) {
    if (dynamic_cast<const KELRuntimeError*>(&error) == nullptr) {
        KEL_LOG(LogLevel::Error, error.what());
    }
}

} // namespace kel::host
