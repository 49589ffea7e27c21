/// Temporary files without a name. One thread at a time.
#pragma once

#include "base/Descriptor.h"

#include <cstdint>
#include <string>

namespace kel::host {

/// Returns the directory of temporary files: TMPDIR, else /tmp.
std::string DefaultTemporaryDirectory();

/// Place and limit of temporary copies of inputs.
struct SpoolPolicy {
    std::string directory = DefaultTemporaryDirectory();
    std::uint64_t maxBytes = std::uint64_t{8} << 30U; ///< 0: no limit
};

/// A file without a name, so that even SIGKILL leaves nothing. It exists as long as this object.
class TemporaryFile {
public:
    /// Creates an empty file. Number is negative, and errno has the reason, when that fails.
    explicit TemporaryFile(const std::string& directory);

    /// The descriptor, open for reading and writing; negative for none.
    int Number() const { return m_descriptor.Number(); }

    /// Path under which this process, and its children, can open the file.
    std::string Path() const;

private:
    Descriptor m_descriptor;
};

} // namespace kel::host
