#include <IAudioParameters_PCM.h>
#include <ICheckInputReport.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

static_assert(std::is_same_v<decltype(std::declval<const ICheckInputReport&>().GetErrorType()),
                             std::int32_t>);

using Encodings = std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>;

TEST(ACheckInputReport, OfAnAcceptedInputIsOfKindZero) {
    const auto report = CreateCheckInputReportNoError();
    EXPECT_EQ(report->GetErrorType(), 0);
    EXPECT_TRUE(report->GetExpectedContentTypes().empty());
    EXPECT_TRUE(report->GetAcceptedEncodings().empty());
}

TEST(ACheckInputReport, OfWrongTracksHasTheTracksThatAreExpected) {
    const std::multiset<ContentType> expected = {ContentType::Audio, ContentType::Audio};
    const auto report = CreateCheckInputReportTrackError(expected);
    EXPECT_NE(report->GetErrorType(), 0);
    EXPECT_EQ(report->GetErrorType(), static_cast<std::int32_t>(CheckInputErrorType::Track));
    EXPECT_EQ(report->GetExpectedContentTypes(), expected);
    EXPECT_TRUE(report->GetAcceptedEncodings().empty());
}

TEST(ACheckInputReport, OfAWrongEncodingHasTheEncodingsThatAreAccepted) {
    const Encodings accepted = {
        {"audio-1",
         {CreateAudioParameters<ACodecFamily::PCM>(), CreateAudioParameters<ACodecFamily::PCM>()}},
        {"audio-2", {}}};
    const auto report = CreateCheckInputReportEncodingError(accepted);
    EXPECT_NE(report->GetErrorType(), 0);
    EXPECT_EQ(report->GetErrorType(), static_cast<std::int32_t>(CheckInputErrorType::Encoding));
    EXPECT_EQ(report->GetAcceptedEncodings(), accepted);
    EXPECT_TRUE(report->GetExpectedContentTypes().empty());
}

TEST(ACheckInputReport, OfAnErrorIsOfItsKindEvenWithNothingToPropose) {
    const std::int32_t track = CreateCheckInputReportTrackError({})->GetErrorType();
    const std::int32_t encoding = CreateCheckInputReportEncodingError({})->GetErrorType();
    EXPECT_NE(track, 0);
    EXPECT_NE(encoding, 0);
    EXPECT_NE(track, encoding);
}

TEST(ACheckInputReport, ProposesParametersThatCanBeReadBack) {
    const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetBitsDepth(24);
    const auto report = CreateCheckInputReportEncodingError({{"audio-1", {parameters}}});
    const auto proposed = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
        report->GetAcceptedEncodings().at("audio-1").at(0));
    ASSERT_NE(proposed, nullptr);
    EXPECT_EQ(proposed->GetBitsDepth(), 24);
}

} // namespace
} // namespace kel
