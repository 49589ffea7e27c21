/// Loading the plug-ins of the program. Used before the program starts threads.
#pragma once

#include "base/Errors.h"

#include <PluginLoading.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kel::host {

/// A plug-in's library, as kel::PluginLibrary.
class PluginLibrary : public kel::PluginLibrary {
public:
    /// @throws JobError with the path and the reason why it is not loaded
    explicit PluginLibrary(const std::filesystem::path& file,
                           PluginOrigin origin = PluginOrigin::Named);

    /// @throws JobError with the path when it has no function RegisterAll
    EntryPoint FindEntryPoint() const;
};

/// A loaded plug-in with its elements registered, as kel::LoadedPlugin.
class LoadedPlugin : public kel::LoadedPlugin {
public:
    /// @throws JobError as PluginLibrary does, or with the path and the message of the entry
    /// point's exception
    explicit LoadedPlugin(const std::filesystem::path& file,
                          PluginOrigin origin = PluginOrigin::Named);
};

/// Receives the messages of LoadPlugins while it runs.
struct LoadObserver {
    /// A line about a plug-in or a directory that is not used.
    std::function<void(const std::string& line)> onWarning;
    /// A plug-in has called exit. The process ends with status 1 afterwards.
    std::function<void(const JobError& error)> onExit;
};

/// Loads the host's plug-ins: the given files in their order, each once; without files, those that
/// kel::FindPlugins finds, also next to the program. One of those that cannot be loaded is skipped
/// with a warning. A warning also names each element that two plug-ins register.
/// @param files values of --plugin
/// @throws JobError when there is none, with the searched directories, or when one of @p files
/// cannot be loaded; UsageError when one is named and the process runs with raised rights
std::vector<LoadedPlugin> LoadPlugins(const std::vector<std::string>& files,
                                      const LoadObserver& observer);

} // namespace kel::host
