#include "audio/Formats.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(character < 0x80 ? std::tolower(character) : character);
    });
    return text;
}

template <typename Entry>
const Entry& ByName(const std::vector<Entry>& entries, std::string_view what,
                    std::string_view name) {
    std::vector<std::string_view> names;
    for (const Entry& entry : entries) {
        if (entry.name == name) {
            return entry;
        }
        names.push_back(entry.name);
    }
    throw UsageError(fmt::format("there is no {} \"{}\"; choose from {}", what, Escape(name),
                                 fmt::join(names, ", ")));
}

} // namespace

const std::vector<Container>& Containers() {
    static const std::vector<Container> containers{
        {WrapperFormat::WAVE, "wave", "extensible WAVE", {".wav", ".wave"}},
        {WrapperFormat::BWAVE, "bwave", "RF64", {".rf64", ".bwav", ".bwave"}},
        {WrapperFormat::AIFF, "aiff", "AIFF-C", {".aiff", ".aif"}},
    };
    return containers;
}

const std::vector<Encoding>& Encodings() {
    static const std::vector<Encoding> encodings{
        {"int16", AudioPCMType::Integer, 2, 16}, {"int24", AudioPCMType::Integer, 3, 24},
        {"int32", AudioPCMType::Integer, 4, 32}, {"float32", AudioPCMType::Float, 4, 32},
        {"float64", AudioPCMType::Float, 8, 64},
    };
    return encodings;
}

const Container& ContainerByName(std::string_view name) {
    return ByName(Containers(), "format", name);
}

const Container* ContainerByExtension(std::string_view path) {
    const std::string extension = LowerCase(std::filesystem::path(path).extension().string());
    for (const Container& container : Containers()) {
        const auto& extensions = container.extensions;
        if (std::find(extensions.begin(), extensions.end(), extension) != extensions.end()) {
            return &container;
        }
    }
    return nullptr;
}

const Encoding& EncodingByName(std::string_view name) {
    return ByName(Encodings(), "encoding", name);
}

const Encoding& DefaultEncoding(const Container& container) {
    return EncodingByName(container.format == WrapperFormat::AIFF ? "int24" : "float32");
}

PCMEndianness DefaultByteOrder(const Container& container) {
    return container.format == WrapperFormat::AIFF ? PCMEndianness::Big : PCMEndianness::Little;
}

PCMEndianness ByteOrderByName(std::string_view name) {
    struct ByteOrder {
        std::string_view name;
        PCMEndianness value;
    };
    static const std::vector<ByteOrder> byteOrders{{"little", PCMEndianness::Little},
                                                   {"big", PCMEndianness::Big}};
    return ByName(byteOrders, "byte order", name).value;
}

std::string_view Describe(PCMEndianness endianness) {
    return endianness == PCMEndianness::Big ? "big-endian" : "little-endian";
}

std::string ListExtensions() {
    std::vector<std::string_view> extensions;
    for (const Container& container : Containers()) {
        extensions.insert(extensions.end(), container.extensions.begin(),
                          container.extensions.end());
    }
    return fmt::format("{}", fmt::join(extensions, ", "));
}

} // namespace kel::host
