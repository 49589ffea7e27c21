#include "PluginLoader.h"

#include "Errors.h"
#include "Text.h"

#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <optional>
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

using EntryPoint = void (*)(const char*);

std::string LoaderError() {
    const char* error = dlerror();
    return Escape(error != nullptr ? error : "the loader gave no reason");
}

fs::path FolderBesideProgram() {
    return (fs::read_symlink("/proc/self/exe").parent_path() / KEL_HOST_PLUGIN_FOLDER)
        .lexically_normal();
}

std::vector<fs::path> SearchFolders() {
    const char* variable = secure_getenv("KEL_PLUGIN_PATH");
    if (variable == nullptr || *variable == '\0') {
        return {FolderBesideProgram()};
    }
    std::vector<fs::path> folders;
    std::istringstream list(variable);
    for (std::string folder; std::getline(list, folder, ':');) {
        // An empty entry would be the current folder, which is never searched.
        if (!folder.empty()) {
            folders.emplace_back(folder);
        }
    }
    return folders;
}

bool IsPluginName(const std::string& name) {
    return name.rfind("libkel", 0) == 0 && fs::path(name).extension() == ".so";
}

std::vector<fs::path> PluginsIn(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsPluginName(entry->path().filename().string())) {
            files.push_back(entry->path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

LoadedPlugin::LoadedPlugin(const fs::path& file)
    // A name without a slash would be looked for in the system's library folders.
    : m_path(fs::absolute(file).string()),
      m_library(dlopen(m_path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_library == nullptr) {
        throw JobError(
            fmt::format("the plug-in {} can not be loaded: {}", Escape(m_path), LoaderError()));
    }
    const auto entryPoint = reinterpret_cast<EntryPoint>(dlsym(m_library, kEntryPoint));
    std::string failure;
    if (entryPoint == nullptr) {
        failure = fmt::format("has no entry point {}: {}", kEntryPoint, LoaderError());
    } else {
        try {
            entryPoint(m_path.c_str());
            return;
        } catch (const std::exception& error) {
            failure = fmt::format("failed in {}: {}", kEntryPoint, Escape(error.what()));
        } catch (...) {
            failure = fmt::format("failed in {} with an exception of an unknown type", kEntryPoint);
        }
    }
    UnregisterFactories(m_path);
    dlclose(m_library);
    throw JobError(fmt::format("the plug-in {} {}", Escape(m_path), failure));
}

LoadedPlugin::~LoadedPlugin() {
    if (m_library != nullptr) {
        UnregisterFactories(m_path);
        dlclose(m_library);
    }
}

LoadedPlugin::LoadedPlugin(LoadedPlugin&& other) noexcept
    : m_path(std::move(other.m_path)), m_library(std::exchange(other.m_library, nullptr)) {}

std::vector<LoadedPlugin> LoadPlugins(const std::optional<std::string>& file,
                                      std::ostream& warnings) {
    std::vector<LoadedPlugin> plugins;
    if (file.has_value()) {
        plugins.emplace_back(*file);
        return plugins;
    }
    std::vector<std::string> searched;
    std::set<fs::path> seen;
    for (const fs::path& folder : SearchFolders()) {
        std::error_code unresolved;
        if (!seen.insert(fs::weakly_canonical(folder, unresolved)).second) {
            continue;
        }
        searched.push_back(Escape(folder.string()));
        for (const fs::path& candidate : PluginsIn(folder)) {
            try {
                plugins.emplace_back(candidate);
            } catch (const JobError& error) {
                fmt::print(warnings, "kelhost: warning: {}\n", error.what());
            }
        }
    }
    if (plugins.empty()) {
        throw JobError(fmt::format("no plug-in was found in {}; name one with --plugin FILE or its "
                                   "folder in KEL_PLUGIN_PATH",
                                   fmt::join(searched, ", ")));
    }
    return plugins;
}

} // namespace kel::host
