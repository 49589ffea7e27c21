/// Containers and encodings that the host can request from a sink.
///
/// The tables validate a request and list the choices. Pure functions.
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

/// A container that the host can write.
struct Container {
    WrapperFormat format;
    std::string_view name;                    ///< value of --format
    std::string_view title;                   ///< common name
    std::vector<std::string_view> extensions; ///< lower case, with the dot; the usual one first
};

/// Encoding of sample values in a file.
struct Encoding {
    std::string_view name; ///< "int24"
    AudioPCMType type;
    std::uint8_t bytes; ///< per sample value
    std::uint8_t bits;  ///< significant bits per sample value
};

/// An encoding under one of its names.
struct NamedEncoding {
    const Encoding* encoding = nullptr;
    std::optional<PCMEndianness> byteOrder; ///< that the name implies: "s24be"
};

/// A byte order with its name.
struct ByteOrder {
    std::string_view name; ///< "little"
    PCMEndianness value;
};

/// The containers, in display order.
const std::vector<Container>& Containers();

/// The encodings, in display order.
const std::vector<Encoding>& Encodings();

/// The byte orders, in display order.
const std::vector<ByteOrder>& ByteOrders();

/// Returns the entry of a table with a name; null when there is none.
template <typename Entry>
const Entry* FindByName(const std::vector<Entry>& table, std::string_view name) {
    for (const Entry& entry : table) {
        if (entry.name == name) {
            return &entry;
        }
    }
    return nullptr;
}

/// Returns the names in a table.
template <typename Entry>
std::vector<std::string> NamesIn(const std::vector<Entry>& table) {
    std::vector<std::string> names;
    for (const Entry& entry : table) {
        names.emplace_back(entry.name);
    }
    return names;
}

/// Returns the container of a wrapper format; null when the host does not write it.
const Container* FindContainer(WrapperFormat format);

/// Returns the container for the extension of a path, in upper or lower case; null when the
/// extension belongs to none.
const Container* ContainerByExtension(std::string_view path);

/// Returns the container of a name, or of an extension without its dot: "bwave", "rf64"; null when
/// there is none.
const Container* FindContainer(std::string_view name);

/// Returns an encoding by its name, which must exist.
const Encoding& EncodingByName(std::string_view name);

/// Returns an encoding by its name, or by one that other programs use: "int24", "24", "s24",
/// "pcm_s24le"; none when there is no such encoding.
std::optional<NamedEncoding> FindEncoding(std::string_view name);

/// Choices of an output format. What is not chosen follows from the files.
struct FormatChoice {
    const Container* container = nullptr;   ///< null: by the output's extension
    const Encoding* encoding = nullptr;     ///< null: the input's
    std::optional<PCMEndianness> byteOrder; ///< none: the container's default
};

/// An output format.
struct OutputFormat {
    const Container* container = nullptr;
    const Encoding* encoding = nullptr; ///< null: the input's, which is known when that is open
    PCMEndianness byteOrder = PCMEndianness::Little;
    bool isContainerChosen = false; ///< the user named the container; it must not become another
};

/// Resolves the choices for one output. Without a choice, the byte order is the one that the
/// container's readers expect: big in AIFF, little elsewhere.
/// @param path the output
/// @throws UsageError when the extension belongs to no container and none is chosen
OutputFormat ResolveFormat(const FormatChoice& choice, const std::string& path);

/// Returns "little-endian" or "big-endian".
std::string_view Describe(PCMEndianness endianness);

/// Returns every extension of a container: ".wav, .wave, .rf64 ...".
std::string ListExtensions();

} // namespace kel::host
