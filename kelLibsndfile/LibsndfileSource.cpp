#include "LibsndfileSource.h"

#include <Checks.h>
#include <EditRate.h>
#include <IAudioInfo.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <IInfoContainer.h>
#include <IMemoryBlock.h>
#include <IMemoryBlockAllocator.h>
#include <IMetadata.h>
#include <ISampleContainer.h>
#include <ITrack.h>
#include <ITrackGroup.h>
#include <Logging.h>
#include <MediaTime.h>
#include <ParametersCollection.h>
#include <PlatformString.h>
#include <TimeLimits.h>
#include <WorkflowStepImplementation.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace {

constexpr std::uint32_t kBytesPerValue = 4; // 32-bit float

// One edit unit is one frame.
EditRate FrameRate(const SF_INFO& sfInfo) {
    return {static_cast<std::uint32_t>(sfInfo.samplerate), 1};
}

bool IsNull(const EditRate& rate) {
    return rate.numerator == 0 || rate.denominator == 0;
}

// Intentional: rates are compared as quotients with a tolerance, so that 96000/2 is 48000/1 and a
// rate that was rounded on its way is still the rate of the file.
bool IsSameRate(const EditRate& left, const EditRate& right) {
    constexpr double kTolerance = 0.00006;
    // A null rate has no quotient.
    if (IsNull(left) || IsNull(right)) {
        return IsNull(left) && IsNull(right);
    }
    left.CheckDenominator();
    right.CheckDenominator();
    const double leftQuotient = static_cast<double>(left.numerator) / left.denominator;
    const double rightQuotient = static_cast<double>(right.numerator) / right.denominator;
    return std::abs(leftQuotient - rightQuotient) <= kTolerance;
}

constexpr const char* kNotConfigured = "LibsndfileSource needs SetInitConfig first";

} // namespace

LibsndfileSource::LibsndfileSource(std::shared_ptr<const IParametersCollectionInstance> config)
    : manifest(std::move(config)) {}

LibsndfileSource::~LibsndfileSource() {
    // Intentional: a source that is destroyed closes its file, as reading has nothing to finish.
    LibsndfileSource::Release();
}

void LibsndfileSource::UpdateConfig(
    std::shared_ptr<const IParametersCollectionInstance> /*config*/) {
    KEL_FAIL("LibsndfileSource::UpdateConfig not supported");
}

std::shared_ptr<const IParametersCollectionInstance> LibsndfileSource::GetManifest() const {
    return manifest;
}

void LibsndfileSource::SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) {
    initConfig = std::move(config);
    KEL_CHECK_POINTER(initConfig, kNotConfigured);
    const std::wstring path = initConfig->GetWideStringValue("FilePath");
    if (!path.empty()) {
        // Intentional: the call is virtual, so that a subclass that overrides Open opens this file
        // too.
        Open(path);
    }
}

