#include "elements/SourceReader.h"

#include "base/Descriptor.h"
#include "base/Errors.h"
#include "base/Text.h"
#include "container/ChannelOrder.h"
#include "container/MPEGStream.h"
#include "container/OggStreams.h"
#include "container/Recognition.h"
#include "elements/ElementCall.h"

#include <IAudioParameters_PCM.h>
#include <IChannelInfo.h>
#include <MediaTime.h>
#include <WorkflowStepImplementation.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kFurtherStreams = "cannot read all samples: it contains several streams, one "
                                        "after the other, of which only the first can be read";
constexpr std::uint32_t kDefaultBlockFrames = 16384;
constexpr std::uint32_t kMaxBlockSamples = 1U << 19U; // 2 MiB: 512 frames of 1024 channels

// The stages of a long transfer wait less often for each other when blocks are large.
constexpr std::uint32_t kLongBlockSamples = 1U << 17U; // 512 KiB
constexpr std::int64_t kLongFileFrames = 256 * std::int64_t{kDefaultBlockFrames};

std::uint32_t ChooseBlockFrames(std::optional<std::int64_t> frames, std::uint32_t channels) {
    const std::uint32_t divisor = std::max(channels, 1U);
    const std::uint32_t bounded = std::min(kDefaultBlockFrames, kMaxBlockSamples / divisor);
    const bool isLong = frames.value_or(0) >= kLongFileFrames;
    return isLong ? std::max(bounded, kLongBlockSamples / divisor) : bounded;
}

// Returns the reason why a source cannot open a file, as far as the host can see it.
std::string DescribeRefusal(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.Number() < 0) {
        return std::strerror(errno);
    }
    struct stat status {};
    if (fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) {
        return "it is empty";
    }
    return "its format is unknown or it is damaged (--verbose shows more)";
}

// Opens a file. A library that looks for the format of a file sets errno to many values, none of
// which is the cause.
template <typename Operation>
void OpenAsFile(const FileName& file, Operation operation) {
    WithFileContext(file, kOpenForReading, [&] {
        try {
            operation();
        } catch (const JobError&) {
            throw;
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& error) {
            LogWords(error);
            throw ElementError(file.shown, kOpenForReading, 0);
        }
    });
}

OpeningFacts FactsOf(const SampleLayout& layout) {
    return {layout.frames, layout.channels, layout.rate, {layout.first}};
}

} // namespace

SourceReader::SourceReader(const FileName& file, std::optional<std::uint32_t> blockFrames,
                           const Repair& repair)
    : m_shownName(file.shown), m_blockFrames(blockFrames.value_or(kDefaultBlockFrames)) {
    RequireReadable(file);
    OpenAsFile(file, [&] {
        m_recipe = FileSource(file, m_blockFrames);
        OpenFile(file, repair);
        const std::uint32_t chosen = ChooseBlockFrames(Frames(), Channels());
        if (!blockFrames.has_value() && chosen != m_blockFrames) {
            Release();
            SetBlockFrames(chosen);
            OpenFile(file, repair);
        }
    });
}

SourceReader::SourceReader(std::string shownName, const ElementRecipe& recipe,
                           const std::string& file, const Repair& repair)
    : m_shownName(std::move(shownName)), m_blockFrames(BlockFramesIn(recipe).value_or(0)),
      m_recipe(recipe) {
    if (!file.empty()) {
        OpenAsFile({file, m_shownName}, [&] { OpenFile({file, m_shownName}, repair); });
    } else if (ReadsFile(m_recipe)) {
        OpenAsFile(m_shownName, [&] { Open(); }); // once more
    } else {
        WithFileContext(m_shownName, kOpenForReading, [&] { Open(); });
    }
}

