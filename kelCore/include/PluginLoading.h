/// Finding and loading plug-ins, for hosts.
/// Any thread may call all functions, while no other thread changes the environment. Two threads
/// must not load the same file at the same time.
///
/// Nothing here is logged: a host loads plug-ins before its user needs a log, and decides itself
/// what to do about a plug-in that is missing.
/// @ingroup plugins
#pragma once

#include "Export.h"
#include "KELRuntimeError.h"

#include <memory>
#include <string>
#include <vector>

namespace kel {

/// The origin of a plug-in.
enum class PluginOrigin {
    Named,    ///< the user, by its name or its directory
    Installed ///< it is next to the core's library, or in a directory of the host
};

/// A plug-in that cannot be loaded. what() is "PATH: PROBLEM".
class KEL_CORE_EXPORT PluginError : public KELRuntimeError {
public:
    /// @param path the plug-in's absolute path
    /// @param problem the failure and its cause: "cannot load the plug-in: file too short"
    /// @param symbol the function that the failure is about; empty for the whole library
    /// @param cause the message of the loader or of the function; may be empty
    PluginError(std::string path, std::string problem, std::string symbol, std::string cause);
    /// Copies all texts.
    PluginError(const PluginError& other) = default;
    /// Copies all texts.
    PluginError& operator=(const PluginError& other) = default;
    ~PluginError() override;

    /// The plug-in's absolute path.
    const std::string& Path() const { return m_path; }

    /// The failure and its cause, without the path.
    const std::string& Problem() const { return m_problem; }

    /// "RegisterAll" when the plug-in was loaded and this function is missing or failed; else
    /// empty.
    const std::string& Symbol() const { return m_symbol; }

    /// The message of the loader, of the check that refused the file, or of the function's
    /// exception; empty if that is no std::exception.
    const std::string& Cause() const { return m_cause; }

private:
    std::string m_path;
    std::string m_problem;
    std::string m_symbol;
    std::string m_cause;
};

/// A plug-in's library, of which nothing is registered. Loading it runs only its initialisers; it
/// is unloaded at the end. Most hosts use LoadedPlugin instead.
class KEL_CORE_EXPORT PluginLibrary {
public:
    /// The function that a host calls in a plug-in; its argument names the registrations.
    using EntryPoint = void (*)(const char* name);

    /// Loads a library, with all its symbols resolved. The file is refused when it is no regular
    /// file, when other users could have written it, and when the user named it while
    /// HasRaisedRights.
    ///
    /// Other users are all but root, the user who runs the program, and those who can replace the
    /// program or the core's library. A file is also refused for a directory or a link on the way
    /// to it that they can change.
    /// @param file its path; a relative one begins in the current directory
    /// @param origin who chose it
    /// @throws PluginError with the reason
    explicit PluginLibrary(const std::string& file, PluginOrigin origin = PluginOrigin::Named);

    /// Returns its function RegisterAll. It may be called as long as the library is loaded.
    /// @throws PluginError when it has none, or something else of this name
    EntryPoint FindEntryPoint() const;

    /// Absolute path of the file.
    const std::string& Path() const { return m_path; }

    /// False after a move to another object.
    bool IsLoaded() const { return m_library != nullptr; }

private:
    struct Unload {
        KEL_CORE_EXPORT void operator()(void* library) const;
    };

    std::string m_path;
    std::unique_ptr<void, Unload> m_library;
};

/// A loaded plug-in with its elements registered. At the end it removes the registrations, then
/// unloads the library. Release its elements, and all that they have made, before: their code is in
/// the library.
class KEL_CORE_EXPORT LoadedPlugin {
public:
    /// Calls the entry point of a library, with the path as the name of its registrations.
    /// @throws PluginError when it has no entry point, with the message of the entry point's
    /// exception, or when registrations of this path exist already; nothing is registered then
    explicit LoadedPlugin(PluginLibrary library);
    ~LoadedPlugin();
    /// Takes over the library and its registrations; @p other then owns nothing.
    LoadedPlugin(LoadedPlugin&& other) noexcept = default;
    LoadedPlugin& operator=(LoadedPlugin&&) = delete;
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    /// Absolute path of the file, which is also the name of the registrations.
    const std::string& Path() const { return m_library.Path(); }

private:
    PluginLibrary m_library;
};

/// A plug-in that FindPlugins has found.
struct PluginFile {
    std::string path;                          ///< absolute
    PluginOrigin origin = PluginOrigin::Named; ///< who chose it
};

/// Result of FindPlugins.
struct PluginSearch {
    /// The plug-ins, in the order of the directories, in each by name.
    std::vector<PluginFile> files;
    /// The directories that were considered, in their order. Empty only when KEL_PLUGIN_PATH names
    /// none that may be searched.
    std::vector<std::string> directories;
    /// A line about each entry of KEL_PLUGIN_PATH that is ignored, and about each directory that is
    /// not searched because other users can change it.
    std::vector<std::string> warnings;
};

/// Loads a plug-in and registers its elements.
/// @param file its path; a relative one begins in the current directory
/// @throws PluginError as PluginLibrary and LoadedPlugin do
inline LoadedPlugin LoadPlugin(const std::string& file) {
    return LoadedPlugin(PluginLibrary(file));
}

/// Loads a plug-in that FindPlugins has found, as LoadPlugin does.
inline LoadedPlugin LoadPlugin(const PluginFile& file) {
    return LoadedPlugin(PluginLibrary(file.path, file.origin));
}

/// Finds plug-ins: every libkel*.so in the directories of KEL_PLUGIN_PATH, separated by colons.
/// Without this variable, and always while HasRaisedRights: those in the first directory that has
/// any, of @p hostDirectories and then the directory "kel" next to the core's library.
///
/// The current directory is never searched: entries of the variable that are empty or relative are
/// ignored with a warning. So are directories that other users can change, see PluginLibrary. A
/// directory that does not exist has no plug-ins. Nothing is loaded.
/// @param hostDirectories absolute paths, places of the host's own plug-ins
KEL_CORE_EXPORT PluginSearch FindPlugins(const std::vector<std::string>& hostDirectories = {});

/// Returns whether the process has rights that the user who started it does not have: it is
/// set-user-ID or set-group-ID, or its file has capabilities. This user must not choose code that
/// runs with these rights.
KEL_CORE_EXPORT bool HasRaisedRights();

} // namespace kel
