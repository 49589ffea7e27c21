/// Outputs that appear under their name only when they are whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace kel::host {

/// A file that is written under a temporary name, beside the name that was asked for and with the
/// same extension, and takes that name when it is whole. Until then nothing stands under the name
/// but what stood there before; when the object goes without Commit, nothing is left.
///
/// The temporary names are ".kelhost-PROCESS-MACHINE-XXXXXX.part" and the extension, so that what a
/// killed process leaves is recognisable.
class OutputFile {
public:
    /// Makes the temporary file.
    /// @param path the name that was asked for
    /// @param replace whether a file that stands there may be replaced
    /// @throws JobError when the name cannot be written, or is taken and may not be replaced
    OutputFile(std::string path, bool replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The name that was asked for.
    const std::string& Path() const { return m_path; }

    /// The name to write to.
    const std::string& TemporaryPath() const { return m_temporaryPath; }

    /// Makes sure that so many bytes have room where the file lies, as far as that can be known.
    /// @throws JobError when they do not, with both numbers
    void RequireSpace(std::uint64_t bytes) const;

    /// What keeps the file from growing to so many bytes, in words that follow an error: a full
    /// disk or a limit of the size of files. Empty when nothing is known to.
    std::string DescribeShortage(std::uint64_t bytes) const;

    /// Flushes the file to disk and gives it its name.
    /// @throws JobError when that fails; nothing is left then
    void Commit();

private:
    std::string m_path;
    std::string m_temporaryPath; // empty once it is gone
    bool m_replace;
};

/// The longest path, in bytes, that can be handed to an element: libsndfile cuts longer ones, and
/// would open another file.
constexpr std::size_t kMaxPathBytes = 1023;

/// The directory that a path lies in; "." for a plain name.
std::string ParentDirectory(const std::string& path);

/// What the temporary names of a process begin with. Where several machines or containers share a
/// directory, the same number of a process does not make the same name.
std::string TemporaryPrefix(pid_t process);

/// Removes the temporary files that a process of this machine which is gone has left in a
/// directory.
void RemoveTemporaryFiles(const std::string& directory, pid_t process);

/// True when both names reach the same file, by links too.
bool IsSameFile(const std::string& path1, const std::string& path2);

} // namespace kel::host
