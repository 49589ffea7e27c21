#include "container/BroadcastChunk.h"

#include "container/StoredText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

namespace {

struct BroadcastField {
    std::uint64_t offset;
    std::size_t bytes;
};

constexpr BroadcastField kDescription{0, 256};
constexpr BroadcastField kOriginator{256, 32};
constexpr BroadcastField kOriginatorReference{288, 32};
constexpr BroadcastField kDate{320, 10};
constexpr BroadcastField kTime{330, 8};
constexpr BroadcastField kTimeReferenceLow{338, 4};
constexpr BroadcastField kTimeReferenceHigh{342, 4};
constexpr BroadcastField kVersion{346, 2};
constexpr BroadcastField kUMID{348, 64};
constexpr std::uint64_t kLoudness = 412; // five numbers of 16 bits
constexpr std::uint64_t kReserved = 422;

constexpr std::uint16_t kFirstVersionWithUMID = 1;
constexpr std::uint16_t kFirstVersionWithLoudness = 2;

std::string BroadcastText(const StoredBytes& content, const BroadcastField& field) {
    return DecodeText(content.Part(field.offset, field.bytes));
}

// 0 when a part of the number is missing.
std::uint64_t BroadcastNumber(const StoredBytes& content, const BroadcastField& field) {
    const bool isWhole = content.Part(field.offset, field.bytes).size() == field.bytes;
    return isWhole ? content.Number(field.offset, field.bytes) : 0;
}

BroadcastLoudness ParseLoudness(const StoredBytes& content) {
    const auto value = [&](std::uint64_t index) {
        const auto stored = static_cast<std::uint16_t>(content.Number(kLoudness + 2 * index, 2));
        return static_cast<std::int16_t>(stored);
    };
    return {value(0), value(1), value(2), value(3), value(4)};
}

// The bytes of a field: the text, and zeros.
std::string Fill(const BroadcastField& field, const std::string& text) {
    std::string bytes = LimitText(text, field.bytes);
    bytes.resize(field.bytes, '\0');
    return bytes;
}

} // namespace

Broadcast ParseBroadcast(const StoredBytes& content) {
    Broadcast broadcast;
    broadcast.description = BroadcastText(content, kDescription);
    broadcast.originator = BroadcastText(content, kOriginator);
    broadcast.originatorReference = BroadcastText(content, kOriginatorReference);
    broadcast.date = BroadcastText(content, kDate);
    broadcast.time = BroadcastText(content, kTime);
    broadcast.timeReference = BroadcastNumber(content, kTimeReferenceLow) |
                              BroadcastNumber(content, kTimeReferenceHigh) << 32U;
    broadcast.version = static_cast<std::uint16_t>(BroadcastNumber(content, kVersion));
    const std::string_view umid = content.Part(kUMID.offset, kUMID.bytes);
    if (broadcast.version >= kFirstVersionWithUMID && umid.size() == kUMID.bytes &&
        umid.find_first_not_of('\0') != std::string_view::npos) {
        broadcast.umid = umid;
    }
    if (broadcast.version >= kFirstVersionWithLoudness && content.Size() >= kReserved) {
        broadcast.loudness = ParseLoudness(content);
    }
    broadcast.codingHistory = DecodeText(content.From(kBroadcastBytes));
    return broadcast;
}

std::string FormatBroadcast(const Broadcast& broadcast, StoredOrder order) {
    std::string bytes = Fill(kDescription, broadcast.description);
    bytes += Fill(kOriginator, broadcast.originator);
    bytes += Fill(kOriginatorReference, broadcast.originatorReference);
    bytes += Fill(kDate, broadcast.date);
    bytes += Fill(kTime, broadcast.time);
    bytes += NumberBytes(broadcast.timeReference, kTimeReferenceLow.bytes, order);
    bytes += NumberBytes(broadcast.timeReference >> 32U, kTimeReferenceHigh.bytes, order);
    bytes += NumberBytes(broadcast.version, kVersion.bytes, order);
    std::string umid = broadcast.umid;
    umid.resize(kUMID.bytes, '\0');
    bytes += umid;
    if (broadcast.loudness.has_value()) {
        for (const std::int16_t value :
             {broadcast.loudness->integrated, broadcast.loudness->range,
              broadcast.loudness->truePeak, broadcast.loudness->momentary,
              broadcast.loudness->shortTerm}) {
            bytes += NumberBytes(static_cast<std::uint16_t>(value), sizeof(value), order);
        }
    }
    bytes.resize(kBroadcastBytes, '\0');
    return bytes + broadcast.codingHistory;
}

bool FitsIntoFields(const Broadcast& broadcast) {
    return broadcast.description.size() <= kDescription.bytes &&
           broadcast.originator.size() <= kOriginator.bytes &&
           broadcast.originatorReference.size() <= kOriginatorReference.bytes &&
           broadcast.date.size() <= kDate.bytes && broadcast.time.size() <= kTime.bytes;
}

} // namespace kel::host
