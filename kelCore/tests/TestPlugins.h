/// Plug-ins in files of their own. One thread at a time.
#pragma once

#include <kelCore.h>

#include <TemporaryDirectory.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

/// Returns the path of a plug-in that was made for the tests.
inline std::string TestPlugin(const std::string& name) {
    return std::string(KEL_TEST_PLUGIN_DIRECTORY "/lib") + name + ".so";
}

/// Makes a link to one, with directories as needed; returns its path.
inline std::string LinkPlugin(const std::string& name, const std::string& link) {
    std::filesystem::create_directories(std::filesystem::path(link).parent_path());
    std::filesystem::create_symlink(TestPlugin(name), link);
    return link;
}

/// Returns the names of all registrations, which are the paths of the plug-ins.
inline std::vector<std::string> RegisteredNames() {
    std::vector<std::string> names;
    for (const Registration& registration : GetRegistrations()) {
        names.push_back(registration.name);
    }
    return names;
}

} // namespace kel::test
