/// Finding and loading plug-ins.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace kel::host {

/// A loaded plug-in with its elements registered. Goes in this order: registrations, then the
/// library; elements made from it must be gone before.
class LoadedPlugin {
public:
    /// Loads a plug-in and calls its entry point, with the path as the name of its registrations.
    /// @throws JobError with the path, and the loader's own words or what the entry point threw
    explicit LoadedPlugin(const std::filesystem::path& file);
    ~LoadedPlugin();
    LoadedPlugin(LoadedPlugin&& other) noexcept;
    LoadedPlugin& operator=(LoadedPlugin&&) = delete;
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    /// The path that it was loaded from, which is also the name of its registrations.
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    void* m_library;
};

/// Loads the plug-ins that the host works with: the files that were asked for, in their order, each
/// once; else those in the folders of KEL_PLUGIN_PATH (separated by colons; not looked at when the
/// process runs with raised rights); else those in the place beside the program. In a folder, every
/// libkel*.so is one; one that can not be loaded is warned of and left out.
/// @param files what --plugin names, if anything
/// @param warnings where plug-ins that were left out are named
/// @throws JobError when there is none, with where was looked, or one of @p files can not be
/// loaded; UsageError when the name of one is empty
std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      std::ostream& warnings);

} // namespace kel::host
