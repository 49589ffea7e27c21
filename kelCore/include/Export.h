/// Symbol visibility of the public surface of kelCore.
/// Has no effect at run time, on any thread.
///
/// Everything in kelCore is hidden unless it is marked with KEL_CORE_EXPORT, so that the library
/// exports only what its headers document. The library and its users share the mark: on Linux an
/// import needs no attribute of its own.
/// @ingroup library
#pragma once

/// Marks an exported class or function.
#define KEL_CORE_EXPORT __attribute__((visibility("default")))
