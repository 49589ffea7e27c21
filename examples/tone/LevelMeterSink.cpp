#include "LevelMeterSink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <locale>
#include <sstream>
#include <utility>

namespace kelTone {

using namespace kel;

namespace {

constexpr std::uint32_t kBytesPerValue = 4; // 32-bit float

bool IsFloat(const IAudioParameters_PCM& parameters) {
    return parameters.GetPCMType() == AudioPCMType::Float &&
           parameters.GetSampleSize() == kBytesPerValue &&
           parameters.GetEndianness() == PCMEndianness::Little;
}

// Returns a level such as "-20.00", in every locale; "-inf" for silence.
std::string Decibels(double value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(2) << 20 * std::log10(value);
    return text.str();
}

} // namespace

LevelMeterSink::LevelMeterSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : m_manifest(std::move(manifest)) {}

std::shared_ptr<const IParametersCollectionInstance> LevelMeterSink::GetManifest() const {
    return m_manifest;
}

void LevelMeterSink::UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) {
    KEL_FAIL("LevelMeterSink does not change its settings");
}

void LevelMeterSink::SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) {
    KEL_CHECK_POINTER(config, "LevelMeterSink got no settings");
    Open(config->GetWideStringValue("FilePath"));
}

void LevelMeterSink::Open(const std::wstring& path) {
    KEL_CHECK(!m_measuring, "LevelMeterSink is measuring");
    m_path = ConvertWideStringToPlatformString(path);
}

std::shared_ptr<const ICheckInputReport>
LevelMeterSink::CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                              std::string /*name*/) const {
    KEL_CHECK_POINTER(input, "LevelMeterSink got no input description");
    const auto infos = input->GetAudioInfos();
    if (infos.size() != 1 || input->GetInfos().size() != 1 ||
        infos.front()->GetChannelInfo() == nullptr ||
        infos.front()->GetChannelInfo()->GetNumberOfChannels() == 0) {
        return CreateCheckInputReportTrackError({ContentType::Audio});
    }
    const auto parameters =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(infos.front()->GetAudioParameters());
    if (parameters != nullptr && IsFloat(*parameters)) {
        return CreateCheckInputReportNoError();
    }
    const auto accepted = CreateAudioParameters<ACodecFamily::PCM>();
    accepted->SetSampleRate(parameters != nullptr ? parameters->GetSampleRate() : 0);
    accepted->SetPCMType(AudioPCMType::Float);
    accepted->SetSampleSize(kBytesPerValue);
    accepted->SetBitsDepth(8 * kBytesPerValue);
    accepted->SetEndianness(PCMEndianness::Little);
    accepted->SetMuxing(PCMMuxing::Multi);
    return CreateCheckInputReportEncodingError({{infos.front()->GetId(), {accepted}}});
}

void LevelMeterSink::DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) {
    KEL_CHECK(!m_measuring, "LevelMeterSink is measuring");
    const auto report = CheckInputAndAdaptIfNecessary(input, std::move(name));
    KEL_CHECK(report->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::None),
              "LevelMeterSink takes one input of 32-bit float, little-endian");
    if (!m_path.empty()) {
        m_file.open(m_path);
        KEL_CHECK(m_file.is_open(), "LevelMeterSink cannot create \"" << m_path << "\"");
    }
    m_levels.assign(input->GetAudioInfos().front()->GetChannelInfo()->GetNumberOfChannels(), {});
    m_frames = 0;
    m_input = std::move(input);
    m_measuring = true;
}

std::shared_ptr<const IInfoContainer> LevelMeterSink::GetDefinedInput(std::string /*name*/) const {
    return m_input;
}

void LevelMeterSink::PushSample(std::shared_ptr<const ISampleContainer> container) {
    KEL_CHECK_POINTER(container, "LevelMeterSink got no sample");
    KEL_CHECK(m_measuring, "LevelMeterSink needs DefineInput first");
    for (const auto& sample : container->GetAudioSamples(nullptr, nullptr)) {
        const std::shared_ptr<const IBuffer> buffer = sample->GetBuffer();
        const std::size_t values = buffer->GetSize() / kBytesPerValue;
        KEL_CHECK(buffer->GetSize() % (kBytesPerValue * m_levels.size()) == 0,
                  "LevelMeterSink got " << buffer->GetSize() << " bytes, not whole frames");
        for (std::size_t i = 0; i < values; ++i) {
            float value = 0;
            std::memcpy(&value, buffer->GetData() + i * kBytesPerValue, kBytesPerValue);
            Level& level = m_levels[i % m_levels.size()];
            level.peak = std::max(level.peak, std::abs(static_cast<double>(value)));
            level.sumOfSquares += static_cast<double>(value) * static_cast<double>(value);
        }
        m_frames += values / m_levels.size();
    }
}

void LevelMeterSink::Close(bool /*flag*/) {
    if (!m_measuring) {
        return;
    }
    m_measuring = false;
    for (std::size_t i = 0; i < m_levels.size(); ++i) {
        const double rms =
            m_frames == 0 ? 0 : std::sqrt(m_levels[i].sumOfSquares / static_cast<double>(m_frames));
        const std::string text = "channel " + std::to_string(i + 1) + ": peak " +
                                 Decibels(m_levels[i].peak) + " dB, RMS " + Decibels(rms) + " dB";
        KEL_LOG(LogLevel::Info, text);
        m_file << text << "\n";
    }
    if (!m_path.empty()) {
        m_file.close();
        KEL_CHECK(m_file.good(), "LevelMeterSink cannot write \"" << m_path << "\"");
    }
}

void LevelMeterSink::Release() {
    Close(false);
}

void LevelMeterSink::PushMetadata(
    const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) {
    KEL_FAIL("LevelMeterSink takes no metadata");
}

void LevelMeterSink::SetInputMediator(std::shared_ptr<IInputMediator> /*mediator*/,
                                      std::string /*input*/, std::string /*name*/) {
    KEL_FAIL("LevelMeterSink is pushed to");
}

void LevelMeterSink::Interrupt() {}

void LevelMeterSink::ClearInternalBuffer() {}

} // namespace kelTone
