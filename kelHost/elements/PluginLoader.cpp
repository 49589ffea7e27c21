#include "elements/PluginLoader.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <Registry.h>

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <elf.h>
#include <exception>
#include <filesystem>
#include <fstream>
#include <ios>
#include <link.h>
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
    return Escape(error != nullptr ? error : "the loader gave no reason");
}

// What the loader does not tell of a library: it ends the process over one that was cut off, and
// calls one for another processor missing. Empty where it has words of its own.
std::string HiddenDamage(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    ElfW(Ehdr) header{};
    stream.read(reinterpret_cast<char*>(&header), sizeof header);
    constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    if (!stream || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != kClass) {
        return "";
    }
    // This very program is one for the right processor.
    ElfW(Ehdr) own{};
    std::ifstream("/proc/self/exe", std::ios::binary)
        .read(reinterpret_cast<char*>(&own), sizeof own);
    if (header.e_machine != own.e_machine) {
        return "it is for another processor";
    }
    stream.seekg(0, std::ios::end);
    const auto size = static_cast<std::uint64_t>(stream.tellg());
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment{};
        stream.seekg(static_cast<std::streamoff>(header.e_phoff + i * sizeof segment));
        if (!stream.read(reinterpret_cast<char*>(&segment), sizeof segment)) {
            return "";
        }
        const std::uint64_t end = segment.p_offset + segment.p_filesz;
        if (segment.p_type == PT_LOAD && end > size) {
            return fmt::format("it was cut off after {} bytes", size);
        }
    }
    return "";
}

// Opens a library. A name without a slash would be looked for in the system's directories.
void* OpenLibrary(const std::string& path) {
    const std::string damage = HiddenDamage(path);
    void* library = damage.empty() ? dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        throw JobError(fmt::format("the plug-in {} cannot be loaded: {}", Escape(path),
                                   damage.empty() ? LoaderError() : damage));
    }
    return library;
}

fs::path DirectoryBesideProgram() {
    return (fs::read_symlink("/proc/self/exe").parent_path() / KEL_HOST_PLUGIN_DIRECTORY)
        .lexically_normal();
}

// The core may lie elsewhere than the program, such as in the directory of one processor's
// libraries.
fs::path DirectoryBesideCore() {
    Dl_info core{};
    dladdr(reinterpret_cast<const void*>(&GetRegistrations), &core);
    return (fs::absolute(core.dli_fname).parent_path() / "kel").lexically_normal();
}

// The directories of KEL_PLUGIN_PATH; none when it is not set. The C library keeps it from a
// process with raised rights: whoever starts it must not choose what it loads.
std::vector<fs::path> DirectoriesOfVariable() {
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
        throw JobError(
            fmt::format("KEL_PLUGIN_PATH is \"{}\" and names no directory; name those of "
                        "the plug-ins, or unset it",
                        Escape(variable)));
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
        throw JobError(fmt::format("the plug-in {} has no entry point {}: {}", Escape(m_path),
                                   kEntryPoint, LoaderError()));
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
        failure = fmt::format(": {}", Escape(error.what()));
    } catch (...) {
        failure = " with an exception of an unknown type";
    }
    UnregisterFactories(Path());
    throw JobError(
        fmt::format("the plug-in {} failed in {}{}", Escape(Path()), kEntryPoint, failure));
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
            throw UsageError("--plugin needs the name of a file, and is empty");
        }
        if (isNew(file)) {
            plugins.emplace_back(file);
        }
    }
    if (!plugins.empty()) {
        return plugins;
    }
    std::vector<std::string> searched;
    std::vector<fs::path> directories = DirectoriesOfVariable();
    const bool isOwnChoice = directories.empty();
    if (isOwnChoice) {
        directories = {DirectoryBesideProgram(), DirectoryBesideCore()};
    }
    for (const fs::path& directory : directories) {
        if (!isNew(directory)) {
            continue;
        }
        // Installed twice, it is the same plug-in.
        if (isOwnChoice && !plugins.empty()) {
            break;
        }
        searched.push_back(Escape(directory.string()));
        for (const fs::path& candidate : PluginsIn(directory)) {
            try {
                plugins.emplace_back(candidate);
            } catch (const JobError& error) {
                fmt::print(warnings, "kelhost: warning: {}\n", error.what());
            }
        }
    }
    if (plugins.empty()) {
        throw JobError(fmt::format("no plug-in was found in {}; name one with --plugin FILE or its "
                                   "directory in KEL_PLUGIN_PATH",
                                   fmt::join(searched, ", ")));
    }
    return plugins;
}

} // namespace kel::host