void SourceReader::OpenFile(const FileName& file, const Repair& repair) {
    if (m_repaired.has_value()) {
        const FileName copy(m_repaired->Path(), m_shownName);
        OpenSource(copy, FileState(copy.path), std::nullopt); // with another block size
        return;
    }
    m_path = file.path;
    m_state.emplace(file.path);
    m_header = ReadInputHeader(file);
    const std::string obstacle = m_header.has_value() ? m_header->Obstacle() : "";
    const bool isRepairable = m_header.has_value() && m_header->isRepairable;
    if (repair.isAllowed && isRepairable && !obstacle.empty()) {
        OpenRepaired(file, obstacle, repair);
        return;
    }
    try {
        OpenSource(file, *m_state, m_header.has_value() ? m_header->Layout() : std::nullopt);
    } catch (const JobError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        if (!m_header.has_value() && IsUnrecognised(file, error.what())) {
            throw UnrecognisedFile(
                m_shownName, fmt::format("{}: {}", kOpenForReading, DescribeRefusal(file.path)));
        }
        LogWords(error);
        const char* remedy = !isRepairable ? "{}"
                             : m_header->truncation.has_value()
                                 ? "{} (--repair --allow-truncated reads it)"
                                 : "{} (--repair reads it)";
        const std::string cause =
            obstacle.empty() ? DescribeRefusal(file.path) : fmt::format(remedy, obstacle);
        throw JobError(m_shownName, fmt::format("{}: {}", kOpenForReading, cause));
    }
    const std::string misreading = Misreading();
    if (repair.isAllowed && isRepairable && !misreading.empty()) {
        Release();
        OpenRepaired(file, misreading, repair);
    }
    if (!m_header.has_value()) {
        CountMPEGFrames(file, repair);
        m_hasFurtherStreams = HasFurtherOggStreams(file);
    }
}

// Sources end at the number of frames that they declare, and libraries estimate a number that an
// MPEG stream does not contain: much too low a number at a variable bit rate.
void SourceReader::CountMPEGFrames(const FileName& file, const Repair& repair) {
    const auto stream = ReadMPEGStream(file, repair.run);
    if (!stream.has_value()) {
        return;
    }
    m_otherFrames = stream->DescribeOther();
    if (!stream->IsLongerThan(m_limits.duration)) {
        return;
    }
    m_countReason = stream->Describe();
    // A source that estimates too many frames ends with the file.
    if (stream->canDeclareFrames || m_limits.duration < stream->Samples() ||
        !stream->IsContinuous()) {
        Release();
        m_repaired = MakeCountedCopy(file, *stream, repair.directory, repair.run);
        const FileName copy(m_repaired->Path(), m_shownName);
        SetFilePath(*m_recipe.settings, copy.path);
        OpenSource(copy, FileState(copy.path), std::nullopt);
    }
    constexpr std::int64_t kDecoderDelay = 529;
    const std::int64_t omitted = stream->canDeclareFrames ? kDecoderDelay : 0;
    const bool isTooLong = stream->canDeclareFrames && m_limits.duration > stream->Samples();
    if (isTooLong || m_limits.duration < stream->Samples() - omitted) {
        throw JobError(m_shownName,
                       fmt::format("cannot read all samples: its {} are {}, and the source "
                                   "declares {}",
                                   Count(stream->frames, "MPEG frame"),
                                   Count(static_cast<std::uint64_t>(stream->Samples()), "frame"),
                                   m_limits.duration));
    }
    if (!stream->canDeclareFrames) {
        m_counted = stream->Samples();
    }
}

void SourceReader::OpenRepaired(const FileName& file, const std::string& reason,
                                const Repair& repair) {
    m_repaired = MakeRepairedCopy(file, *m_header, repair.directory, repair.run);
    m_repairReason = reason;
    const FileName copy(m_repaired->Path(), m_shownName);
    SetFilePath(*m_recipe.settings, copy.path);
    const auto header = ReadInputHeader(copy);
    OpenSource(copy, FileState(copy.path), header.has_value() ? header->Layout() : std::nullopt);
}

