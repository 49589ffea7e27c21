#include "container/KeptEncoding.h"

namespace kel::host {

namespace {

const Encoding& IntegerOf(std::uint32_t bits) {
    for (const Encoding& encoding : Encodings()) {
        if (encoding.type == AudioPCMType::Integer && encoding.bits >= bits) {
            return encoding;
        }
    }
    return EncodingByName("int32");
}

} // namespace

const Encoding& KeptEncoding(const std::optional<StoredFormat>& stored,
                             const Container& container) {
    constexpr std::uint32_t kDoubleBits = 64;
    if (stored.has_value() && stored->coding == Coding::Integer) {
        return IntegerOf(stored->bits);
    }
    if (container.format == WrapperFormat::AIFF) {
        return EncodingByName("int24");
    }
    const bool isDouble =
        stored.has_value() && stored->coding == Coding::Float && stored->bits == kDoubleBits;
    return EncodingByName(isDouble ? "float64" : "float32");
}

bool HoldsEveryValue(const Encoding& encoding, const StoredFormat& stored) {
    constexpr std::uint32_t kFloatBits = 24; // significant ones of 32
    const bool isFloat = encoding.type == AudioPCMType::Float;
    if (stored.coding != Coding::Integer) {
        return isFloat && encoding.bits >= stored.bits;
    }
    const bool isNarrow = isFloat && encoding.bytes == sizeof(float);
    return stored.bits <= (isNarrow ? kFloatBits : encoding.bits);
}

} // namespace kel::host
