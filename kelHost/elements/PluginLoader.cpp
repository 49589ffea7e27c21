#include "elements/PluginLoader.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "container/SndfileLibrary.h"
#include "elements/Elements.h"
#include "elements/PluginTrust.h"
#include "elements/SharedLibrary.h"

#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
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
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kEntryPoint = "RegisterAll";
constexpr const char* kRaisedRights =
    "kelhost runs with raised rights (set-user-ID, set-group-ID or capabilities) and loads only "
    "installed plug-ins";

std::string LoaderError() {
    const char* error = dlerror();
    return error != nullptr ? error : "the loader gave no reason";
}

// Those who may change plug-ins, as at the start.
const TrustedWriters& Trusted() {
    static const TrustedWriters trusted = FindTrustedWriters();
    return trusted;
}

// Describes why a library must not be loaded; empty when the loader may try.
std::string FindObstacle(const std::string& path, PluginOrigin origin) {
    if (origin == PluginOrigin::Named && HasRaisedRights()) {
        return kRaisedRights;
    }
    try {
        const std::string obstacle = FindPathObstacle(path, PathUse::Library, Trusted());
        return obstacle.empty() ? FindLoadObstacle(path) : obstacle;
    } catch (const std::system_error& error) {
        // In the loader's words. It is not asked: the file may appear in the meantime.
        return fmt::format("{}: cannot open shared object file: {}", path, error.code().message());
    }
}

// Opens a library. The loader would search the system's directories for a name without a slash.
void* OpenLibrary(const std::string& path, PluginOrigin origin) {
    const std::string obstacle = FindObstacle(path, origin);
    void* library = obstacle.empty() ? dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        throw JobError(path,
                       "cannot load the plug-in: " + (obstacle.empty() ? LoaderError() : obstacle));
    }
    return library;
}

// While one exists, a plug-in is being loaded. If it calls exit, the program would end with the
// plug-in's status, such as 0, without having done anything.
class ExitGuard {
public:
    ExitGuard(std::string plugin, const LoadObserver& observer)
        : m_plugin(std::move(plugin)), m_observer(observer) {
        static const bool isRegistered =
            std::atexit(&ExitGuard::OnExit) == 0 && std::at_quick_exit(&ExitGuard::OnExit) == 0;
        if (!isRegistered) {
            throw JobError(kNoMemory);
        }
        s_current = this;
    }
    ~ExitGuard() { s_current = nullptr; }
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;

private:
    // Runs before the destructors of objects that existed when the first plug-in was loaded.
    static void OnExit() {
        // A process that the plug-in has started may end.
        if (s_current != nullptr && s_current->m_process == getpid()) {
            static_cast<void>(std::fflush(nullptr)); // what the plug-in has printed
            s_current->m_observer.onExit(
                JobError(s_current->m_plugin, "cannot load the plug-in: it called exit"));
            _exit(kFailure);
        }
    }

    static const ExitGuard* s_current;

    std::string m_plugin;
    const LoadObserver& m_observer;
    pid_t m_process = getpid();
};

const ExitGuard* ExitGuard::s_current = nullptr;

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
std::vector<fs::path> DirectoriesInVariable(const LoadObserver& observer) {
    const char* variable = secure_getenv("KEL_PLUGIN_PATH");
    if (variable == nullptr || *variable == '\0') {
        return {};
    }
    std::vector<fs::path> directories;
    std::istringstream list(std::string(variable) + ":"); // an empty last entry is an entry
    for (std::string directory; std::getline(list, directory, ':');) {
        // It would depend on the current directory, which is never searched.
        if (fs::path(directory).is_absolute()) {
            directories.emplace_back(directory);
        } else {
            observer.onWarning(
                WarningLine(fmt::format("KEL_PLUGIN_PATH: cannot search \"{}\": it is not an "
                                        "absolute path",
                                        directory)));
        }
    }
    if (directories.empty()) {
        throw JobError(InvalidValue("KEL_PLUGIN_PATH", variable,
                                    "absolute paths of directories, separated by colons")
                           .what());
    }
    return directories;
}

