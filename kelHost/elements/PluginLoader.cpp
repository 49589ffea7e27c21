#include "elements/PluginLoader.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "elements/SharedLibrary.h"

#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kEntryPoint = "RegisterAll";

std::string LoaderError() {
    const char* error = dlerror();
    return error != nullptr ? error : "the loader gave no reason";
}

// Opens a library. The loader would search the system's directories for a name without a slash.
void* OpenLibrary(const std::string& path) {
    const std::string obstacle = FindLoadObstacle(path);
    void* library = obstacle.empty() ? dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        throw JobError(path,
                       "cannot load the plug-in: " + (obstacle.empty() ? LoaderError() : obstacle));
    }
    return library;
}

fs::path DirectoryNextToProgram() {
    return (fs::read_symlink("/proc/self/exe").parent_path() / KEL_HOST_PLUGIN_DIRECTORY)
        .lexically_normal();
}

// The core may be in another place than the program, such as a directory of one processor's
// libraries.
fs::path DirectoryNextToCore() {
    Dl_info core{};
    dladdr(reinterpret_cast<const void*>(&GetRegistrations), &core);
    return (fs::absolute(core.dli_fname).parent_path() / "kel").lexically_normal();
}

// The directories of KEL_PLUGIN_PATH; none when it is not set. The C library hides it from a
// process with raised rights, whose caller must not choose what it loads.
std::vector<fs::path> DirectoriesInVariable() {
    const char* variable = secure_getenv("KEL_PLUGIN_PATH");
    if (variable == nullptr || *variable == '\0') {
        return {};
    }
    std::vector<fs::path> directories;
    std::istringstream list(variable);
    for (std::string directory; std::getline(list, directory, ':');) {
        // An empty entry would be the current directory, which is never searched.
        if (!directory.empty()) {
            directories.emplace_back(directory);
        }
    }
    if (directories.empty()) {
        throw JobError(InvalidValue("KEL_PLUGIN_PATH", variable,
                                    "directories of plug-ins, separated by colons")
                           .what());
    }
    return directories;
}

bool IsPluginName(const std::string& name) {
    return name.rfind("libkel", 0) == 0 && fs::path(name).extension() == ".so";
}

std::vector<fs::path> PluginsIn(const fs::path& directory) {
    std::vector<fs::path> files;
    // The C++ library's own iterator ends the process where memory runs out.
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        if (IsPluginName(entry->d_name)) {
            files.push_back(directory / entry->d_name);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

PluginLibrary::PluginLibrary(const fs::path& file)
    : m_path(fs::absolute(file).string()), m_library(OpenLibrary(m_path)) {}

PluginLibrary::~PluginLibrary() {
    if (IsLoaded()) {
        dlclose(m_library);
    }
}

PluginLibrary::PluginLibrary(PluginLibrary&& other) noexcept
    : m_path(std::move(other.m_path)), m_library(std::exchange(other.m_library, nullptr)) {}

PluginLibrary::EntryPoint PluginLibrary::FindEntryPoint() const {
    const auto entryPoint = reinterpret_cast<EntryPoint>(dlsym(m_library, kEntryPoint));
    if (entryPoint == nullptr) {
        throw JobError(m_path, fmt::format("the plug-in has no entry point {}: {}", kEntryPoint,
                                           LoaderError()));
    }
    return entryPoint;
}

LoadedPlugin::LoadedPlugin(const fs::path& file) : m_library(file) {
    const PluginLibrary::EntryPoint entryPoint = m_library.FindEntryPoint();
    std::string failure;
    try {
        entryPoint(Path().c_str());
        return;
    } catch (const std::exception& error) {
        failure = fmt::format(": {}", error.what());
    } catch (...) {
        failure = " with an exception of an unknown type";
    }
    UnregisterFactories(Path());
    throw JobError(Path(), fmt::format("the plug-in failed in {}{}", kEntryPoint, failure));
}

LoadedPlugin::~LoadedPlugin() {
    if (m_library.IsLoaded()) {
        UnregisterFactories(Path());
    }
}

std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      std::ostream& warnings) {
    std::vector<LoadedPlugin> plugins;
    std::set<fs::path> seen;
    const auto isNew = [&seen](const fs::path& path) {
        std::error_code unresolved;
        return seen.insert(fs::weakly_canonical(path, unresolved)).second;
    };
    for (const std::string& file : files) {
        if (file.empty()) {
            throw InvalidValue("--plugin", file, "the name of a file");
        }
        if (isNew(file)) {
            plugins.emplace_back(file);
        }
    }
    if (!plugins.empty()) {
        return plugins;
    }
    std::vector<std::string> searched;
    std::vector<fs::path> directories = DirectoriesInVariable();
    const bool isDefaultSearch = directories.empty();
    if (isDefaultSearch) {
        directories = {DirectoryNextToProgram(), DirectoryNextToCore()};
    }
    for (const fs::path& directory : directories) {
        if (!isNew(directory)) {
            continue;
        }
        // The plug-in may be installed in both places.
        if (isDefaultSearch && !plugins.empty()) {
            break;
        }
        searched.push_back(directory.string());
        for (const fs::path& candidate : PluginsIn(directory)) {
            try {
                plugins.emplace_back(candidate);
            } catch (const JobError& error) {
                warnings << WarningLine(DescribeError(error).message) << "\n";
            }
        }
    }
    if (plugins.empty()) {
        throw JobError(fmt::format("found no plug-in in {}; name one with --plugin FILE or its "
                                   "directory in KEL_PLUGIN_PATH",
                                   fmt::join(searched, ", ")));
    }
    return plugins;
}

} // namespace kel::host
