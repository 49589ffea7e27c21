/// Files that are read with libsndfile. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "container/HeaderReader.h"

#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>
#include <sys/types.h>

namespace kel::host {

/// A file that libsndfile reads. The library reports many failed reads as damage of the file, or
/// not at all. Therefore the reads of a regular file are made here, and their errors are
/// remembered. Only files that the library recognises by their extension are read by itself.
class SoundFile {
public:
    /// Opens a file.
    explicit SoundFile(const FileName& file);
    ~SoundFile() = default;
    SoundFile(const SoundFile&) = delete;
    SoundFile& operator=(const SoundFile&) = delete;

    /// False when the library does not recognise the file.
    bool IsOpen() const { return m_handle != nullptr; }

    /// The file as the library knows it; null when it is not open.
    SNDFILE* Handle() const { return m_handle.get(); }

    /// The description by the library.
    const SF_INFO& Info() const { return m_info; }

    /// Verifies that the system has read all that the library asked for.
    /// @param failure the beginning of the error: "cannot read its header"
    /// @throws JobError when it has not
    void RequireRead(const std::string& failure) const;

    /// Verifies that the library has noticed no damage.
    /// @param failure the beginning of the error: "cannot read the file"
    /// @throws JobError when it has
    void RequireUndamaged(const std::string& failure) const;

private:
    static sf_count_t Length(void* file);
    static sf_count_t Seek(sf_count_t offset, int whence, void* file);
    static sf_count_t Read(void* bytes, sf_count_t count, void* file);
    static sf_count_t Write(const void* bytes, sf_count_t count, void* file);
    static sf_count_t Position(void* file);

    std::string m_shownName;
    InputFile m_file;
    sf_count_t m_position = 0; // in bytes
    int m_error = 0;           // of the system; 0 for none
    SF_INFO m_info{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> m_handle; // last: it uses the others
};

} // namespace kel::host
