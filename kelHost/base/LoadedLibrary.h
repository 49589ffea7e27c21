/// Shared libraries that are loaded when they are needed. Any thread.
#pragma once

#include <string>

namespace kel::host {

/// A library for part of the work, loaded when that work begins, so that everything else starts
/// without it. It stays loaded until the program ends.
class LoadedLibrary {
public:
    /// Loads a library from where the system's loader looks for libraries.
    /// @param name file name with the version of the interface: "libcairo.so.2"
    /// @param package the Debian package that contains it
    /// @throws JobError when the loader cannot load it
    LoadedLibrary(const std::string& name, const std::string& package);

    /// Returns a function of the library.
    /// @tparam Function its type, a pointer, from the library's header
    /// @throws JobError when the library does not have it
    template <typename Function>
    Function Find(const char* function) const {
        return reinterpret_cast<Function>(FindAddress(function));
    }

private:
    void* FindAddress(const char* function) const;

    std::string m_name;
    void* m_handle;
};

} // namespace kel::host

/// Declares a member that points to the function of the same name, in a structure whose member
/// `library` is a LoadedLibrary.
#define KEL_LIBRARY_FUNCTION(name)                                                                 \
    decltype(&::name) name { /* NOLINT(bugprone-macro-parentheses): declares it */                 \
        library.Find<decltype(&::name)>(#name)                                                     \
    }
