/// Outputs that appear under their name only when they are complete.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace kel::host {

/// A file that is written under a temporary name, in the directory of the requested name and with
/// the same extension, and takes the requested name when it is complete. Until then the requested
/// name keeps what it had before. Without Commit, nothing is left at the end of the object.
///
/// The temporary names are ".kelhost-PROCESS-MACHINE-XXXXXX.part" and the extension, so that files
/// left by a killed process are recognisable. One thread at a time.
class OutputFile {
public:
    /// Creates the temporary file.
    /// @param path the requested name
    /// @param replace whether an existing file may be replaced
    /// @throws JobError when the name cannot be written, or exists and may not be replaced
    OutputFile(std::string path, bool replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The requested name.
    const std::string& Path() const { return m_path; }

    /// The name to write to.
    const std::string& TemporaryPath() const { return m_temporaryPath; }

    /// Verifies that the file system has space for so many bytes, as far as that can be known.
    /// @throws JobError with both numbers when it does not
    void RequireSpace(std::uint64_t bytes) const;

    /// Describes why the file could not grow to so many bytes, in words that follow an error: a
    /// full disk or a limit of file sizes. Empty when no reason is known.
    std::string DescribeShortage(std::uint64_t bytes) const;

    /// Flushes the file to disk and gives it the requested name.
    /// @throws JobError when that fails; nothing is left then
    void Commit();

private:
    std::string m_path;
    std::string m_temporaryPath; // empty once it is gone
    bool m_replace;
};

/// Returns the beginning of the temporary names of a process. It differs between machines and
/// containers, which may share a directory and use the same process number.
std::string TemporaryPrefix(pid_t process);

/// Removes the temporary files that a dead process of this machine left in a directory.
void RemoveTemporaryFiles(const std::string& directory, pid_t process);

} // namespace kel::host
