#include "audio/Formats.h"

#include "base/Errors.h"

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

const Encoding& EncodingByName(std::string_view name) {
    return *FindByName(Encodings(), name);
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
    format.encoding = choice.encoding != nullptr ? choice.encoding
                                                 : &EncodingByName(isAIFF ? "int24" : "float32");
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
