#include "elements/SourceReader.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <IAudioParameters_PCM.h>
#include <IChannelInfo.h>
#include <WorkflowStepImplementation.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kCannotRead = "cannot open for reading";
constexpr std::uint32_t kDefaultBlockFrames = 16384;
constexpr std::uint32_t kMaxBlockSamples = 1U << 19U; // 2 MiB: 512 frames of 1024 channels

std::string DescribeStream(std::int64_t frames, std::uint32_t channels, std::uint32_t rate) {
    return fmt::format("{}, {} and {} Hz", Count(static_cast<std::uint64_t>(frames), "frame"),
                       Count(channels, "channel"), rate);
}

} // namespace

SourceReader::SourceReader(const FileName& file, std::optional<std::uint32_t> blockFrames)
    : m_shownName(file.shown), m_blockFrames(blockFrames.value_or(kDefaultBlockFrames)) {
    RequireReadable(file);
    WithFileContext(file, kCannotRead, [&] {
        Open(FileSource(file, m_blockFrames));
        const std::uint32_t bounded = kMaxBlockSamples / std::max(Channels(), 1U);
        if (!blockFrames.has_value() && bounded < m_blockFrames) {
            m_blockFrames = bounded;
            Release();
            Open(FileSource(file, m_blockFrames));
        }
    });
}

SourceReader::SourceReader(std::string shownName, const ElementRecipe& recipe)
    : m_shownName(std::move(shownName)) {
    WithFileContext(m_shownName, kCannotRead, [&] { Open(recipe); });
}

void SourceReader::Open(const ElementRecipe& recipe) {
    m_element = ImplementElement<ElementFactoryType::AudioSource>(recipe.implementation,
                                                                  recipe.type, nullptr);
    m_element->SetInitConfig(recipe.settings);
    m_limits = m_element->GetTimeLimits("");
    m_description = m_element->GetDefinedOutput("");
    const auto infos = m_description != nullptr ? m_description->GetAudioInfos()
                                                : std::vector<std::shared_ptr<const IAudioInfo>>{};
    if (infos.empty() || infos.front()->GetChannelInfo() == nullptr) {
        throw std::runtime_error("it describes no audio");
    }
    m_info = infos.front();
}

SourceReader::~SourceReader() {
    try {
        Release();
    } catch (...) { // NOLINT(bugprone-empty-catch): another failure is being handled
    }
}

void SourceReader::Release() {
    m_element->Release();
}

std::uint32_t SourceReader::Channels() const {
    return m_info->GetChannelInfo()->GetNumberOfChannels();
}

std::uint32_t SourceReader::Rate() const {
    return m_limits.start.GetEditRate().numerator;
}

std::string DescribeDelivery(const IAudioInfo& info) {
    const auto pcm =
        std::dynamic_pointer_cast<const IAudioParameters_PCM>(info.GetAudioParameters());
    if (pcm == nullptr) {
        return "not PCM";
    }
    return fmt::format("{}-bit {} {}", pcm->GetBitsDepth(),
                       pcm->GetPCMType() == AudioPCMType::Float ? "float" : "integer",
                       Describe(pcm->GetEndianness()));
}

void VerifyReopens(const FileName& file, std::int64_t frames, std::uint32_t channels,
                   std::uint32_t rate) {
    const SourceReader written(file, 1);
    if (written.Frames() != frames || written.Channels() != channels || written.Rate() != rate) {
        throw JobError(
            file.shown,
            fmt::format("the written file opens with {} instead of {}; is the disk full?",
                        DescribeStream(written.Frames(), written.Channels(), written.Rate()),
                        DescribeStream(frames, channels, rate)));
    }
}

} // namespace kel::host
