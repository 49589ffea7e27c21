#include "container/FileBytes.h"

#include "base/Errors.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>

namespace kel::host {

std::string ReadBytes(const FileName& file, const Descriptor& descriptor, std::uint64_t offset,
                      std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t done = 0; done < count;) {
        const ssize_t read = pread(descriptor.Number(), bytes.data() + done, count - done,
                                   static_cast<off_t>(offset + done));
        if (read == 0) {
            throw JobError(file.shown, "cannot read its metadata: it has become shorter");
        }
        if (read < 0 && errno != EINTR) {
            throw JobError(file.shown,
                           std::string("cannot read its metadata: ") + std::strerror(errno));
        }
        done += read > 0 ? static_cast<std::size_t>(read) : 0;
    }
    return bytes;
}

bool WriteAll(int descriptor, std::uint64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written =
            pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written == 0) {
            errno = ENOSPC; // the system has given no reason
        }
        if (written == 0 || (written < 0 && errno != EINTR)) {
            return false;
        }
        const auto count = written > 0 ? static_cast<std::size_t>(written) : 0;
        bytes.remove_prefix(count);
        offset += count;
    }
    return true;
}

void WriteBytes(const FileName& file, const Descriptor& descriptor, std::uint64_t offset,
                std::string_view bytes) {
    if (!WriteAll(descriptor.Number(), offset, bytes)) {
        throw JobError(file.shown,
                       std::string("cannot write its metadata: ") + std::strerror(errno));
    }
}

} // namespace kel::host
