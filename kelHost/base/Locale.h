/// The user's locale.
#pragma once

namespace kel::host {

/// Returns whether the locale of the environment has UTF-8 as its character encoding. A locale that
/// is not installed is judged by its name: the terminal may be on another machine. Changes no
/// setting of the process. Any thread that does not change the environment meanwhile.
bool UsesUTF8();

} // namespace kel::host
