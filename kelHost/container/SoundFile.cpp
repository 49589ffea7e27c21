#include "container/SoundFile.h"

#include "base/Errors.h"
#include "container/SndfileLibrary.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace kel::host {

SoundFile::SoundFile(const FileName& file)
    : m_shownName(file.shown), m_handle(nullptr, Sndfile().sf_close) {
    auto input = OpenRegularFile(file.path);
    if (!input.has_value()) {
        m_handle.reset(Sndfile().sf_open(file.path.c_str(), SFM_READ, &m_info));
        return;
    }
    m_file = std::move(*input);
    SF_VIRTUAL_IO functions{Length, Seek, Read, Write, Position};
    m_handle.reset(Sndfile().sf_open_virtual(&functions, SFM_READ, &m_info, this));
    if (!IsOpen() && m_error == 0) {
        // The library recognises a few formats only by the extension of a path.
        m_handle.reset(Sndfile().sf_open(file.path.c_str(), SFM_READ, &m_info));
    }
}

void SoundFile::RequireRead(const std::string& failure) const {
    if (m_error != 0) {
        throw JobError(m_shownName, fmt::format("{}: {}", failure, std::strerror(m_error)));
    }
}

void SoundFile::RequireUndamaged(const std::string& failure) const {
    if (Sndfile().sf_error(Handle()) != SF_ERR_NO_ERROR) {
        throw JobError(m_shownName,
                       fmt::format("{}: {}", failure, Sndfile().sf_strerror(Handle())));
    }
}

sf_count_t SoundFile::Length(void* file) {
    return static_cast<sf_count_t>(static_cast<SoundFile*>(file)->m_file.bytes);
}

sf_count_t SoundFile::Seek(sf_count_t offset, int whence, void* file) {
    auto& self = *static_cast<SoundFile*>(file);
    const sf_count_t start = whence == SEEK_SET   ? 0
                             : whence == SEEK_CUR ? self.m_position
                                                  : Length(file);
    // Damaged headers contain any offset.
    sf_count_t target = 0;
    if (__builtin_add_overflow(start, offset, &target) || target < 0) {
        return -1;
    }
    self.m_position = target;
    return target;
}

sf_count_t SoundFile::Read(void* bytes, sf_count_t count, void* file) {
    auto& self = *static_cast<SoundFile*>(file);
    sf_count_t done = 0;
    while (done < count) {
        const ssize_t read =
            pread(self.m_file.descriptor.Number(), static_cast<char*>(bytes) + done,
                  static_cast<std::size_t>(count - done), self.m_position);
        if (read < 0 && errno == EINTR) {
            continue;
        }
        if (read < 0) {
            self.m_error = errno;
        }
        if (read <= 0) {
            break;
        }
        done += read;
        self.m_position += read;
    }
    return done;
}

sf_count_t SoundFile::Write(const void* /*bytes*/, sf_count_t /*count*/, void* /*file*/) {
    return 0;
}

sf_count_t SoundFile::Position(void* file) {
    return static_cast<SoundFile*>(file)->m_position;
}

} // namespace kel::host