// Libraries take parts of a header that they cannot read for zeros, and then report another length,
// or samples at another offset. If the header declares what the source reports, all is well. In all
// other cases a second source has to report the same.
void SourceReader::OpenSource(const FileName& file, const FileState& state,
                              const std::optional<SampleLayout>& declared) {
    const OpenPositions& before = m_positions.emplace(state);
    Open();
    m_channelOrder = ReadChannelOrder(file, Channels());
    const OpeningFacts first = Facts(before);
    if (m_element->IsGrowing() || (declared.has_value() && first == FactsOf(*declared))) {
        return;
    }
    const OpenPositions between{state};
    const SourceReader again(m_shownName, m_recipe, "");
    const OpeningFacts second = again.Facts(between);
    // A file that another program is still writing may differ.
    const bool hasGrown = FileState(file.path).Bytes() != state.Bytes();
    if (!(first == second) && !hasGrown) {
        Release();
        throw JobError(m_shownName,
                       fmt::format("cannot read its header: opened twice, it has {} and then {}; "
                                   "the disk fails, or a program changes the file",
                                   Describe(first), Describe(second)));
    }
}

void SourceReader::Open() {
    errno = 0; // which is kept with records of errors
    m_element = ImplementElement<ElementFactoryType::AudioSource>(m_recipe.implementation,
                                                                  m_recipe.type, nullptr);
    m_element->SetInitConfig(m_recipe.settings);
    m_limits = m_element->GetTimeLimits("");
    m_description = m_element->GetDefinedOutput("");
    const auto infos = m_description != nullptr ? m_description->GetAudioInfos()
                                                : std::vector<std::shared_ptr<const IAudioInfo>>{};
    if (infos.empty() || infos.front()->GetChannelInfo() == nullptr) {
        throw JobError(m_shownName, fmt::format("{}: it describes no audio", kOpenForReading));
    }
    m_info = infos.front();
}

SampleHandle SourceReader::NextSample() const {
    return CallElement(m_shownName, kReadAudio, [&] { return m_element->GetSample(); });
}

void SourceReader::Seek(std::int64_t frame) const {
    std::string reason = "it went elsewhere";
    try {
        errno = 0;
        const MediaTime target(EditRate(Rate(), 1), frame, nullptr);
        if (m_element->GotoTimeOffset(target, "").GetTimeNumber() == frame) {
            return;
        }
    } catch (const std::exception& error) {
        reason = DescribeCause(kReadAudio, errno);
        LogWords(error);
    }
    throw JobError(m_shownName,
                   fmt::format("cannot seek to frame {}: {}; damaged files can only be read "
                               "from their beginning",
                               frame, reason));
}

std::unique_ptr<SourceReader> SourceReader::OpenAgain() const {
    if (!m_positions.has_value() || BlockFramesIn(m_recipe).value_or(1) == 1) {
        return nullptr;
    }
    return std::make_unique<SourceReader>(m_shownName, m_recipe, "");
}

void SourceReader::SetBlockFrames(std::uint32_t frames) {
    m_blockFrames = frames;
    kel::host::SetBlockFrames(*m_recipe.settings, frames);
}

OpeningFacts SourceReader::Facts(const OpenPositions& before) const {
    return {Frames(), Channels(), Rate(), before.New()};
}

// libsndfile has the largest number for a length that it does not know.
std::optional<std::int64_t> SourceReader::Frames() const {
    if (m_counted.has_value()) {
        return m_counted;
    }
    return m_limits.duration == std::numeric_limits<std::int64_t>::max()
               ? std::nullopt
               : std::optional(m_limits.duration);
}

std::string SourceReader::Misreading() const {
    if (!m_header.has_value() || !Frames().has_value() || m_element->IsGrowing()) {
        return "";
    }
    // libsndfile takes the blocks of a VOC file for one.
    if (!IsRepaired() && !m_header->chunks.has_value() && !m_header->Obstacle().empty()) {
        return m_header->Obstacle();
    }
    // The frames of compressed samples are not known. A copy contains nothing else.
    const bool isCopied = IsRepaired() && m_header->FrameBytes() == 0 && *Frames() > 0;
    return isCopied ? "" : m_header->Misreading(*Frames());
}

