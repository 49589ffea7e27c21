#include "base/LoadedLibrary.h"

#include "base/Errors.h"

#include <fmt/format.h>

#include <dlfcn.h>
#include <string>

namespace kel::host {

namespace {

// Returns the loader's reason without the name of the library, with which it begins.
std::string LoaderError(const std::string& name) {
    const char* reason = dlerror();
    const std::string text = reason != nullptr ? reason : "the loader gave no reason";
    return text.rfind(name + ": ", 0) == 0 ? text.substr(name.size() + 2) : text;
}

} // namespace

LoadedLibrary::LoadedLibrary(const std::string& name, const std::string& package)
    : m_name(name), m_handle(dlopen(name.c_str(), RTLD_LAZY | RTLD_LOCAL)) {
    if (m_handle == nullptr) {
        throw JobError(name, fmt::format("cannot load the library: {}; install the package {}",
                                         LoaderError(name), package));
    }
}

void* LoadedLibrary::FindAddress(const char* function) const {
    void* address = dlsym(m_handle, function);
    if (address == nullptr) {
        throw JobError(m_name, "cannot use the library: " + LoaderError(m_name));
    }
    return address;
}

} // namespace kel::host
