// The order in which interfaces declare their operations: plug-ins that were built apart from the
// framework call them by their places in the virtual tables.

#include <kelCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;

// The place of a virtual operation in its class's table. In the C++ ABI that all compilers of this
// system share, a pointer to it holds the byte offset of the place; the mark of a virtual operation
// is 1 in the offset, or in the second word where code may have odd addresses.
template <typename Operation>
std::ptrdiff_t PlaceOf(Operation operation) {
    std::array<std::ptrdiff_t, 2> words{};
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words.data(), &operation, sizeof(operation));
    const bool markedInTheSecondWord = (words[1] & 1) != 0;
    EXPECT_TRUE(markedInTheSecondWord || (words[0] & 1) != 0) << "not a virtual operation";
    const std::ptrdiff_t offset = markedInTheSecondWord ? words[0] : words[0] - 1;
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <typename... Operations>
std::vector<std::ptrdiff_t> PlacesOf(Operations... operations) {
    return {PlaceOf(operations)...};
}

void ExpectAscending(const std::vector<std::ptrdiff_t>& places) {
    EXPECT_EQ(std::adjacent_find(places.begin(), places.end(), std::greater_equal<>()),
              places.end())
        << testing::PrintToString(places);
}

// Places 0 and 1 are the two entries of the destructor.

TEST(OperationOrder, OfBasicControl) {
    EXPECT_THAT(PlacesOf(&IBasicControl::UpdateConfig, &IBasicControl::GetManifest),
                ElementsAre(2, 3));
}

TEST(OperationOrder, OfSourceControl) {
    EXPECT_THAT(PlacesOf(&ISourceControl::UpdateConfig, &ISourceControl::GetManifest,
                         &ISourceControl::Open, &ISourceControl::SetDirection,
                         &ISourceControl::GetDirection, &ISourceControl::GotoTimeOffset,
                         &ISourceControl::IsMediaOpen, &ISourceControl::GetTimeLimits,
                         &ISourceControl::GetMetadatas, &ISourceControl::IsGrowing,
                         &ISourceControl::GetAvailableOutputs, &ISourceControl::ActivateOutputs,
                         &ISourceControl::GetActivatedOutputs),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14));
}

TEST(OperationOrder, OfMediaSource) {
    EXPECT_THAT(PlacesOf(&IMediaSource::GetDefinedOutput, &IMediaSource::GetSample,
                         &IMediaSource::Interrupt, &IMediaSource::SetInitConfig,
                         &IMediaSource::SetOutputMediator, &IMediaSource::ClearInternalBuffer,
                         &IMediaSource::GetManifest, &IMediaSource::Release),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9));
}

TEST(OperationOrder, OfSinkControl) {
    EXPECT_THAT(PlacesOf(&IBasicControl::UpdateConfig, &IBasicControl::GetManifest,
                         &ISinkControl::Open, &ISinkControl::PushMetadata, &ISinkControl::Close),
                ElementsAre(2, 3, 4, 5, 6));
}

TEST(OperationOrder, OfMediaSink) {
    EXPECT_THAT(PlacesOf(&IMediaSink::PushSample, &IMediaSink::DefineInput,
                         &IMediaSink::GetDefinedInput, &IMediaSink::SetInputMediator,
                         &IMediaSink::Interrupt, &IMediaSink::ClearInternalBuffer,
                         &IMediaSink::SetInitConfig, &IMediaSink::CheckInputAndAdaptIfNecessary,
                         &IMediaSink::GetManifest, &IMediaSink::Release),
                ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
}

TEST(OperationOrder, OfLoggerWriter) {
    EXPECT_THAT(PlacesOf(&ILoggerWriter::Write), ElementsAre(2));
}

TEST(OperationOrder, OfElementFactory) {
    EXPECT_THAT(PlacesOf(&IElementFactory::GetFactoryType), ElementsAre(2));
}

TEST(OperationOrder, OfCheckInputReport) {
    EXPECT_THAT(PlacesOf(&ICheckInputReport::GetErrorType), ElementsAre(2));
}

TEST(OperationOrder, OfInfoContainer) {
    ExpectAscending(PlacesOf(&IInfoContainer::GetInfos, &IInfoContainer::GetAudioInfos));
}

TEST(OperationOrder, OfAudioInfo) {
    ExpectAscending(
        PlacesOf(&IAudioInfo::GetChannelInfo, &IAudioInfo::GetId, &IAudioInfo::GetAudioParameters));
}

TEST(OperationOrder, OfPCMParametersContinuesThatOfAudioParameters) {
    const std::ptrdiff_t last = PlaceOf(&IAudioParameters::GetCodecFamily);
    const std::vector<std::ptrdiff_t> places =
        PlacesOf(&IAudioParameters_PCM::SetSampleRate, &IAudioParameters_PCM::GetSampleRate,
                 &IAudioParameters_PCM::GetEndianness, &IAudioParameters_PCM::SetEndianness,
                 &IAudioParameters_PCM::GetMuxing, &IAudioParameters_PCM::SetMuxing,
                 &IAudioParameters_PCM::GetPCMType, &IAudioParameters_PCM::SetPCMType,
                 &IAudioParameters_PCM::GetSampleSize, &IAudioParameters_PCM::SetSampleSize,
                 &IAudioParameters_PCM::GetBitsDepth, &IAudioParameters_PCM::SetBitsDepth);
    for (std::size_t i = 0; i < places.size(); ++i) {
        EXPECT_EQ(places[i], last + 1 + static_cast<std::ptrdiff_t>(i));
    }
}

TEST(OperationOrder, OfBuffer) {
    ExpectAscending(PlacesOf(static_cast<std::uint8_t* (IBuffer::*)()>(&IBuffer::GetData),
                             &IBuffer::GetSize, &IBuffer::SetSize, &IBuffer::Reserve));
}

TEST(OperationOrder, IsCalledByPlace) {
    // Calls the operation that PlaceOf found through the table of a real object.
    const std::shared_ptr<const ICheckInputReport> report = CreateCheckInputReportTrackError({});
    using GetErrorType = std::int32_t (*)(const ICheckInputReport*);
    GetErrorType const* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(report.get()), sizeof(table));
    EXPECT_EQ(table[PlaceOf(&ICheckInputReport::GetErrorType)](report.get()),
              report->GetErrorType());
}

} // namespace
} // namespace kel
