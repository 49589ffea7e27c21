#include <IAudioParameters_PCM.h>
#include <ICheckInputReport.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel {

namespace {

using Encodings = std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>;

void ExpectReport(const ICheckInputReport& report, std::int32_t errorType,
                  const std::multiset<ContentType>& expected, const Encodings& accepted) {
    EXPECT_EQ(report.GetErrorType(), errorType);
    EXPECT_EQ(report.GetExpectedContentTypes(), expected);
    EXPECT_EQ(report.GetAcceptedEncodings(), accepted);
}

TEST(ACheckInputReport, HasItsKindAndWhatItWasMadeWith) {
    const std::multiset<ContentType> tracks = {ContentType::Audio, ContentType::Audio};
    const Encodings encodings = {
        {"audio-1",
         {CreateAudioParameters<ACodecFamily::PCM>(), CreateAudioParameters<ACodecFamily::PCM>()}},
        {"audio-2", {}}};
    ExpectReport(*CreateCheckInputReportNoError(), 0, {}, {});
    ExpectReport(*CreateCheckInputReportTrackError(tracks), 1, tracks, {});
    ExpectReport(*CreateCheckInputReportTrackError({}), 1, {}, {});
    ExpectReport(*CreateCheckInputReportEncodingError(encodings), 2, {}, encodings);
    ExpectReport(*CreateCheckInputReportEncodingError({}), 2, {}, {});
}

} // namespace
} // namespace kel
