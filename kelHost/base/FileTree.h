/// Files of directory trees, in a fixed order. One thread at a time.
#pragma once

#include "base/Errors.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kel::host {

/// Identity of a directory, whatever its name.
struct DirectoryIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const DirectoryIdentity& other) const {
        return device == other.device && inode == other.inode;
    }
};

/// Returns the identity of the directory under a name; none when there is no directory. Symbolic
/// links are followed.
std::optional<DirectoryIdentity> FindDirectory(const std::string& path);

/// A pattern of names, as of the shell: "*.wav", "old", "2024/*.wav". A pattern with "/" is
/// compared with the path below the directory of the tree, any other one with the name. "*" and "?"
/// do not match "/". A "/" at the end matches only directories.
class NamePattern {
public:
    /// @param text not empty
    explicit NamePattern(std::string_view text);

    bool MatchesOnlyDirectories() const { return m_onlyDirectories; }

    /// @param path below the directory of the tree
    bool Matches(const char* path, bool isDirectory) const;

private:
    std::string m_text;
    bool m_isPath = false;
    bool m_onlyDirectories = false;
};

/// The files of a tree that are used.
struct TreeSelection {
    std::vector<NamePattern> include; ///< a file has to match one of these; empty: all files
    std::vector<NamePattern> exclude; ///< files and directories to leave out; stronger
    bool followLinks = false;
    std::optional<DirectoryIdentity> output; ///< not entered where it is inside of a tree
};

/// A file of a tree that is not used, because it is not a regular file.
struct UnusedFile {
    std::string path;
    bool isLink = false; ///< a symbolic link; otherwise a pipe, a socket or a device
};

/// The files of trees. Unfinished outputs (see OutputFile.h) do not belong to them.
class FileTree {
public:
    /// @param selection outlives the object
    explicit FileTree(const TreeSelection& selection) : m_selection(selection) {}

    /// Adds the paths of the files below a directory, in the order of their bytes. Looks only at
    /// directories, except on file systems that do not list kinds, and for links to follow. The
    /// directory itself may be a link. Directories that cannot be read, and links to a directory
    /// above them, are failures.
    void Add(const std::string& directory);

    /// Moves the paths out of the object.
    std::vector<std::string> TakeFiles() { return std::move(m_files); }

    const std::vector<UnusedFile>& UnusedFiles() const { return m_unused; }
    const std::vector<JobError>& Failures() const { return m_failures; }

private:
    enum class Kind { File, Directory, Link, Other };

    void Enter(const std::string& directory, bool isRoot);
    std::vector<std::string> List(const std::string& directory, int descriptor);
    void AddEntry(const std::string& path, Kind kind, std::vector<std::string>& directories);
    Kind KindOf(int directory, const char* name, unsigned char listed) const;
    bool IsSelected(const std::string& path, Kind kind) const;
    void Fail(const std::string& directory);

    const TreeSelection& m_selection;
    std::vector<std::string> m_files;
    std::vector<UnusedFile> m_unused;
    std::vector<JobError> m_failures;
    std::vector<DirectoryIdentity> m_entered; // the directories above, and the current one
    std::size_t m_below = 0;                  // offset in a path, after the directory of the tree
};

} // namespace kel::host
