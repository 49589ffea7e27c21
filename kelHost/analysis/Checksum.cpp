#include "analysis/Checksum.h"

#include "base/LoadedLibrary.h"
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

struct NettleLibrary {
    LoadedLibrary library{"libnettle.so.8", "libnettle8"};
    KEL_LIBRARY_FUNCTION(nettle_md5_digest);
    KEL_LIBRARY_FUNCTION(nettle_md5_init);
    KEL_LIBRARY_FUNCTION(nettle_md5_update);
};

const std::vector<unsigned char>& Read(StoredSamples& samples, Reporter& reporter) {
    const ReadingScope reading(reporter);
    return samples.Read();
}

} // namespace

std::string SampleMD5(const FileName& file, const InputPolicy& policy, const HostLogger& log,
                      Reporter& reporter, Warnings& warnings) {
    StoredSamples samples(file);
    const NettleLibrary library;
    md5_ctx state{};
    library.nettle_md5_init(&state);
    for (const auto* bytes = &Read(samples, reporter); !bytes->empty();
         bytes = &Read(samples, reporter)) {
        library.nettle_md5_update(&state, bytes->size(), bytes->data());
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
    library.nettle_md5_digest(&state, digest.size(), digest.data());
    return Hexadecimal(std::string(digest.begin(), digest.end()));
}

} // namespace kel::host
