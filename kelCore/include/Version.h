/// The version of the framework: of these headers, and of the loaded library.
/// Constants and a pure function: any thread may use them.
/// @ingroup library
#pragma once

#include "Export.h"

#include <array>
#include <cstdint>

/// Changes with the binary interface, as does the soname of the library, 0 included.
#define KEL_CORE_VERSION_MAJOR 0
/// Changes when something is added.
#define KEL_CORE_VERSION_MINOR 1
/// Changes for repairs only.
#define KEL_CORE_VERSION_PATCH 0

namespace kel {

/// MAJOR, MINOR and PATCH. The operators compare versions: `GetLibraryVersion() >= Version{0, 2,
/// 0}`.
using Version = std::array<std::uint32_t, 3>;

/// The version of the headers that a program or plug-in is compiled with.
inline constexpr Version kHeaderVersion{KEL_CORE_VERSION_MAJOR, KEL_CORE_VERSION_MINOR,
                                        KEL_CORE_VERSION_PATCH};

/// Returns the version of the library that is loaded. It has the MAJOR of kHeaderVersion; if it is
/// older, functions may be missing. Does not throw.
KEL_CORE_EXPORT Version GetLibraryVersion() noexcept;

} // namespace kel
