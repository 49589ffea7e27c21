#include "PluginLoading.h"
#include "PluginTrustInternal.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace kel {

namespace fs = std::filesystem;

namespace {

// The core may be in another place than the program, such as a directory of one processor's
// libraries.
std::string DirectoryNextToCore() {
    Dl_info core{};
    dladdr(reinterpret_cast<const void*>(&FindPlugins), &core);
    return (fs::absolute(core.dli_fname).parent_path() / "kel").lexically_normal().string();
}

bool IsPluginName(const std::string& name) {
    return name.rfind("libkel", 0) == 0 && fs::path(name).extension() == ".so";
}

std::vector<std::string> PluginsIn(const std::string& directory) {
    std::vector<std::string> files;
    // The C++ library's own iterator ends the process where memory runs out.
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        if (IsPluginName(entry->d_name)) {
            files.push_back((fs::path(directory) / entry->d_name).string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Searches directories in their order, each once, whatever the spelling of its path.
class Search {
public:
    // Adds a directory and its plug-ins, unless other users can change it.
    void Add(const std::string& directory, PluginOrigin origin) {
        std::error_code unresolved;
        if (!m_seen.insert(fs::weakly_canonical(directory, unresolved)).second) {
            return;
        }
        m_result.directories.push_back(directory);
        if (MaySearch(directory)) {
            for (std::string& file : PluginsIn(directory)) {
                m_result.files.push_back({std::move(file), origin});
            }
        }
    }

    void Warn(const std::string& warning) { m_result.warnings.push_back(warning); }

    const PluginSearch& Result() const { return m_result; }

private:
    bool MaySearch(const std::string& directory) {
        try {
            const std::string obstacle =
                FindPathObstacle(directory, PathUse::SearchDirectory, Trusted());
            if (!obstacle.empty()) {
                Warn(directory + ": cannot search for plug-ins: " + obstacle);
            }
            return obstacle.empty();
        } catch (const std::system_error&) {
            return false; // it does not exist
        }
    }

    PluginSearch m_result;
    std::set<fs::path> m_seen;
};

void AddVariable(const std::string& variable, Search& search) {
    std::istringstream list(variable + ":"); // an empty last entry is an entry
    for (std::string directory; std::getline(list, directory, ':');) {
        // It would depend on the current directory, which is never searched.
        if (fs::path(directory).is_absolute()) {
            search.Add(directory, PluginOrigin::Named);
        } else {
            search.Warn("KEL_PLUGIN_PATH: cannot search \"" + directory +
                        "\": it is not an absolute path");
        }
    }
}

} // namespace

PluginSearch FindPlugins(const std::vector<std::string>& hostDirectories) {
    Search search;
    // The C library hides it from a process with raised rights, whose caller must not choose what
    // it loads.
    const char* variable = secure_getenv("KEL_PLUGIN_PATH");
    if (variable != nullptr && *variable != '\0') {
        AddVariable(variable, search);
        return search.Result();
    }
    std::vector<std::string> installed = hostDirectories;
    installed.push_back(DirectoryNextToCore());
    for (const std::string& directory : installed) {
        // The plug-in may be installed in several places.
        if (search.Result().files.empty()) {
            search.Add(directory, PluginOrigin::Installed);
        }
    }
    return search.Result();
}

} // namespace kel
