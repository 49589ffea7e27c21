#include "base/FileTree.h"

#include "base/Descriptor.h"
#include "base/OutputFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::string Joined(const std::string& directory, const char* name) {
    std::string path;
    path.reserve(directory.size() + 1 + std::strlen(name)); // a tree may have a million
    path = directory;
    if (path.back() != '/') {
        path += '/';
    }
    return path += name;
}

} // namespace

std::optional<DirectoryIdentity> FindDirectory(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    return DirectoryIdentity{status.st_dev, status.st_ino};
}

NamePattern::NamePattern(std::string_view text) {
    while (text.size() > 1 && text.back() == '/') {
        text.remove_suffix(1);
        m_onlyDirectories = true;
    }
    m_isPath = text.find('/') != std::string_view::npos;
    m_text = text.substr(text.front() == '/' ? 1 : 0);
}

bool NamePattern::Matches(const char* path, bool isDirectory) const {
    if (m_onlyDirectories && !isDirectory) {
        return false;
    }
    const char* slash = std::strrchr(path, '/');
    const char* text = m_isPath || slash == nullptr ? path : slash + 1;
    return fnmatch(m_text.c_str(), text, FNM_PATHNAME) == 0;
}

void FileTree::Add(const std::string& directory) {
    const std::size_t files = m_files.size();
    const std::size_t unused = m_unused.size();
    const std::size_t failures = m_failures.size();
    m_below = directory.size() + (directory.back() == '/' ? 0 : 1);
    Enter(directory, true);
    // The order of a directory is any, and differs between two copies of it.
    const auto sort = [](auto& list, std::size_t first, const auto& path) {
        std::sort(list.begin() + static_cast<std::ptrdiff_t>(first), list.end(),
                  [&](const auto& a, const auto& b) { return path(a) < path(b); });
    };
    sort(m_files, files, [](const std::string& file) -> const std::string& { return file; });
    sort(m_unused, unused, [](const UnusedFile& file) -> const std::string& { return file.path; });
    sort(m_failures, failures,
         [](const JobError& error) -> const std::string& { return error.File(); });
}

void FileTree::Enter(const std::string& directory, bool isRoot) {
    const int follow = isRoot || m_selection.followLinks ? 0 : O_NOFOLLOW;
    const Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow));
    struct stat status {};
    if (opened.Number() < 0 || fstat(opened.Number(), &status) != 0) {
        Fail(directory);
        return;
    }
    const DirectoryIdentity identity{status.st_dev, status.st_ino};
    if (!isRoot && m_selection.output.has_value() && identity == *m_selection.output) {
        return;
    }
    if (std::find(m_entered.begin(), m_entered.end(), identity) != m_entered.end()) {
        m_failures.emplace_back(directory,
                                "is a link to a directory above it; leave it out with --exclude");
        return;
    }
    m_entered.push_back(identity);
    for (const std::string& below : List(directory, opened.Number())) {
        Enter(below, false);
    }
    m_entered.pop_back();
}

// Adds the files of a directory. Returns its directories, to be entered when it is closed: a deep
// tree needs no more descriptors than a flat one.
std::vector<std::string> FileTree::List(const std::string& directory, int descriptor) {
    std::vector<std::string> directories;
    // The C++ library's own iterator ends the process where memory runs out.
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(
        fdopendir(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)), closedir);
    if (entries == nullptr) {
        Fail(directory);
        return {};
    }
    const dirent* entry = nullptr;
    for (errno = 0; (entry = readdir(entries.get())) != nullptr; errno = 0) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && !IsTemporaryName(name)) {
            AddEntry(Joined(directory, entry->d_name),
                     KindOf(descriptor, entry->d_name, entry->d_type), directories);
        }
    }
    if (errno != 0) {
        Fail(directory);
    }
    return directories;
}

void FileTree::AddEntry(const std::string& path, Kind kind, std::vector<std::string>& directories) {
    if (!IsSelected(path, kind)) {
        return;
    }
    if (kind == Kind::File) {
        m_files.push_back(path);
    } else if (kind == Kind::Directory) {
        directories.push_back(path);
    } else {
        m_unused.push_back({path, kind == Kind::Link});
    }
}

FileTree::Kind FileTree::KindOf(int directory, const char* name, unsigned char listed) const {
    constexpr unsigned char kRegular = DT_REG;
    unsigned char type = listed;
    if (type == DT_UNKNOWN || (type == DT_LNK && m_selection.followLinks)) {
        struct stat status {};
        const int flags = m_selection.followLinks ? 0 : AT_SYMLINK_NOFOLLOW;
        // A link to nothing is opened as a file, which fails with the reason.
        const bool exists = fstatat(directory, name, &status, flags) == 0;
        type = exists ? static_cast<unsigned char>(IFTODT(status.st_mode)) : kRegular;
    }
    return type == DT_REG   ? Kind::File
           : type == DT_DIR ? Kind::Directory
           : type == DT_LNK ? Kind::Link
                            : Kind::Other;
}

bool FileTree::IsSelected(const std::string& path, Kind kind) const {
    const bool isDirectory = kind == Kind::Directory;
    const auto matchesOne = [&](const std::vector<NamePattern>& patterns) {
        return std::any_of(patterns.begin(), patterns.end(), [&](const NamePattern& pattern) {
            return pattern.Matches(path.c_str() + m_below, isDirectory);
        });
    };
    return !matchesOne(m_selection.exclude) &&
           (isDirectory || m_selection.include.empty() || matchesOne(m_selection.include));
}

void FileTree::Fail(const std::string& directory) {
    m_failures.emplace_back(directory,
                            fmt::format("cannot read the directory: {}", std::strerror(errno)));
}

} // namespace kel::host
