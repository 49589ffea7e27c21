#include "PluginTrustInternal.h"

#include "PluginLoading.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kel {

namespace fs = std::filesystem;

namespace {

// A file on the way to another one, or that file itself.
struct Place {
    std::string path; // contains no links
    struct stat status;
};

// Returns the root directory, all directories and links on the way to a file, and the file. Each is
// looked at after the directory that holds it. Throws std::system_error where the way ends before.
std::vector<Place> FollowPath(const fs::path& path) {
    constexpr int kMaxLinks = 40; // the kernel's own limit
    std::vector<Place> way;
    const auto look = [&way](const std::string& place) {
        way.push_back({place, {}});
        if (lstat(place.c_str(), &way.back().status) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
        return S_ISLNK(way.back().status.st_mode);
    };
    look("/");
    std::string place; // the directory that was reached; empty for the root
    std::string rest = path.string();
    for (int links = 0; !rest.empty();) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        const std::string name = rest.substr(0, slash);
        rest.erase(0, slash + 1);
        if (name == "..") {
            place.erase(std::min(place.rfind('/'), place.size()));
        } else if (!name.empty() && name != ".") {
            std::string next = place;
            next.append("/").append(name);
            if (!look(next)) {
                place = next;
                continue;
            }
            if (++links > kMaxLinks) {
                throw std::system_error(ELOOP, std::generic_category());
            }
            const std::string target = fs::read_symlink(next).string();
            place = target.front() == '/' ? "" : place;
            rest.insert(0, target + "/");
        }
    }
    return way;
}

// Entries of the user database, whose functions fill a buffer. Calls `use` for an entry that
// exists.
template <typename Entry, typename Id, typename Use>
bool WithEntry(int (*find)(Id, Entry*, char*, size_t, Entry**), Id id, Use use) {
    constexpr std::size_t kMaxBytes = std::size_t{1} << 20U;
    for (std::vector<char> texts(1024); texts.size() <= kMaxBytes; texts.resize(texts.size() * 2)) {
        Entry entry{};
        Entry* found = nullptr;
        const int error = find(id, &entry, texts.data(), texts.size(), &found);
        if (error != ERANGE) {
            return error == 0 && found != nullptr && use(entry);
        }
    }
    return false;
}

std::string NameOfUser(uid_t user) {
    std::string name = "number " + std::to_string(user);
    WithEntry<passwd>(getpwuid_r, user, [&](const passwd& entry) {
        name = entry.pw_name;
        return true;
    });
    return name;
}

std::string NameOfGroup(gid_t id) {
    std::string name = "number " + std::to_string(id);
    WithEntry<group>(getgrgid_r, id, [&](const group& entry) {
        name = entry.gr_name;
        return true;
    });
    return name;
}

// Returns whether a group is the private one of a user: the primary group, with the user's name
// and without other members. Debian creates one for each user.
bool IsPrivateGroup(gid_t id, uid_t user) {
    return WithEntry<passwd>(getpwuid_r, user, [&](const passwd& owner) {
        const std::string name = owner.pw_name;
        return owner.pw_gid == id && WithEntry<group>(getgrgid_r, id, [&](const group& entry) {
                   char** member = entry.gr_mem;
                   while (*member != nullptr && name == *member) {
                       ++member;
                   }
                   return name == entry.gr_name && *member == nullptr;
               });
    });
}

// In a sticky directory, only their owners can replace files.
bool IsSticky(const struct stat& status) {
    return S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
}

bool HasAccessControlList(const Place& place) {
    return lgetxattr(place.path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

// Describes who else can change a file or the entries of a directory; empty for no one.
std::string DescribeStranger(const Place& place, const TrustedWriters& trusted) {
    const struct stat& status = place.status;
    if (trusted.users.count(status.st_uid) == 0) {
        return place.path + " belongs to the user " + NameOfUser(status.st_uid) +
               ", who is neither root nor you";
    }
    // The permissions of a link have no meaning.
    if (S_ISLNK(status.st_mode) || IsSticky(status) || trusted.everyone) {
        return "";
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        return "every user can change " + place.path + "; use chmod o-w";
    }
    if ((status.st_mode & S_IWGRP) == 0) {
        return "";
    }
    // With a list, these bits are the largest rights of all its entries.
    if (HasAccessControlList(place)) {
        return "the access control list of " + place.path +
               " lets others change it; use setfacl -b";
    }
    if (trusted.groups.count(status.st_gid) == 0 && !IsPrivateGroup(status.st_gid, status.st_uid)) {
        return "the group " + NameOfGroup(status.st_gid) + " can change " + place.path +
               "; use chmod g-w";
    }
    return "";
}

// Describes why the file at the end of a path is of no use; empty where it is.
std::string DescribeWrongKind(mode_t mode, PathUse use) {
    if (use == PathUse::SearchDirectory) {
        return S_ISDIR(mode) ? "" : "it is not a directory";
    }
    return S_ISREG(mode)    ? ""
           : S_ISDIR(mode)  ? "it is a directory; name a file in it"
           : S_ISFIFO(mode) ? "it is a named pipe"
                            : "it is a device or a socket";
}

// Adds all who can replace a file.
void AddWriters(const fs::path& path, TrustedWriters& trusted) {
    try {
        for (const Place& place : FollowPath(path)) {
            const mode_t mode = place.status.st_mode;
            trusted.users.insert(place.status.st_uid);
            if (!S_ISLNK(mode) && !IsSticky(place.status)) {
                trusted.everyone = trusted.everyone || (mode & S_IWOTH) != 0;
                if ((mode & S_IWGRP) != 0) {
                    trusted.groups.insert(place.status.st_gid);
                }
            }
        }
    } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch)
        // It was removed while the program runs: it adds no one.
    }
}

} // namespace

TrustedWriters FindTrustedWriters() {
    TrustedWriters trusted;
    if (!HasRaisedRights()) {
        trusted.users.insert(geteuid());
    }
    std::error_code noProgram; // without /proc
    AddWriters(fs::read_symlink("/proc/self/exe", noProgram), trusted);
    Dl_info core{};
    if (dladdr(reinterpret_cast<const void*>(&FindPlugins), &core) != 0) {
        AddWriters(fs::absolute(core.dli_fname), trusted);
    }
    return trusted;
}

const TrustedWriters& Trusted() {
    static const TrustedWriters trusted = FindTrustedWriters();
    return trusted;
}

std::string FindPathObstacle(const fs::path& path, PathUse use, const TrustedWriters& trusted) {
    const std::vector<Place> way = FollowPath(path);
    const struct stat& end = way.back().status;
    std::string wrongKind = DescribeWrongKind(end.st_mode, use);
    if (!wrongKind.empty()) {
        return wrongKind;
    }
    for (const Place& place : way) {
        std::string stranger = DescribeStranger(place, trusted);
        if (!stranger.empty()) {
            return stranger;
        }
    }
    return IsSticky(end) && (end.st_mode & (S_IWGRP | S_IWOTH)) != 0
               ? "other users can create files in it; use a directory of your own"
               : "";
}

} // namespace kel