// Returns whether a directory may be searched; warns of one that others can change.
bool MaySearch(const fs::path& directory, const LoadObserver& observer) {
    try {
        const std::string obstacle =
            FindPathObstacle(directory, PathUse::SearchDirectory, Trusted());
        if (!obstacle.empty()) {
            observer.onWarning(WarningLine(
                fmt::format("{}: cannot search for plug-ins: {}", directory.string(), obstacle)));
        }
        return obstacle.empty();
    } catch (const std::system_error&) {
        return false; // it does not exist
    }
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

// Paths that were used, whatever their spelling.
class SeenPaths {
public:
    bool Add(const fs::path& path) {
        std::error_code unresolved;
        return m_seen.insert(fs::weakly_canonical(path, unresolved)).second;
    }

private:
    std::set<fs::path> m_seen;
};

// A plug-in is bound completely when it is loaded, so that the loader reports a missing function.
// The libraries that it brings with it would be, too: most functions of a dozen codecs, for
// nothing. libsndfile is already there then, and each of its functions is bound when it is called.
void BindSndfileLazily() {
    try {
        Sndfile();
    } catch (const JobError&) { // NOLINT(bugprone-empty-catch): the plug-ins that need it report it
    }
}

LoadedPlugin Load(const fs::path& file, PluginOrigin origin, const LoadObserver& observer) {
    const ExitGuard guard(fs::absolute(file).string(), observer);
    return LoadedPlugin(file, origin);
}

std::vector<LoadedPlugin> LoadFiles(const std::vector<std::string>& files,
                                    const LoadObserver& observer) {
    if (HasRaisedRights()) {
        throw UsageError(fmt::format("--plugin is refused: {}", kRaisedRights));
    }
    std::vector<LoadedPlugin> plugins;
    SeenPaths seen;
    for (const std::string& file : files) {
        if (file.empty()) {
            throw InvalidValue("--plugin", file, "the name of a file");
        }
        if (seen.Add(file)) {
            plugins.push_back(Load(file, PluginOrigin::Named, observer));
        }
    }
    return plugins;
}

std::vector<LoadedPlugin> LoadFromDirectories(const LoadObserver& observer) {
    std::vector<fs::path> directories = DirectoriesInVariable(observer);
    PluginOrigin origin = PluginOrigin::Named;
    if (directories.empty()) {
        directories = {DirectoryNextToProgram(), DirectoryNextToCore()};
        origin = PluginOrigin::Installed;
    }
    std::vector<LoadedPlugin> plugins;
    std::vector<std::string> searched;
    SeenPaths seen;
    for (const fs::path& directory : directories) {
        if (!seen.Add(directory)) {
            continue;
        }
        // The plug-in may be installed in both places.
        if (origin == PluginOrigin::Installed && !plugins.empty()) {
            break;
        }
        searched.push_back(directory.string());
        if (!MaySearch(directory, observer)) {
            continue;
        }
        for (const fs::path& candidate : PluginsIn(directory)) {
            try {
                plugins.push_back(Load(candidate, origin, observer));
            } catch (const JobError& error) {
                observer.onWarning(WarningLine(DescribeError(error).message));
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

} // namespace

PluginLibrary::PluginLibrary(const fs::path& file, PluginOrigin origin)
    : m_path(fs::absolute(file).string()), m_library(OpenLibrary(m_path, origin)) {}

PluginLibrary::~PluginLibrary() {
    if (IsLoaded()) {
        dlclose(m_library);
    }
}

PluginLibrary::PluginLibrary(PluginLibrary&& other) noexcept
    : m_path(std::move(other.m_path)), m_library(std::exchange(other.m_library, nullptr)) {}

PluginLibrary::EntryPoint PluginLibrary::FindEntryPoint() const {
    void* entryPoint = dlsym(m_library, kEntryPoint);
    if (entryPoint == nullptr) {
        throw JobError(m_path, fmt::format("the plug-in has no entry point {}: {}", kEntryPoint,
                                           LoaderError()));
    }
    if (!IsFunction(entryPoint)) {
        throw JobError(m_path, fmt::format("the plug-in has no entry point {}: its symbol of this "
                                           "name is not a function",
                                           kEntryPoint));
    }
    return reinterpret_cast<EntryPoint>(entryPoint);
}

LoadedPlugin::LoadedPlugin(const fs::path& file, PluginOrigin origin) : m_library(file, origin) {
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
                                      const LoadObserver& observer) {
    BindSndfileLazily();
    std::vector<LoadedPlugin> plugins =
        files.empty() ? LoadFromDirectories(observer) : LoadFiles(files, observer);
    for (const std::string& duplicate : DescribeDuplicates()) {
        observer.onWarning(WarningLine(duplicate));
    }
    return plugins;
}

} // namespace kel::host
