/// Names of files, and checks that need nothing but a name.
#pragma once

#include "base/Errors.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

/// Path of a file and its name for the user. They differ for an output, which has a temporary path
/// until it is complete, and for standard input and output.
struct FileName {
    FileName() = default;
    FileName(std::string name) : path(name), shown(std::move(name)) {} // NOLINT: a name is both
    FileName(std::string where, std::string name)
        : path(std::move(where)), shown(std::move(name)) {}

    std::string path;  ///< any bytes that Linux allows
    std::string shown; ///< as the user typed it
};

/// Returns the name of an input as the user typed it: "-" is standard input.
FileName InputName(const std::string& typed);

/// Whether an input is standard input, under one name or the other: "-" or "/dev/stdin".
bool IsStandardInput(const FileName& input);

/// Returns the name of an output as the user typed it: "-" is standard output.
FileName OutputName(const std::string& typed);

/// Whether an output is standard output, under one name or the other: "-" or "/dev/stdout".
bool IsStandardOutput(const FileName& output);

/// The longest path, in bytes, that can be handed to an element: libsndfile cuts longer ones, and
/// would open another file.
constexpr std::size_t kMaxPathBytes = 1023;

/// Returns the name by which other programs open a file; empty for standard input and output, and
/// without a path.
std::string PathToOpen(const FileName& file);

/// Returns a text in which the temporary path of a file is replaced by its name for the user.
std::string ShowName(std::string text, const FileName& file);

/// Runs an operation on a file; failures of libraries and elements become JobErrors that name it.
/// @param context precedes the cause: "cannot read the file"
/// @throws JobError
template <typename Operation>
auto WithFileContext(const FileName& file, std::string_view context, Operation operation) {
    try {
        return WithFileContext(file.shown, context, operation);
    } catch (const JobError& error) {
        if (file.path == file.shown) {
            throw; // as it is: its class may matter
        }
        throw JobError(error.File(), ShowName(error.what(), file));
    }
}

/// Verifies that a path is neither empty nor longer than kMaxPathBytes.
/// @throws JobError when it is
void RequirePathFits(const FileName& file);

/// Verifies that a file exists under a name and is not a directory.
/// @throws JobError when the file is missing, is a directory, or has too long a path
void RequireReadable(const FileName& file);

/// Verifies that an output is not the input, under another name or through links either.
/// @throws JobError that names both when they are the same file
void RequireDifferentFiles(const FileName& input, const FileName& output);

/// Returns the directory of a path; "." for a plain name.
std::string ParentDirectory(const std::string& path);

/// Verifies that there is a directory, or that it can be created with its parents.
/// @throws JobError with the system's reason when not
void RequireDirectory(const std::string& path);

/// Creates a directory and its parents. An existing directory is left as it is.
/// @throws JobError with the system's reason
void MakeDirectory(const std::string& path);

} // namespace kel::host