void LibsndfileSource::Open(const std::wstring& path) {
    // Intentional: the handle decides and not IsMediaOpen, which a subclass may override.
    // Intentional: a second file is refused, because closing the first one is the caller's
    // decision.
    KEL_CHECK(sndFile == nullptr, "Cannot open a file twice.");

    const std::string name = ConvertWideStringToPlatformString(path);
    // Intentional: libsndfile gets the description of the last attempt, a failed one included,
    // because a series of headerless files is described by its first file.
    SNDFILE* file = sf_open(name.c_str(), SFM_READ, &sfInfo);
    if (file == nullptr) {
        // Without a handle there is only the library's global error text.
        KEL_FAIL("Unable to open file \"" << name << "\" with libsndfile. Error is:\""
                                          << sf_strerror(nullptr) << "\"");
    }
    if (sfInfo.channels <= 0) {
        // Intentional: the handle stays open, because libsndfile cannot be trusted to close a file
        // that it reports without channels.
        KEL_FAIL("The following file \"" << name << "\" has " << sfInfo.channels << " channels.");
    }
    KEL_LOG(LogLevel::Info, "Successfully opened \""
                                << name << "\" -- nb channels: " << sfInfo.channels
                                << " nb samples (in each channel): " << sfInfo.frames
                                << " format: " << sfInfo.format);
    // Intentional: the stamp of the next sample and the activation of the output stay as they are,
    // so that a series of files is read like one stream.
    sndFile = file;

    KEL_CHECK_POINTER(initConfig, kNotConfigured);
    const std::string allocatorName = initConfig->GetStringValue("AllocatorRef");
    if (!allocatorName.empty()) {
        // Intentional: the file stays open where the allocator is unknown, so that its time limits
        // can be read all the same.
        allocator = GetAllocator(allocatorName);
        KEL_CHECK_POINTER(allocator, "could not find allocator " << allocatorName);
    }

    // Intentional: the new parameters count at once, because they describe the file that is open
    // even where the rest of its description cannot be created.
    audioParameters = CreateAudioParameters<ACodecFamily::PCM>();
    audioParameters->SetMuxing(PCMMuxing::Multi);
    audioParameters->SetSampleRate(static_cast<std::uint32_t>(sfInfo.samplerate));
    audioParameters->SetBitsDepth(32);
    audioParameters->SetEndianness(PCMEndianness::Little);
    audioParameters->SetPCMType(AudioPCMType::Float);
    audioParameters->SetSampleSize(kBytesPerValue);

    const std::string trackName = ConvertWideStringToPlatformString(ExtractFilenameFromPath(path));
    track = CreateTrack(ContentType::Audio, static_cast<std::uint32_t>(sfInfo.channels),
                        CreateTrackGroup(trackName), TrackLayout::Default);
    audioInfo = CreateAudioInfo(audioParameters, CreateChannelInfo(track), {}, {});

    // Intentional: a named allocator only has to exist, because the source's own pool suits a
    // stream of blocks of one size better.
    allocator =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
}

bool LibsndfileSource::IsMediaOpen() const {
    return sndFile != nullptr;
}

bool LibsndfileSource::IsGrowing() const {
    return false;
}

std::vector<std::shared_ptr<const IMetadata>> LibsndfileSource::GetMetadatas() const {
    return {};
}

void LibsndfileSource::Interrupt() {}

void LibsndfileSource::ClearInternalBuffer() {}

void LibsndfileSource::SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/,
                                         std::string /*output*/, std::string /*name*/) {}

void LibsndfileSource::Release() {
    if (sndFile == nullptr) {
        return;
    }
    // Intentional: the choice of outputs and the stamp of the next sample stay, so that they apply
    // to the next file.
    sf_close(sndFile);
    sndFile = nullptr;
}

std::shared_ptr<const IInfoContainer>
LibsndfileSource::GetDefinedOutput(std::string /*name*/) const {
    // A failed Open may leave an open file without a description.
    if (!IsMediaOpen() || audioInfo == nullptr) {
        return nullptr;
    }
    return CreateInfoContainer(audioInfo, nullptr);
}

std::vector<std::shared_ptr<const IChannelInfo>> LibsndfileSource::GetAvailableOutputs() const {
    if (!IsMediaOpen() || audioInfo == nullptr) {
        return {};
    }
    return {audioInfo->GetChannelInfo()};
}

void LibsndfileSource::ActivateOutputs(
    const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) {
    if (!IsMediaOpen()) {
        KEL_FAIL("Cannot call ActivateOutputs without an opened file");
    }
    // Intentional: any list that is not empty activates the output, because there is only one.
    outputsActivated = !outputs.empty();
}

std::vector<std::shared_ptr<const IChannelInfo>> LibsndfileSource::GetActivatedOutputs() const {
    if (!IsMediaOpen() || !outputsActivated) {
        return {};
    }
    return GetAvailableOutputs();
}

