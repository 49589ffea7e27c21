/// Finding and loading plug-ins.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// A plug-in's library. Nothing of it is called; it is unloaded at the end.
class PluginLibrary {
public:
    /// The function that a host calls in a plug-in, with the name for its registrations.
    using EntryPoint = void (*)(const char*);

    /// Loads the library, with all its symbols resolved.
    /// @throws JobError with the path and the loader's own words
    explicit PluginLibrary(const std::filesystem::path& file);
    ~PluginLibrary();
    PluginLibrary(PluginLibrary&& other) noexcept;
    PluginLibrary& operator=(PluginLibrary&&) = delete;
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    /// The absolute path that it was loaded from.
    const std::string& Path() const { return m_path; }

    /// False for one that was moved from.
    bool IsLoaded() const { return m_library != nullptr; }

    /// Its function RegisterAll.
    /// @throws JobError with the path, the name and the loader's own words when it has none
    EntryPoint FindEntryPoint() const;

private:
    std::string m_path;
    void* m_library;
};

/// A loaded plug-in with its elements registered. Goes in this order: registrations, then the
/// library; elements made from it must be gone before.
class LoadedPlugin {
public:
    /// Loads a plug-in and calls its entry point, with the path as the name of its registrations.
    /// @throws JobError with the path, and the loader's own words or what the entry point threw
    explicit LoadedPlugin(const std::filesystem::path& file);
    ~LoadedPlugin();
    LoadedPlugin(LoadedPlugin&& other) noexcept = default;
    LoadedPlugin& operator=(LoadedPlugin&&) = delete;
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    /// The path that it was loaded from, which is also the name of its registrations.
    const std::string& Path() const { return m_library.Path(); }

private:
    PluginLibrary m_library;
};

/// Loads the plug-ins that the host works with: the files that were asked for, in their order, each
/// once; else those in the directories of KEL_PLUGIN_PATH (separated by colons; not looked at when
/// the process runs with raised rights); else those in the place beside the program, or, where that
/// has none, beside the core's library. The current directory is never searched. In a directory,
/// every libkel*.so is one; one that cannot be loaded is warned of and left out.
/// @param files what --plugin names, if anything
/// @param warnings where plug-ins that were left out are named
/// @throws JobError when there is none, with where was looked, or one of @p files cannot be
/// loaded; UsageError when the name of one is empty
std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      std::ostream& warnings);

} // namespace kel::host
