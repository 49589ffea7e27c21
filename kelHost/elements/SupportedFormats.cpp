#include "elements/SupportedFormats.h"

#include "audio/PCMDescription.h"
#include "base/Errors.h"
#include "base/Text.h"
#include "elements/SinkWriter.h"

#include <IInfoContainer.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// Uses a rate and a number of channels that every container supports.
bool IsAccepted(const Container& container, const Encoding& encoding, PCMEndianness byteOrder) {
    constexpr std::uint32_t kRate = 48000;
    constexpr std::uint32_t kChannels = 2;
    return SinkAccepts(container, CreateInfoContainer(
                                      DescribePCM(encoding, byteOrder, kRate, kChannels), nullptr));
}

// As measured, see docs/formats.md. An explicit byte order makes AIFF-C, whose 24- and 32-bit kinds
// few tools read.
std::string ReadersOf(const Container& container, const Encoding& encoding,
                      PCMEndianness byteOrder) {
    if (container.format != WrapperFormat::AIFF || encoding.bits == 16) {
        return "libsndfile, sox, ffmpeg";
    }
    return byteOrder == PCMEndianness::Big ? "libsndfile, ffmpeg" : "libsndfile";
}

} // namespace

std::vector<SupportedFormat> QuerySupportedFormats() {
    std::vector<SupportedFormat> formats;
    for (const Container& container : Containers()) {
        for (const Encoding& encoding : Encodings()) {
            for (const ByteOrder& byteOrder : ByteOrders()) {
                const bool accepted = IsAccepted(container, encoding, byteOrder.value);
                formats.push_back(
                    {&container, &encoding, byteOrder, accepted,
                     accepted ? ReadersOf(container, encoding, byteOrder.value) : ""});
            }
        }
    }
    return formats;
}

void RequireSupported(const OutputFormat& format) {
    const auto isAccepted = [&](const Encoding& encoding) {
        return IsAccepted(*format.container, encoding, format.byteOrder);
    };
    if (format.encoding != nullptr
            ? isAccepted(*format.encoding)
            : std::any_of(Encodings().begin(), Encodings().end(), isAccepted)) {
        return;
    }
    std::vector<std::string> names;
    for (const SupportedFormat& supported : QuerySupportedFormats()) {
        if (supported.accepted && supported.container == format.container) {
            names.push_back(fmt::format("{} {}", supported.encoding->name,
                                        Describe(supported.byteOrder.value)));
        }
    }
    if (names.empty()) {
        throw JobError(
            fmt::format("the sink for {} supports no encoding at all", format.container->title));
    }
    const std::string encoding =
        format.encoding != nullptr ? fmt::format("{} ", format.encoding->name) : "";
    throw UsageError(fmt::format("{} does not support {}{}; use {}", format.container->title,
                                 encoding, Describe(format.byteOrder), ListAlternatives(names)));
}

} // namespace kel::host
