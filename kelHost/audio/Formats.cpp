#include "audio/Formats.h"

#include "base/Errors.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <optional>
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

// A name of an encoding in other programs.
struct EncodingAlias {
    std::string_view alias;
    std::string_view name;
    bool acceptsByteOrder; // "le" or "be" may follow
};

const std::vector<EncodingAlias>& EncodingAliases() {
    static const std::vector<EncodingAlias> aliases{
        {"16", "int16", false},     {"24", "int24", false},       {"32", "int32", false},
        {"32f", "float32", false},  {"64f", "float64", false},    {"s16", "int16", true},
        {"s24", "int24", true},     {"s32", "int32", true},       {"f32", "float32", true},
        {"f64", "float64", true},   {"pcm_s16", "int16", true},   {"pcm_s24", "int24", true},
        {"pcm_s32", "int32", true}, {"pcm_f32", "float32", true}, {"pcm_f64", "float64", true},
    };
    return aliases;
}

} // namespace

const std::vector<Container>& Containers() {
    static const std::vector<Container> containers{
        {WrapperFormat::WAVE, "wave", "extensible WAVE", {".wav", ".wave"}},
        {WrapperFormat::BWAVE, "bwave", "RF64", {".rf64", ".bwav", ".bwave", ".bwf"}},
        {WrapperFormat::AIFF, "aiff", "AIFF-C", {".aiff", ".aif", ".aifc"}},
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

const std::vector<ByteOrder>& ByteOrders() {
    static const std::vector<ByteOrder> byteOrders{{"little", PCMEndianness::Little},
                                                   {"big", PCMEndianness::Big}};
    return byteOrders;
}

const Container* FindContainer(WrapperFormat format) {
    for (const Container& container : Containers()) {
        if (container.format == format) {
            return &container;
        }
    }
    return nullptr;
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

const Container* FindContainer(std::string_view name) {
    for (const Container& container : Containers()) {
        const auto& extensions = container.extensions;
        if (container.name == name || std::find(extensions.begin(), extensions.end(),
                                                "." + std::string(name)) != extensions.end()) {
            return &container;
        }
    }
    return nullptr;
}

const Encoding& EncodingByName(std::string_view name) {
    return *FindByName(Encodings(), name);
}

std::optional<NamedEncoding> FindEncoding(std::string_view name) {
    if (const Encoding* encoding = FindByName(Encodings(), name); encoding != nullptr) {
        return NamedEncoding{encoding, std::nullopt};
    }
    for (const EncodingAlias& alias : EncodingAliases()) {
        const std::string_view order = name.substr(0, alias.alias.size()) == alias.alias
                                           ? name.substr(alias.alias.size())
                                           : "?";
        const Encoding* encoding = FindByName(Encodings(), alias.name);
        if (order.empty()) {
            return NamedEncoding{encoding, std::nullopt};
        }
        if (alias.acceptsByteOrder && (order == "le" || order == "be")) {
            return NamedEncoding{encoding,
                                 order == "be" ? PCMEndianness::Big : PCMEndianness::Little};
        }
    }
    return std::nullopt;
}

OutputFormat ResolveFormat(const FormatChoice& choice, const std::string& path) {
    OutputFormat format;
    format.isContainerChosen = choice.container != nullptr;
    format.container = format.isContainerChosen ? choice.container : ContainerByExtension(path);
    if (format.container == nullptr) {
        throw UsageError(path +
                         ": cannot tell the format from the extension; use --format or one of " +
                         ListExtensions());
    }
    const bool isAIFF = format.container->format == WrapperFormat::AIFF;
    format.encoding = choice.encoding;
    format.byteOrder =
        choice.byteOrder.value_or(isAIFF ? PCMEndianness::Big : PCMEndianness::Little);
    return format;
}

std::string_view Describe(PCMEndianness endianness) {
    return endianness == PCMEndianness::Big ? "big-endian" : "little-endian";
}

std::string ListExtensions() {
    std::string list;
    for (const Container& container : Containers()) {
        for (const std::string_view extension : container.extensions) {
            list += list.empty() ? "" : ", ";
            list += extension;
        }
    }
    return list;
}

} // namespace kel::host
