// The order in which interfaces declare their operations: plug-ins that were built separately from
// the framework call them by their places in the virtual tables.

#include <kelCore.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace kel {

namespace {

// The place of a virtual operation in the table of its class. In the C++ ABI that all compilers of
// this system share, a pointer to it holds the byte offset of the place; the mark of a virtual
// operation is 1 in the offset, or in the second word where code may have odd addresses.
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

// Expects the operations at consecutive places after the destructor, which has places 0 and 1.
template <typename... Operations>
void ExpectOrder(Operations... operations) {
    const std::vector<std::ptrdiff_t> places = {PlaceOf(operations)...};
    for (std::size_t i = 0; i < places.size(); ++i) {
        EXPECT_EQ(places[i], static_cast<std::ptrdiff_t>(i) + 2) << "operation " << i;
    }
}

TEST(OperationOrder, OfControls) {
    ExpectOrder(&IBasicControl::UpdateConfig, &IBasicControl::GetManifest);
    ExpectOrder(&ISourceControl::UpdateConfig, &ISourceControl::GetManifest, &ISourceControl::Open,
                &ISourceControl::SetDirection, &ISourceControl::GetDirection,
                &ISourceControl::GotoTimeOffset, &ISourceControl::IsMediaOpen,
                &ISourceControl::GetTimeLimits, &ISourceControl::GetMetadatas,
                &ISourceControl::IsGrowing, &ISourceControl::GetAvailableOutputs,
                &ISourceControl::ActivateOutputs, &ISourceControl::GetActivatedOutputs);
    ExpectOrder(&IBasicControl::UpdateConfig, &IBasicControl::GetManifest, &ISinkControl::Open,
                &ISinkControl::PushMetadata, &ISinkControl::Close);
}

TEST(OperationOrder, OfDataSides) {
    ExpectOrder(&IMediaSource::GetDefinedOutput, &IMediaSource::GetSample, &IMediaSource::Interrupt,
                &IMediaSource::SetInitConfig, &IMediaSource::SetOutputMediator,
                &IMediaSource::ClearInternalBuffer, &IMediaSource::GetManifest,
                &IMediaSource::Release);
    ExpectOrder(&IMediaSink::PushSample, &IMediaSink::DefineInput, &IMediaSink::GetDefinedInput,
                &IMediaSink::SetInputMediator, &IMediaSink::Interrupt,
                &IMediaSink::ClearInternalBuffer, &IMediaSink::SetInitConfig,
                &IMediaSink::CheckInputAndAdaptIfNecessary, &IMediaSink::GetManifest,
                &IMediaSink::Release);
}

TEST(OperationOrder, OfDescriptions) {
    ExpectOrder(&IInfoContainer::GetInfos, &IInfoContainer::GetAudioInfos);
    ExpectOrder(&IAudioInfo::GetChannelInfo, &IAudioInfo::GetId, &IAudioInfo::GetAudioParameters);
    ExpectOrder(&IAudioParameters::GetCodecFamily, &IAudioParameters_PCM::SetSampleRate,
                &IAudioParameters_PCM::GetSampleRate, &IAudioParameters_PCM::GetEndianness,
                &IAudioParameters_PCM::SetEndianness, &IAudioParameters_PCM::GetMuxing,
                &IAudioParameters_PCM::SetMuxing, &IAudioParameters_PCM::GetPCMType,
                &IAudioParameters_PCM::SetPCMType, &IAudioParameters_PCM::GetSampleSize,
                &IAudioParameters_PCM::SetSampleSize, &IAudioParameters_PCM::GetBitsDepth,
                &IAudioParameters_PCM::SetBitsDepth);
}

TEST(OperationOrder, OfOtherInterfaces) {
    ExpectOrder(&ILoggerWriter::Write);
    ExpectOrder(&IElementFactory::GetFactoryType);
    ExpectOrder(&ICheckInputReport::GetErrorType);
    using Bytes = std::uint8_t* (IBuffer::*)();
    using ConstantBytes = const std::uint8_t* (IBuffer::*)() const;
    ExpectOrder(static_cast<Bytes>(&IBuffer::GetData),
                static_cast<ConstantBytes>(&IBuffer::GetData), &IBuffer::GetSize, &IBuffer::SetSize,
                &IBuffer::Reserve);
}

TEST(OperationOrder, IsThePlaceInTheTableOfAnObject) {
    const std::shared_ptr<const ICheckInputReport> report = CreateCheckInputReportTrackError({});
    using GetErrorType = std::int32_t (*)(const ICheckInputReport*);
    GetErrorType const* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(report.get()), sizeof(table));
    EXPECT_EQ(table[PlaceOf(&ICheckInputReport::GetErrorType)](report.get()),
              report->GetErrorType());
}

} // namespace
} // namespace kel
