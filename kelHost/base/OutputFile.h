/// Outputs that appear under their name only when they are complete.
#pragma once

#include "base/Descriptor.h"
#include "base/FileName.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kel::host {

/// Kind of temporary path of an output.
enum class TemporaryName {
    None,     ///< no name where the file system supports that, so that even SIGKILL leaves nothing
    Requested ///< ends with the requested name, for writers that look at it
};

/// A file that takes the requested name when it is complete. Until then the requested name keeps
/// what it had before. Without Commit, nothing is left at the end of the object.
///
/// Other users may be able to change the names in the directory. So the file is created, flushed,
/// changed and linked only through descriptors. It has no name until Commit. Where the file system
/// does not support that, or the writer needs a name, the file is in a directory
/// ".kelhost-PROCESS-MACHINE-XXXXXX.part" that only this user can enter. The name of that directory
/// makes files left by a killed process recognisable.
///
/// A symbolic link as the requested name is followed: the file that it names is the output. It is
/// refused where another user can change it.
/// One thread at a time.
class OutputFile {
public:
    /// Creates the temporary file.
    /// @param path the requested name
    /// @param replace whether an existing file may be replaced
    /// @throws JobError when the name cannot be written, or exists and may not be replaced
    OutputFile(std::string path, bool replace, TemporaryName naming = TemporaryName::None);

    /// Opens an existing temporary file, which gets no name: the caller sends it elsewhere.
    /// @throws JobError when it cannot be opened
    explicit OutputFile(const FileName& unnamed);

    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The requested name.
    const std::string& Path() const { return m_path; }

    /// The path to write to, valid in this process.
    const std::string& TemporaryPath() const { return m_temporaryPath; }

    /// Verifies that the file system has space for so many bytes, as far as that can be known.
    /// @throws JobError with both numbers when it does not
    void RequireSpace(std::uint64_t bytes) const;

    /// Describes why the file could not grow to so many bytes, in words that follow an error: a
    /// full disk or a limit of file sizes. Empty when no reason is known, or the error states it.
    std::string DescribeShortage(std::uint64_t bytes, std::string_view error) const;

    /// Whether the file is on a network or user-space file system. These may lose data after they
    /// have accepted it, and report it late or never.
    bool MayFailLate() const;

    /// Flushes the file to disk, if it is to get a name. Called when the writer has closed it.
    /// Later reads come from the disk, as far as the system can forget what it has in memory.
    /// @return warnings: the file system may not support flushing
    /// @throws JobError when written data is lost
    std::vector<std::string> Flush();

    /// Gives the file the mode of the file that it replaces, except the set-id and sticky bits, and
    /// its owner, access control list and extended attributes of users. Called after Flush and
    /// before Commit; does nothing for a new file.
    /// @return warnings that name what could not be preserved
    /// @throws JobError when the mode cannot be set
    std::vector<std::string> KeepAttributes();

    /// Flush and KeepAttributes, for outputs that are not read in between.
    /// @return the warnings of both
    std::vector<std::string> Finish();

    /// Gives the file the requested name, if it is to get one. Called after Flush.
    /// @throws JobError when that fails; nothing is left then
    void Commit();

private:
    bool GetsName() const { return m_directory.Number() >= 0; }
    void CreateUnnamed();
    void CreateInPrivateDirectory();
    void MakeWritable();
    void MakePrivateDirectory();
    void RemovePrivateDirectory();
    void FollowReplacement();
    bool TakeName();
    bool ReplaceName();

    std::string m_path;
    std::string m_name; // in the directory
    bool m_replace;
    Descriptor m_directory;
    Descriptor m_file;
    std::optional<mode_t> m_mode; // of the finished file, where it differs until then
    std::string m_temporaryPath;
    // Used while the file, or a second name of it, needs a place of its own.
    Descriptor m_privateDirectory;
    std::string m_privateName;
    bool m_isNamed = false; // the file has the name m_name in the private directory
};

/// Verifies that a file can be created under a name, as far as that can be known without creating
/// it.
/// @param replace whether an existing file may be replaced
/// @param makesDirectory whether a missing directory is created, too
/// @throws JobError when it cannot
void RequireCreatable(const std::string& path, bool replace, bool makesDirectory);

/// Returns the beginning of the names of a process's private directories. It differs between
/// machines and containers, which may share a directory and use the same process number.
std::string TemporaryPrefix(pid_t process);

/// Returns true for the name of a private directory of any process.
bool IsTemporaryName(std::string_view name);

/// Removes the unfinished files that a dead process of this machine left in a directory.
void RemoveTemporaryFiles(const std::string& directory, pid_t process);

} // namespace kel::host
