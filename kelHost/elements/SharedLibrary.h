/// Exported symbols of shared libraries, read without running anything in them. Any thread.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kel::host {

/// A name that a library defines for other libraries.
struct ExportedSymbol {
    std::string name; ///< as the linker sees it
    bool isFunction = false;
    /// True for symbols that C++ emits in every user: inline functions, instances of templates.
    bool isShared = false;
};

/// Returns the exported symbols of a library.
/// @throws JobError when the file cannot be read, is not a library for this machine, is damaged or
/// has no section of dynamic symbols
std::vector<ExportedSymbol> ReadExportedSymbols(const std::filesystem::path& file);

/// Returns whether a file is a library for machines of this kind, complete or not. False also for
/// one that cannot be read.
bool IsLibrary(const std::filesystem::path& file);

} // namespace kel::host
