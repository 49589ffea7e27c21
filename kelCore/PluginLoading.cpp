#include "PluginLoading.h"

#include "PluginFileInternal.h"
#include "PluginTrustInternal.h"
#include "Registry.h"

#include <algorithm>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/auxv.h>
#include <system_error>
#include <utility>
#include <vector>

namespace kel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kEntryPoint = "RegisterAll";

std::string LoaderError() {
    const char* error = dlerror();
    return error != nullptr ? error : "the loader gave no reason";
}

PluginError CannotLoad(const std::string& path, const std::string& cause) {
    return {path, "cannot load the plug-in: " + cause, "", cause};
}

PluginError NoEntryPoint(const std::string& path, const std::string& cause) {
    return {path, std::string("the plug-in has no entry point ") + kEntryPoint + ": " + cause,
            kEntryPoint, cause};
}

std::string AbsolutePath(const std::string& file) {
    if (file.empty()) {
        throw CannotLoad("\"\"", "its path is empty");
    }
    return fs::absolute(file).string();
}

// Describes why a library must not be loaded; empty when the loader may try.
std::string FindObstacle(const std::string& path, PluginOrigin origin) {
    if (origin == PluginOrigin::Named && HasRaisedRights()) {
        return "the program runs with raised rights (set-user-ID, set-group-ID or capabilities) "
               "and loads only installed plug-ins";
    }
    try {
        const std::string obstacle = FindPathObstacle(path, PathUse::Library, Trusted());
        return obstacle.empty() ? FindLoadObstacle(path) : obstacle;
    } catch (const std::system_error& error) {
        // In the loader's words. It is not asked: the file may appear in the meantime.
        return path + ": cannot open shared object file: " + error.code().message();
    }
}

// Opens a library. The loader would search the system's directories for a name without a slash.
void* OpenLibrary(const std::string& path, PluginOrigin origin) {
    const std::string obstacle = FindObstacle(path, origin);
    void* library = obstacle.empty() ? dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        throw CannotLoad(path, obstacle.empty() ? LoaderError() : obstacle);
    }
    return library;
}

bool HasRegistrations(const std::string& name) {
    const std::vector<Registration> all = GetRegistrations();
    return std::any_of(all.begin(), all.end(), [&name](const Registration& registration) {
        return registration.name == name;
    });
}

// The failure of an entry point, as text: the exception's code may be in the library.
struct Failure {
    std::string text; // continues "the plug-in failed in RegisterAll"; empty for none
    std::string cause;
};

Failure Register(PluginLibrary::EntryPoint entryPoint, const std::string& name) {
    try {
        entryPoint(name.c_str());
        return {};
    } catch (const std::exception& error) {
        return {std::string(": ") + error.what(), error.what()};
    } catch (...) {
        return {" with an exception of an unknown type", ""};
    }
}

} // namespace

PluginError::PluginError(std::string path, std::string problem, std::string symbol,
                         std::string cause)
    : KELRuntimeError(path + ": " + problem), m_path(std::move(path)),
      m_problem(std::move(problem)), m_symbol(std::move(symbol)), m_cause(std::move(cause)) {}

PluginError::~PluginError() = default;

PluginLibrary::PluginLibrary(const std::string& file, PluginOrigin origin)
    : m_path(AbsolutePath(file)), m_library(OpenLibrary(m_path, origin)) {}

PluginLibrary::EntryPoint PluginLibrary::FindEntryPoint() const {
    void* entryPoint = dlsym(m_library.get(), kEntryPoint);
    if (entryPoint == nullptr) {
        throw NoEntryPoint(m_path, LoaderError());
    }
    if (!IsFunction(entryPoint)) {
        throw NoEntryPoint(m_path, "its symbol of this name is not a function");
    }
    return reinterpret_cast<EntryPoint>(entryPoint);
}

void PluginLibrary::Unload::operator()(void* library) const {
    dlclose(library);
}

LoadedPlugin::LoadedPlugin(PluginLibrary library) : m_library(std::move(library)) {
    const PluginLibrary::EntryPoint entryPoint = m_library.FindEntryPoint();
    // The first of two owners would remove the registrations of the other one.
    if (HasRegistrations(Path())) {
        throw CannotLoad(Path(), "it is loaded already");
    }
    const Failure failure = Register(entryPoint, Path());
    if (!failure.text.empty()) {
        UnregisterFactories(Path());
        throw PluginError(Path(),
                          std::string("the plug-in failed in ") + kEntryPoint + failure.text,
                          kEntryPoint, failure.cause);
    }
}

LoadedPlugin::~LoadedPlugin() {
    if (m_library.IsLoaded()) {
        UnregisterFactories(Path());
    }
}

bool HasRaisedRights() {
    return getauxval(AT_SECURE) != 0;
}

} // namespace kel
