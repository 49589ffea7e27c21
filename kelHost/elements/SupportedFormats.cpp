#include "elements/SupportedFormats.h"

#include "audio/SampleConverter.h"
#include "base/Errors.h"
#include "base/Text.h"
#include "elements/Elements.h"

#include <IInfoContainer.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace kel::host {

namespace {

constexpr PCMEndianness kByteOrders[] = {PCMEndianness::Little, PCMEndianness::Big};

// A rate and a number of channels that every container takes.
bool IsAccepted(const Container& container, const Encoding& encoding, PCMEndianness byteOrder) {
    constexpr std::uint32_t kRate = 48000;
    constexpr std::uint32_t kChannels = 2;
    return SinkAccepts(container, CreateInfoContainer(
                                      DescribePCM(encoding, byteOrder, kRate, kChannels), nullptr));
}

// As measured, see docs/formats.md. An explicit byte order makes AIFF-C, whose 24- and 32-bit kinds
// few tools know.
std::string ReadersOf(const Container& container, const Encoding& encoding,
                      PCMEndianness byteOrder) {
    if (container.format != WrapperFormat::AIFF || encoding.bits == 16) {
        return "libsndfile, sox, ffmpeg";
    }
    return byteOrder == PCMEndianness::Big ? "libsndfile, ffmpeg" : "libsndfile";
}

std::string NameOf(const FormatChoice& choice) {
    return fmt::format("{} {}", choice.encoding->name, Describe(choice.byteOrder));
}

} // namespace

std::vector<FormatChoice> QuerySupportedFormats() {
    std::vector<FormatChoice> choices;
    for (const Container& container : Containers()) {
        for (const Encoding& encoding : Encodings()) {
            for (const PCMEndianness byteOrder : kByteOrders) {
                const bool accepted = IsAccepted(container, encoding, byteOrder);
                choices.push_back({&container, &encoding, byteOrder, accepted,
                                   accepted ? ReadersOf(container, encoding, byteOrder) : ""});
            }
        }
    }
    return choices;
}

std::string FormatSupportedFormats(const std::vector<FormatChoice>& choices) {
    std::vector<std::vector<std::string>> rows;
    for (const FormatChoice& choice : choices) {
        rows.push_back({std::string(choice.container->name), std::string(choice.container->title),
                        std::string(choice.encoding->name), std::string(Describe(choice.byteOrder)),
                        choice.accepted ? "yes" : "no", choice.readers});
    }
    return FormatTable(
        {{"Format"}, {"Container"}, {"Encoding"}, {"Byte order"}, {"Written"}, {"Read by"}}, rows);
}

void RequireSupported(const Container& container, const Encoding& encoding,
                      PCMEndianness byteOrder) {
    if (IsAccepted(container, encoding, byteOrder)) {
        return;
    }
    std::vector<std::string> names;
    for (const FormatChoice& choice : QuerySupportedFormats()) {
        if (choice.accepted && choice.container == &container) {
            names.push_back(NameOf(choice));
        }
    }
    if (names.empty()) {
        throw JobError(fmt::format("the sink for {} takes no encoding at all", container.title));
    }
    throw UsageError(fmt::format("{} does not take {} {}; choose from {}", container.title,
                                 encoding.name, Describe(byteOrder), fmt::join(names, ", ")));
}

void to_json(nlohmann::json& json, const FormatChoice& choice) {
    json = {{"format", choice.container->name},
            {"container", choice.container->title},
            {"extensions", choice.container->extensions},
            {"encoding", choice.encoding->name},
            {"byte_order", Describe(choice.byteOrder)},
            {"written", choice.accepted},
            {"readers", choice.readers}};
}

} // namespace kel::host
