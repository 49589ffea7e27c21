/// What a library shows to the loader.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kel::host {

/// A name that a library defines for others.
struct ExportedSymbol {
    std::string name; ///< as the linker sees it
    bool isFunction = false;
    /// Whether C++ makes one of many: an inline function, an instance of a template.
    bool isShared = false;
};

/// Reads the table of dynamic symbols of a library; nothing of the library is run.
/// @throws JobError when the file cannot be read, is no library for this machine or does not list
/// them
std::vector<ExportedSymbol> ReadExportedSymbols(const std::filesystem::path& file);

} // namespace kel::host
