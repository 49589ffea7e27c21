#include "ToneSource.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kelTone {

using namespace kel;

namespace {

constexpr std::uint32_t kBytesPerValue = 4; // 32-bit float
constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();
constexpr const char* kClosed = "ToneSource is closed";

// Returns a setting, which must be from a minimum to a maximum.
std::int32_t ReadSetting(const IParametersCollectionInstance& config, const char* name,
                         std::int32_t min, std::int32_t max) {
    const std::int32_t value = config.GetIntegerValue(name);
    KEL_CHECK(value >= min && value <= max,
              name << " is " << value << ", not from " << min << " to " << max);
    return value;
}

} // namespace

ToneSource::ToneSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : m_manifest(std::move(manifest)) {}

std::shared_ptr<const IParametersCollectionInstance> ToneSource::GetManifest() const {
    return m_manifest;
}

void ToneSource::UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) {
    KEL_FAIL("ToneSource does not change its settings");
}

void ToneSource::SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) {
    KEL_CHECK_POINTER(config, "ToneSource got no settings");
    KEL_CHECK(!IsMediaOpen(), "ToneSource is open");
    m_tone = ReadSettings(*config);
    Open({});
}

ToneSource::Tone ToneSource::ReadSettings(const IParametersCollectionInstance& config) {
    constexpr std::int32_t kMaxChannels = 1000;
    constexpr std::int32_t kMaxFrames = 1000000; // with the channels, the bytes fit into 32 bits
    constexpr std::int32_t kMinLevel = -200;
    Tone tone;
    tone.rate = static_cast<std::uint32_t>(ReadSetting(config, "SampleRate", 1, kNoLimit));
    tone.channels = static_cast<std::uint32_t>(ReadSetting(config, "Channels", 1, kMaxChannels));
    tone.frequency = static_cast<std::uint32_t>(ReadSetting(config, "Frequency", 0, kNoLimit));
    tone.amplitude = std::pow(10.0, ReadSetting(config, "Level", kMinLevel, 0) / 20.0);
    tone.frames = ReadSetting(config, "Length", 0, kNoLimit);
    tone.maxFrames =
        static_cast<std::uint32_t>(ReadSetting(config, "MaxSamplesPerBuffer", 1, kMaxFrames));
    return tone;
}

void ToneSource::Open(const std::wstring& /*path*/) {
    KEL_CHECK(!IsMediaOpen(), "ToneSource is open");
    KEL_CHECK(m_tone.rate != 0, "ToneSource needs SetInitConfig first");

    const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetSampleRate(m_tone.rate);
    parameters->SetPCMType(AudioPCMType::Float);
    parameters->SetSampleSize(kBytesPerValue);
    parameters->SetBitsDepth(8 * kBytesPerValue);
    parameters->SetEndianness(PCMEndianness::Little);
    parameters->SetMuxing(PCMMuxing::Multi);
    const auto track = CreateTrack(ContentType::Audio, m_tone.channels, CreateTrackGroup("tone"),
                                   TrackLayout::Default);

    // Reuses the memory of released samples.
    m_allocator =
        ImplementElement<ElementFactoryType::MemoryBlockAllocator>("kel", "Recycler", nullptr);
    m_position = 0;
    m_info = CreateAudioInfo(parameters, CreateChannelInfo(track), {}, {});
    KEL_LOG(LogLevel::Info, "ToneSource: " << m_tone.frequency << " Hz, " << m_tone.frames
                                           << " frames, " << m_tone.rate << " a second, "
                                           << m_tone.channels << " channels");
}

bool ToneSource::IsMediaOpen() const {
    return m_info != nullptr;
}

void ToneSource::Release() {
    m_info = nullptr;
}

std::shared_ptr<const IInfoContainer> ToneSource::GetDefinedOutput(std::string /*name*/) const {
    return IsMediaOpen() ? CreateInfoContainer(m_info, nullptr) : nullptr;
}

std::vector<std::shared_ptr<const IChannelInfo>> ToneSource::GetAvailableOutputs() const {
    if (!IsMediaOpen()) {
        return {};
    }
    return {m_info->GetChannelInfo()};
}

void ToneSource::ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) {
    KEL_CHECK(IsMediaOpen(), kClosed);
    m_outputActive = !outputs.empty();
}

std::vector<std::shared_ptr<const IChannelInfo>> ToneSource::GetActivatedOutputs() const {
    if (!m_outputActive) {
        return {};
    }
    return GetAvailableOutputs();
}

// One edit unit is one frame.
TimeLimits ToneSource::Limits(std::int64_t start, std::int64_t frames) const {
    return {MediaTime(EditRate(m_tone.rate, 1), start, nullptr), frames};
}

TimeLimits ToneSource::GetTimeLimits(std::string /*track*/) {
    KEL_CHECK(IsMediaOpen(), kClosed);
    return Limits(0, m_tone.frames);
}

MediaTime ToneSource::GotoTimeOffset(const MediaTime& time, std::string /*track*/) {
    KEL_CHECK(IsMediaOpen(), kClosed);
    const EditRate rate(m_tone.rate, 1);
    KEL_CHECK(time.GetEditRate() == rate, "ToneSource counts time in frames");
    const std::int64_t frame = time.GetTimeNumber();
    KEL_CHECK(frame >= 0 && frame <= m_tone.frames,
              "ToneSource has no frame " << frame << ", only " << m_tone.frames);
    m_position = frame;
    return time;
}

// The value depends only on the number of the frame, not on the place where reading began. Whole
// cycles are removed in integers, so that the rest is exact however long the tone is.
float ToneSource::ValueAt(std::int64_t frame) const {
    constexpr double kTwoPi = 6.283185307179586476925;
    const double cycles = static_cast<double>(frame * m_tone.frequency % m_tone.rate) / m_tone.rate;
    return static_cast<float>(m_tone.amplitude * std::sin(kTwoPi * cycles));
}

std::shared_ptr<const ISampleContainer> ToneSource::GetSample() {
    if (!IsMediaOpen() || !m_outputActive || m_position == m_tone.frames) {
        return nullptr;
    }
    const auto frames = static_cast<std::uint32_t>(
        std::min<std::int64_t>(m_tone.maxFrames, m_tone.frames - m_position));
    const std::uint32_t bytes = frames * m_tone.channels * kBytesPerValue;
    const auto buffer = CreateBuffer(m_allocator, nullptr);
    buffer->Reserve(bytes);
    buffer->SetSize(bytes);

    auto* values = static_cast<float*>(static_cast<void*>(buffer->GetData()));
    for (std::uint32_t i = 0; i < frames; ++i) {
        values = std::fill_n(values, m_tone.channels, ValueAt(m_position + i));
    }

    const auto sample = CreateAudioSample(m_info->GetAudioParameters(), m_info, buffer,
                                          Limits(m_position, frames), {});
    m_position += frames;
    return CreateSampleContainer(sample, nullptr);
}

MediaSourceDirection ToneSource::GetDirection() const {
    return MediaSourceDirection::Forward;
}

void ToneSource::SetDirection(MediaSourceDirection direction) {
    KEL_CHECK(direction == MediaSourceDirection::Forward, "ToneSource goes forward only");
}

std::vector<std::shared_ptr<const IMetadata>> ToneSource::GetMetadatas() const {
    return {};
}

bool ToneSource::IsGrowing() const {
    return false;
}

void ToneSource::Interrupt() {}

void ToneSource::SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/,
                                   std::string /*output*/, std::string /*name*/) {}

void ToneSource::ClearInternalBuffer() {}

} // namespace kelTone
