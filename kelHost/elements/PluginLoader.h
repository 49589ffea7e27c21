/// Finding and loading plug-ins. Used before the program starts threads.
#pragma once

#include "base/Errors.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kel::host {

/// Who chose a plug-in.
enum class PluginOrigin {
    Named,    ///< the user, by its name or its directory
    Installed ///< it is next to the program or the core's library
};

/// A plug-in's library. Loading it runs only its initialisers; it is unloaded at the end.
class PluginLibrary {
public:
    /// The function that a host calls in a plug-in; its argument names the registrations.
    using EntryPoint = void (*)(const char*);

    /// Loads the library, with all its symbols resolved.
    /// @throws JobError with the path and the loader's message, or the reason why the file is not
    /// loaded: it is no regular file, other users could have written it (FindPathObstacle), or the
    /// user named it and the program runs with raised rights
    explicit PluginLibrary(const std::filesystem::path& file,
                           PluginOrigin origin = PluginOrigin::Named);
    ~PluginLibrary();
    PluginLibrary(PluginLibrary&& other) noexcept;
    PluginLibrary& operator=(PluginLibrary&&) = delete;
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    /// Absolute path of the file.
    const std::string& Path() const { return m_path; }

    /// False after a move to another object.
    bool IsLoaded() const { return m_library != nullptr; }

    /// Returns its function RegisterAll.
    /// @throws JobError with the path and the name when it has none, or something else of this name
    EntryPoint FindEntryPoint() const;

private:
    std::string m_path;
    void* m_library;
};

/// A loaded plug-in with its elements registered. At the end it removes the registrations, then
/// unloads the library; elements made from it must be destroyed before.
class LoadedPlugin {
public:
    /// Loads a plug-in and calls its entry point, with the path as the name of its registrations.
    /// @throws JobError as PluginLibrary does, or with the path and the message of the entry
    /// point's exception
    explicit LoadedPlugin(const std::filesystem::path& file,
                          PluginOrigin origin = PluginOrigin::Named);
    ~LoadedPlugin();
    LoadedPlugin(LoadedPlugin&& other) noexcept = default;
    LoadedPlugin& operator=(LoadedPlugin&&) = delete;
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    /// Path of the file, which is also the name of the registrations.
    const std::string& Path() const { return m_library.Path(); }

private:
    PluginLibrary m_library;
};

/// Receives the messages of LoadPlugins while it runs.
struct LoadObserver {
    /// A line about a plug-in or a directory that is not used.
    std::function<void(const std::string& line)> onWarning;
    /// A plug-in has called exit. The process ends with status 1 afterwards.
    std::function<void(const JobError& error)> onExit;
};

/// Loads the host's plug-ins: the given files in their order, each once; without files, those in
/// the directories of KEL_PLUGIN_PATH (separated by colons; ignored when the process runs with
/// raised rights); without that, those next to the program or, where it has none, next to the
/// core's library. The current directory is never searched: entries of KEL_PLUGIN_PATH that are not
/// absolute are skipped with a warning. In a directory, every libkel*.so is a plug-in; one that
/// cannot be loaded is skipped with a warning, and so is a directory that other users can change.
/// A warning also names each element that two plug-ins register.
/// @param files values of --plugin
/// @throws JobError when there is none, with the searched directories, or when one of @p files
/// cannot be loaded; UsageError when the name of one is empty, or when one is named and the process
/// runs with raised rights
std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      const LoadObserver& observer);

} // namespace kel::host
