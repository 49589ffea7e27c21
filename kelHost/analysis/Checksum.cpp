#include "analysis/Checksum.h"

#include "base/Text.h"
#include "container/StoredSamples.h"
#include "elements/ErrorRecords.h"

#include <nettle/md5.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

namespace {

const std::vector<unsigned char>& Read(StoredSamples& samples, Reporter& reporter) {
    const ReadingScope reading(reporter);
    return samples.Read();
}

} // namespace

std::string SampleMD5(const FileName& file, const InputPolicy& policy, const HostLogger& log,
                      Reporter& reporter, Warnings& warnings) {
    StoredSamples samples(file);
    md5_ctx state{};
    md5_init(&state);
    for (const auto* bytes = &Read(samples, reporter); !bytes->empty();
         bytes = &Read(samples, reporter)) {
        md5_update(&state, bytes->size(), bytes->data());
        reporter.Progress(samples.FramesRead(), samples.Frames().value_or(kUnknownTotal),
                          samples.Rate());
    }
    const ErrorRecords errors(log, file.shown);
    const auto shortfall =
        errors.VerifyDelivery(samples.Frames(), samples.FramesRead(), "", policy.allowTruncated);
    if (shortfall.has_value()) {
        warnings.Add(*shortfall);
    }
    std::array<std::uint8_t, MD5_DIGEST_SIZE> digest{};
    md5_digest(&state, digest.size(), digest.data());
    return Hexadecimal(std::string(digest.begin(), digest.end()));
}

} // namespace kel::host
