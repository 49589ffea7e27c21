#include "jobs/WorkerMessage.h"

#include "base/Numbers.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// Begins each message: other bytes are recognised where they begin.
constexpr std::uint32_t kMark = 0x4B656C1D;
// More than any result has. A larger size would make the host wait for bytes that never come.
constexpr std::uint32_t kMaxContent = 256U << 20U;

constexpr std::size_t kHeader = 2 * sizeof(std::uint32_t);     // the mark and the size
constexpr std::size_t kMinContent = sizeof(std::uint32_t) + 2; // the job, the kind, hasPrinted

constexpr std::array<std::size_t, 6> kFields{3, 1, 1, 3, 3, 3}; // of each kind

void AppendNumber(std::string& bytes, std::size_t value) {
    const auto number = static_cast<std::uint32_t>(value);
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void Require(bool condition) {
    if (!condition) {
        throw InvalidMessage();
    }
}

// Reads a number that AppendNumber wrote before a place, and moves to the place after it.
std::uint32_t TakeNumber(const std::string& bytes, std::size_t& place, std::size_t end) {
    std::uint32_t number = 0;
    Require(end - place >= sizeof number);
    std::memcpy(&number, bytes.data() + place, sizeof number);
    place += sizeof number;
    return number;
}

bool IsNumber(const std::string& text) {
    return ParseInteger<std::int64_t>(text).has_value();
}

void RequireFieldsOf(const WorkerMessage& message) {
    Require(message.fields.size() == kFields[static_cast<std::size_t>(message.kind)]);
    if (message.kind == WorkerMessage::Kind::Progress) {
        Require(std::all_of(message.fields.begin(), message.fields.end(), IsNumber));
        Require(ParseInteger<std::uint32_t>(message.fields.back()).has_value());
    } else if (message.kind == WorkerMessage::Kind::Spooled) {
        Require(ParseInteger<std::uint64_t>(message.fields.front()).has_value());
    }
}

} // namespace

// The mark, the size of what follows, the number of the job, the kind, whether something was
// printed, and each field after its size.
std::string Encode(const WorkerMessage& message) {
    std::size_t size = kMinContent;
    for (const std::string& field : message.fields) {
        size += sizeof(std::uint32_t) + field.size();
    }
    std::string bytes;
    bytes.reserve(kHeader + size);
    AppendNumber(bytes, kMark);
    AppendNumber(bytes, size);
    AppendNumber(bytes, message.job);
    bytes += static_cast<char>(message.kind);
    bytes += static_cast<char>(message.hasPrinted ? 1 : 0);
    for (const std::string& field : message.fields) {
        AppendNumber(bytes, field.size());
        bytes += field;
    }
    return bytes;
}

std::optional<WorkerMessage> TakeMessage(std::string& received) {
    if (received.size() < kHeader) {
        return std::nullopt;
    }
    std::size_t place = 0;
    Require(TakeNumber(received, place, kHeader) == kMark);
    const std::uint32_t size = TakeNumber(received, place, kHeader);
    Require(size >= kMinContent && size <= kMaxContent);
    const std::size_t end = kHeader + size;
    if (received.size() < end) {
        received.reserve(end);
        return std::nullopt;
    }
    WorkerMessage message;
    message.job = TakeNumber(received, place, end);
    const auto kind = static_cast<unsigned char>(received[place++]);
    Require(kind < kFields.size());
    message.kind = static_cast<WorkerMessage::Kind>(kind);
    message.hasPrinted = received[place++] != 0;
    while (place < end) {
        const std::uint32_t length = TakeNumber(received, place, end);
        Require(end - place >= length);
        message.fields.push_back(received.substr(place, length));
        place += length;
    }
    RequireFieldsOf(message);
    received.erase(0, end);
    received.shrink_to_fit(); // results may be large
    return message;
}

} // namespace kel::host
