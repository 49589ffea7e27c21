#include "base/FileName.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardInput = "/dev/stdin";
constexpr const char* kStandardInputName = "standard input";
constexpr const char* kStandardOutput = "/dev/stdout";
constexpr const char* kStandardOutputName = "standard output";

[[noreturn]] void FailToMakeDirectory(const std::string& path, const std::string& cause) {
    throw JobError(path, "cannot create the directory: " + cause);
}

} // namespace

FileName InputName(const std::string& typed) {
    return typed == "-" ? FileName(kStandardInput, kStandardInputName) : FileName(typed);
}

bool IsStandardInput(const FileName& input) {
    return input.path == kStandardInput;
}

FileName OutputName(const std::string& typed) {
    return typed == "-" ? FileName(kStandardOutput, kStandardOutputName) : FileName(typed);
}

bool IsStandardOutput(const FileName& output) {
    return output.path == kStandardOutput;
}

std::string PathToOpen(const FileName& file) {
    const bool isStream = file.shown == kStandardInputName || file.shown == kStandardOutputName;
    return file.path.empty() || (file.path != file.shown && isStream) ? "" : file.shown;
}

// The path of a descriptor may be the beginning of that of another one.
std::string ShowName(std::string text, const FileName& file) {
    const std::size_t size = file.path.size();
    for (std::size_t place = text.find(file.path);
         file.path != file.shown && size > 0 && place != std::string::npos;
         place = text.find(file.path, place)) {
        const std::size_t end = place + size;
        if (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
            place = end;
        } else {
            text.replace(place, size, file.shown);
            place += file.shown.size();
        }
    }
    return text;
}

void RequirePathFits(const FileName& file) {
    if (file.path.empty()) {
        throw JobError("the name of a file is empty");
    }
    if (file.path.size() > kMaxPathBytes) {
        throw JobError(file.shown,
                       fmt::format("the path is longer than {} bytes; change to its directory or "
                                   "use a shorter name",
                                   kMaxPathBytes));
    }
}

void RequireReadable(const FileName& file) {
    RequirePathFits(file);
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0) {
        throw JobError(file.shown,
                       fmt::format("cannot open for reading: {}", std::strerror(errno)));
    }
    if (S_ISDIR(status.st_mode)) {
        throw JobError(file.shown,
                       IsStandardInput(file)
                           ? "is a directory"
                           : "is a directory; copy, info and compare accept it with --recursive");
    }
}

void RequireDifferentFiles(const FileName& input, const FileName& output) {
    struct stat inputStatus {};
    struct stat outputStatus {};
    if (stat(input.path.c_str(), &inputStatus) == 0 &&
        stat(output.path.c_str(), &outputStatus) == 0 &&
        inputStatus.st_dev == outputStatus.st_dev && inputStatus.st_ino == outputStatus.st_ino) {
        throw JobError(
            output.shown,
            fmt::format("is the same file as the input {}; name another output", input.shown));
    }
}

std::string ParentDirectory(const std::string& path) {
    const fs::path directory = fs::path(path).parent_path();
    return directory.empty() ? "." : directory.string();
}

void RequireDirectory(const std::string& path) {
    struct stat status {};
    std::string existing = path;
    while (stat(existing.c_str(), &status) != 0) {
        if (errno != ENOENT || existing == ParentDirectory(existing)) {
            FailToMakeDirectory(path, std::strerror(errno));
        }
        existing = ParentDirectory(existing);
    }
    if (!S_ISDIR(status.st_mode)) {
        FailToMakeDirectory(path, std::strerror(ENOTDIR));
    }
    if (existing != path && faccessat(AT_FDCWD, existing.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        FailToMakeDirectory(path, std::strerror(errno));
    }
}

void MakeDirectory(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        FailToMakeDirectory(path, error.message());
    }
}

} // namespace kel::host
