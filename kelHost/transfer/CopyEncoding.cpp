#include "transfer/CopyEncoding.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "container/KeptEncoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace kel::host {

namespace {

void RequireEveryValue(const CopyRequest& request, const std::optional<StoredFormat>& stored,
                       const Encoding& encoding) {
    if (!stored.has_value()) {
        throw JobError(request.input.shown,
                       "its encoding is unknown, so that no copy of it is known to "
                       "be exact; omit --require-exact");
    }
    if (!HoldsEveryValue(encoding, *stored)) {
        throw JobError(request.output.shown,
                       fmt::format("{} does not hold every value of {}; use --encoding keep and "
                                   "WAVE or RF64, or omit --require-exact",
                                   encoding.name, Describe(*stored)));
    }
}

// The integers of the output that a copy of such an input is not meant to be rounded to; 0 for
// none.
std::uint32_t UnintendedBits(const CopyRequest& request, const StoredFormat& stored,
                             const Encoding& encoding) {
    const bool isChosen = request.format.encoding != nullptr && !request.options.requireExact;
    if (isChosen || encoding.type != AudioPCMType::Integer) {
        return 0;
    }
    // Bits that are declared to be unused may still be set.
    return stored.coding == Coding::Float || stored.paddedBits > encoding.bits ? encoding.bits : 0;
}

// Sources deliver 32-bit floats, which have 24 significant bits.
bool FitsIntoFloats(const StoredFormat& stored) {
    constexpr std::uint32_t kFloatBits = 24;
    const std::uint32_t maxBits = stored.coding == Coding::Float ? 32 : kFloatBits;
    return stored.coding == Coding::Lossy || std::max(stored.bits, stored.paddedBits) <= maxBits;
}

} // namespace

const Encoding& ChooseEncoding(const CopyRequest& request,
                               const std::optional<StoredFormat>& stored) {
    const Encoding& encoding = request.format.encoding != nullptr
                                   ? *request.format.encoding
                                   : KeptEncoding(stored, *request.format.container);
    if (request.options.dither.has_value() && encoding.type != AudioPCMType::Integer) {
        throw JobError(request.output.shown,
                       fmt::format("keeps the encoding {}, and --dither needs an integer encoding; "
                                   "add --encoding int16, int24 or int32",
                                   encoding.name));
    }
    if (request.options.requireExact) {
        RequireEveryValue(request, stored, encoding);
    }
    return encoding;
}

std::uint64_t CountRoundedValues(const CopyRequest& request,
                                 const std::optional<StoredFormat>& stored,
                                 const Encoding& encoding, const FileName& file,
                                 CountedValues values, Reporter& reporter, Warnings& warnings) {
    if (!stored.has_value() || stored->coding == Coding::Lossy) {
        return 0;
    }
    values.integerBits = UnintendedBits(request, *stored, encoding);
    if (FitsIntoFloats(*stored) && values.integerBits == 0) {
        return 0;
    }
    const std::string type = values.integerBits > 0
                                 ? fmt::format("{}-bit integers", values.integerBits)
                                 : "32-bit floats";
    RoundedValueCounter counter(file, std::move(values));
    for (bool goesOn = true; goesOn;) {
        const ReadingScope reading(reporter);
        goesOn = counter.Next();
    }
    if (counter.Rounded() > 0) {
        const std::string text = fmt::format("{} of {} do not fit into {}", counter.Rounded(),
                                             Count(counter.All(), "value"), type);
        if (request.options.requireExact) {
            throw JobError(request.input.shown, text + "; --require-exact refuses to round them");
        }
        warnings.Add(fmt::format("{}: {} and are rounded", request.input.shown, text));
    }
    return counter.Rounded();
}

} // namespace kel::host
