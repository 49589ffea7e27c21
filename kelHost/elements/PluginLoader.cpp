#include "elements/PluginLoader.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "container/SndfileLibrary.h"
#include "elements/Elements.h"

#include <PluginLoading.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRaisedRights =
    "kelhost runs with raised rights (set-user-ID, set-group-ID or capabilities) and loads only "
    "installed plug-ins";

// Runs an operation on a plug-in; its failures become errors of the host.
template <typename Operation>
auto WithJobErrors(Operation operation) {
    try {
        return operation();
    } catch (const PluginError& error) {
        throw JobError(error.Path(), error.Problem());
    }
}

kel::PluginLibrary OpenLibrary(const std::string& file, PluginOrigin origin) {
    if (origin == PluginOrigin::Named && HasRaisedRights()) {
        throw JobError(fs::absolute(file).string(),
                       fmt::format("cannot load the plug-in: {}", kRaisedRights));
    }
    return WithJobErrors([&] { return kel::PluginLibrary(file, origin); });
}

kel::LoadedPlugin Register(kel::PluginLibrary library) {
    return WithJobErrors([&] { return kel::LoadedPlugin(std::move(library)); });
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
        if (seen.Add(file)) {
            plugins.push_back(Load(file, PluginOrigin::Named, observer));
        }
    }
    return plugins;
}

std::vector<LoadedPlugin> LoadFound(const LoadObserver& observer) {
    const PluginSearch search = FindPlugins({DirectoryNextToProgram().string()});
    for (const std::string& warning : search.warnings) {
        observer.onWarning(WarningLine(warning));
    }
    if (search.directories.empty()) {
        throw JobError(InvalidValue("KEL_PLUGIN_PATH", secure_getenv("KEL_PLUGIN_PATH"),
                                    "absolute paths of directories, separated by colons")
                           .what());
    }
    std::vector<LoadedPlugin> plugins;
    for (const PluginFile& file : search.files) {
        try {
            plugins.push_back(Load(file.path, file.origin, observer));
        } catch (const JobError& error) {
            observer.onWarning(WarningLine(DescribeError(error).message));
        }
    }
    if (plugins.empty()) {
        throw JobError(fmt::format("found no plug-in in {}; name one with --plugin FILE or its "
                                   "directory in KEL_PLUGIN_PATH",
                                   fmt::join(search.directories, ", ")));
    }
    return plugins;
}

} // namespace

PluginLibrary::PluginLibrary(const fs::path& file, PluginOrigin origin)
    : kel::PluginLibrary(OpenLibrary(file.string(), origin)) {}

PluginLibrary::EntryPoint PluginLibrary::FindEntryPoint() const {
    return WithJobErrors([this] { return kel::PluginLibrary::FindEntryPoint(); });
}

LoadedPlugin::LoadedPlugin(const fs::path& file, PluginOrigin origin)
    : kel::LoadedPlugin(Register(OpenLibrary(file.string(), origin))) {}

std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      const LoadObserver& observer) {
    BindSndfileLazily();
    std::vector<LoadedPlugin> plugins =
        files.empty() ? LoadFound(observer) : LoadFiles(files, observer);
    for (const std::string& duplicate : DescribeDuplicates()) {
        observer.onWarning(WarningLine(duplicate));
    }
    return plugins;
}

} // namespace kel::host
