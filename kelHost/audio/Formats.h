/// What the host knows about the formats that it can ask a sink for.
///
/// The tables here validate what a user asks for, and list the choices when it is not there.
#pragma once

#include <AudioPCMType.h>
#include <PCMEndianness.h>
#include <WrapperFormat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

/// A container that the host offers to write.
struct Container {
    WrapperFormat format;
    std::string_view name;                    ///< what --format takes
    std::string_view title;                   ///< what people call it
    std::vector<std::string_view> extensions; ///< lower case, with the dot; the first is the usual
};

/// How sample values are stored in a file.
struct Encoding {
    std::string_view name; ///< "int24"
    AudioPCMType type;
    std::uint8_t bytes; ///< per sample value
    std::uint8_t bits;  ///< significant bits per sample value
};

/// The containers, in the order in which they are shown.
const std::vector<Container>& Containers();

/// The encodings, in the order in which they are shown.
const std::vector<Encoding>& Encodings();

/// The container that --format NAME means.
/// @throws UsageError with the valid names
const Container& ContainerByName(std::string_view name);

/// The container that the extension of a path means, whatever its case; null when it means none.
const Container* ContainerByExtension(std::string_view path);

/// The encoding of that name.
/// @throws UsageError with the valid names
const Encoding& EncodingByName(std::string_view name);

/// The encoding that a container gets when none is asked for: the source's own floats where the
/// container takes them, 24-bit integers in AIFF, which does not.
const Encoding& DefaultEncoding(const Container& container);

/// The byte order that a container's readers expect: big in AIFF, little elsewhere.
PCMEndianness DefaultByteOrder(const Container& container);

/// The byte order that --byte-order NAME means: "little" or "big".
/// @throws UsageError with the valid names
PCMEndianness ByteOrderByName(std::string_view name);

/// "little-endian" or "big-endian".
std::string_view Describe(PCMEndianness endianness);

/// ".wav, .wave, .rf64 ...": every extension that means a container.
std::string ListExtensions();

} // namespace kel::host
