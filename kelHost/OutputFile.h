/// Outputs that appear under their name only when they are whole.
#pragma once

#include <string>

namespace kel::host {

/// A file that is written under a temporary name, beside the name that was asked for and with the
/// same extension, and takes that name when it is whole. Until then nothing stands under the name
/// but what stood there before; when the object goes without Commit, nothing is left.
///
/// The temporary names begin with ".kelhost-" and contain ".part.", so that what a killed process
/// leaves is recognisable.
class OutputFile {
public:
    /// Makes the temporary file.
    /// @param path the name that was asked for
    /// @param replace whether a file that stands there may be replaced
    /// @throws JobError when the name can not be written, or is taken and may not be replaced
    OutputFile(std::string path, bool replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The name that was asked for.
    const std::string& Path() const { return m_path; }

    /// The name to write to.
    const std::string& TemporaryPath() const { return m_temporaryPath; }

    /// Flushes the file to disk and gives it its name.
    /// @throws JobError when that fails; nothing is left then
    void Commit();

private:
    std::string m_path;
    std::string m_temporaryPath; // empty once it is gone
    bool m_replace;
};

/// Removes the temporary files of all outputs that are not committed yet, and keeps others from
/// appearing: for a process that is about to end. Any thread may call it.
void AbandonOutputs();

/// True when both names reach the same file, by links too.
bool IsSameFile(const std::string& path1, const std::string& path2);

} // namespace kel::host