// The reason why samples are missing or wrong; empty for none.
std::string SourceReader::Loss() const {
    const std::string misreading = Misreading();
    if (misreading.empty()) {
        return "";
    }
    const bool isFinal = IsRepaired() || !m_header->isRepairable;
    const char* text = isFinal ? "cannot read all samples: {}"
                       : m_header->truncation.has_value()
                           ? "cannot read all samples: {}; use --repair --allow-truncated"
                           : "cannot read all samples: {}; use --repair";
    return fmt::format(text, misreading);
}

std::vector<std::string> SourceReader::DescribeHeader() const {
    std::vector<std::string> notes;
    if (!m_countReason.empty()) {
        notes.push_back(m_shownName + ": " + m_countReason);
    }
    if (!m_otherFrames.empty()) {
        notes.push_back(m_shownName + ": " + m_otherFrames + " and are left out");
    }
    if (IsRepaired()) {
        notes.push_back(fmt::format("{}: is read through a copy with a new header: {}", m_shownName,
                                    m_repairReason));
    }
    if (const std::string loss = Loss(); !loss.empty()) {
        notes.push_back(m_shownName + ": " + loss);
    }
    const auto others = m_header.has_value() ? m_header->OtherFrames() : std::nullopt;
    if (others.has_value()) {
        notes.push_back(fmt::format("{}: its chunk \"COMM\" declares {}; the {} of its samples are "
                                    "read",
                                    m_shownName, Count(*others, "frame"),
                                    m_header->Layout()->frames));
    }
    if (m_header.has_value() && m_header->unreadBytes > 0) {
        notes.push_back(fmt::format("{}: {} after its samples are not read", m_shownName,
                                    Count(m_header->unreadBytes, "byte")));
    }
    if (m_hasFurtherStreams) {
        notes.push_back(m_shownName + ": " + kFurtherStreams);
    }
    return notes;
}

std::vector<std::string> SourceReader::CheckHeader(const InputPolicy& policy) const {
    if (const std::string loss = Loss(); !loss.empty()) {
        throw JobError(m_shownName, loss);
    }
    if (!m_otherFrames.empty() && !policy.allowTruncated) {
        throw JobError(m_shownName, "cannot read all samples: " + m_otherFrames +
                                        " (--allow-truncated accepts the other frames)");
    }
    if (m_hasFurtherStreams && !policy.allowTruncated) {
        throw JobError(m_shownName,
                       fmt::format("{} (--allow-truncated accepts that)", kFurtherStreams));
    }
    std::vector<std::string> warnings = DescribeHeader();
    if (!m_header.has_value() || !m_header->truncation.has_value()) {
        return warnings;
    }
    const Truncation& truncation = *m_header->truncation;
    const std::string text = DescribeCounts(truncation) + "; it is truncated" +
                             (truncation.hasAllSamples ? " after its samples" : "");
    if (!policy.allowTruncated) {
        throw JobError(m_shownName, text + (truncation.hasAllSamples
                                                ? " (--allow-truncated accepts it as it is)"
                                                : " (--allow-truncated accepts the frames that "
                                                  "exist)"));
    }
    warnings.push_back(m_shownName + ": " + text);
    return warnings;
}

void SourceReader::RequireUnchanged() const {
    const std::string change = m_state.has_value() && !m_element->IsGrowing()
                                   ? FileState(m_path).DescribeChange(*m_state)
                                   : "";
    if (!change.empty()) {
        throw JobError(
            m_shownName,
            fmt::format("{} while it was read; try again when no program writes to it", change));
    }
}

std::string SourceReader::EarlyStop(std::optional<std::int64_t> declared) const {
    if (declared.has_value()) {
        return m_isShort ? "stops before its last frame" : "";
    }
    if (Frames().has_value() || !m_positions.has_value()) {
        return "";
    }
    const auto positions = m_positions->New();
    const auto last = std::max_element(positions.begin(), positions.end());
    return last == positions.end() || *last >= m_positions->FileBytes()
               ? ""
               : fmt::format("stops at byte {} of {}", *last, m_positions->FileBytes());
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
                        Describe({written.Frames(), written.Channels(), written.Rate(), {}}),
                        Describe({frames, channels, rate, {}})));
    }
}

} // namespace kel::host