std::shared_ptr<const ISampleContainer> LibsndfileSource::GetSample() {
    if (!IsMediaOpen() || !outputsActivated) {
        return nullptr;
    }
    KEL_CHECK_POINTER(initConfig, kNotConfigured);
    // Intentional: the value is converted without a check, so that 0 delivers nothing and a
    // negative value means a very large number.
    const auto maxFrames =
        static_cast<std::uint32_t>(initConfig->GetIntegerValue("MaxSamplesPerBuffer"));
    const std::uint32_t bytesPerFrame =
        static_cast<std::uint32_t>(sfInfo.channels) * kBytesPerValue;

    std::shared_ptr<IBuffer> buffer = CreateBuffer(allocator, nullptr);
    // Intentional: the product wraps in 32 bits and the read is limited to the frames that fit, so
    // that a large setting reads less instead of failing.
    const std::uint32_t reservedBytes = bytesPerFrame * maxFrames;
    buffer->Reserve(reservedBytes);
    const std::uint64_t wholeFrame =
        std::uint64_t{kBytesPerValue} * static_cast<std::uint32_t>(sfInfo.channels);
    const auto framesToRead =
        static_cast<sf_count_t>(std::min<std::uint64_t>(maxFrames, reservedBytes / wholeFrame));

    auto* values = static_cast<float*>(static_cast<void*>(buffer->GetData()));
    const sf_count_t framesRead = sf_readf_float(sndFile, values, framesToRead);
    if (framesRead == 0) {
        return nullptr;
    }
    // Intentional: only an error is reported and not a short read, which is the normal end of a
    // file. Intentional: the frames before an error are delivered, because they are valid.
    if (sf_error(sndFile) != SF_ERR_NO_ERROR) {
        KEL_LOG(LogLevel::Error, "Warning: tried to read "
                                     << maxFrames << " frames but could only read " << framesRead
                                     << " -- libsndfile error is " << sf_strerror(sndFile));
    }
    buffer->SetSize(bytesPerFrame * static_cast<std::uint32_t>(framesRead));

    const TimeLimits limits(MediaTime(FrameRate(sfInfo), position, nullptr), framesRead);
    auto container = CreateSampleContainer(
        CreateAudioSample(audioParameters, audioInfo, std::move(buffer), limits, {}), nullptr);
    // Intentional: the stamp counts only delivered frames, so that a sample that cannot be created
    // does not change it.
    position += framesRead;
    return container;
}

TimeLimits LibsndfileSource::GetTimeLimits(std::string /*track*/) {
    if (!IsMediaOpen()) {
        KEL_FAIL("Cannot call GetTimeLimits without an opened file");
    }
    // Intentional: the limits are those of the file and do not depend on the frames delivered so
    // far. Intentional: libsndfile's number of frames is passed on unchanged, even where it is
    // negative.
    return {MediaTime(FrameRate(sfInfo), 0, nullptr), sfInfo.frames};
}

MediaTime LibsndfileSource::GotoTimeOffset(const MediaTime& time, std::string /*track*/) {
    if (!IsMediaOpen()) {
        KEL_FAIL("Cannot call GotoTimeOffset without an opened file");
    }
    // Intentional: the result keeps the rate and the clock of the request, so that the caller can
    // compare the two.
    MediaTime result = time;
    if (!IsSameRate(time.GetEditRate(), FrameRate(sfInfo))) {
        KEL_FAIL("LibsndfileSource::GotoTimeOffset - must use same EditRate as the source "
                 "TimeLimits");
    }
    const std::int64_t frame = time.GetTimeNumber();
    if (frame < 0) {
        KEL_FAIL("LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() < 0");
    }
    if (frame > sfInfo.frames) {
        KEL_FAIL("LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() past file end!");
    }
    const sf_count_t reached = sf_seek(sndFile, frame, SEEK_SET);
    if (reached < 0) {
        KEL_FAIL("LibsndfileSource::GotoTimeOffset - returned frame offset < 0");
    }
    if (reached > sfInfo.frames) {
        KEL_FAIL("LibsndfileSource::GotoTimeOffset - returned frame offset past file end!");
    }
    // Intentional: the stamp of the next sample stays, because it counts the delivered frames.
    result.SetTimeNumber(reached);
    return result;
}

MediaSourceDirection LibsndfileSource::GetDirection() const {
    return MediaSourceDirection::Forward;
}

void LibsndfileSource::SetDirection(MediaSourceDirection /*direction*/) {
    KEL_FAIL("LibsndfileSource::SetDirection not supported");
}

} // namespace kel
