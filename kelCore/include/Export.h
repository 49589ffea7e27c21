/// Symbol visibility of kelCore's public surface.
///
/// Everything in kelCore is hidden unless it is marked with KEL_CORE_EXPORT, so that the library
/// exports what its headers document and nothing else. The same mark serves the library and its
/// users: on Linux importing needs no attribute of its own.
#pragma once

/// Marks what the library exports.
#define KEL_CORE_EXPORT __attribute__((visibility("default")))
