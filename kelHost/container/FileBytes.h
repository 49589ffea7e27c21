/// Bytes of open files at any offset. One thread at a time for one file.
#pragma once

#include "base/Descriptor.h"
#include "base/FileName.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

/// Reads bytes of metadata.
/// @throws JobError when one cannot be read, or the file ends before the last
std::string ReadBytes(const FileName& file, const Descriptor& descriptor, std::uint64_t offset,
                      std::size_t count);

/// Writes bytes, in as many calls as the system needs.
/// @return false, with errno, when one cannot be written
bool WriteAll(int descriptor, std::uint64_t offset, std::string_view bytes);

/// Writes bytes of metadata.
/// @throws JobError when one cannot be written
void WriteBytes(const FileName& file, const Descriptor& descriptor, std::uint64_t offset,
                std::string_view bytes);

} // namespace kel::host
