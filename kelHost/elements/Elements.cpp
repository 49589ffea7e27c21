#include "elements/Elements.h"

#include "base/Errors.h"
#include "base/OutputFile.h"
#include "base/Text.h"

#include <IAudioParameters_PCM.h>
#include <IChannelInfo.h>
#include <ICheckInputReport.h>
#include <KELRuntimeError.h>
#include <ParametersCollection.h>
#include <PlatformString.h>
#include <Registry.h>
#include <WorkflowStepImplementation.h>
#include <WrapperFormat.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::shared_ptr<IParametersCollectionInstance>
MakeSettings(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return CreateParametersCollectionInstance(
        GetManifest(kind, implementation, type)->GetCollectionValue("init_config"));
}

bool Accepts(const IAudioSink& sink, const std::shared_ptr<const IInfoContainer>& input) {
    const auto report = sink.CheckInputAndAdaptIfNecessary(input, "");
    return report == nullptr ||
           report->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::None);
}

// Does something; where it fails, the file or the element "cannot be read".
template <typename Operation>
void Telling(const std::string& shownName, std::string_view what, Operation operation) {
    try {
        operation();
    } catch (const JobError&) {
        throw;
    } catch (const std::exception& error) {
        throw JobError(
            fmt::format("{}: cannot be {}: {}", Escape(shownName), what, Escape(error.what())));
    }
}

template <typename Operation>
void IgnoreErrors(Operation operation) {
    try {
        operation();
    } catch (...) { // NOLINT(bugprone-empty-catch): another failure is under way
    }
}

} // namespace

std::string TypeForReading(const std::string& path) {
    const Container* container = ContainerByExtension(path);
    return GetLabel(container != nullptr ? container->format : WrapperFormat::WAVE);
}

void RequireReadable(const FileName& file) {
    if (file.path.size() > kMaxPathBytes) {
        throw JobError(
            fmt::format("{}: the path is longer than {} bytes; change to its directory or "
                        "use a shorter name",
                        Escape(file.shown), kMaxPathBytes));
    }
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0) {
        throw JobError(fmt::format("{}: {}", Escape(file.shown), std::strerror(errno)));
    }
    if (S_ISDIR(status.st_mode)) {
        throw JobError(
            fmt::format("{}: is a directory; name the audio files in it", Escape(file.shown)));
    }
}

// A file may be called "-", which libraries take for standard input.
void SetFilePath(IParametersCollectionInstance& settings, const std::string& path) {
    settings.SetWideStringValue(kFilePath,
                                ConvertPlatformStringToWideString(path == "-" ? "./-" : path));
}

std::string FindImplementation(ElementFactoryType kind, const std::string& type) {
    for (const Registration& registration : GetRegistrations()) {
        const IParametersCollectionInstance& entry = *registration.entry;
        if (entry.GetIntegerValue("class") == static_cast<std::int32_t>(kind) &&
            entry.GetStringValue("type") == type) {
            return entry.GetStringValue("implementation");
        }
    }
    throw JobError(
        fmt::format("no plug-in offers an {} for {}; see kelhost inspect", GetLabel(kind), type));
}

SourceReader::SourceReader(const FileName& file, std::uint32_t blockFrames)
    : m_shownName(file.shown) {
    constexpr auto kKind = ElementFactoryType::AudioSource;
    RequireReadable(file);
    const std::string type = TypeForReading(file.path);
    const std::string implementation = FindImplementation(kKind, type);
    Telling(m_shownName, "read", [&] {
        const auto settings = MakeSettings(kKind, implementation, type);
        SetFilePath(*settings, file.path);
        settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(blockFrames));
        Open({implementation, type, settings});
    });
}

SourceReader::SourceReader(std::string shownName, const ElementRecipe& recipe)
    : m_shownName(std::move(shownName)) {
    Telling(m_shownName, "read", [&] { Open(recipe); });
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
    IgnoreErrors([this] { Release(); });
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

std::int64_t SourceReader::Frames() const {
    return m_limits.duration;
}

SinkWriter::SinkWriter(const Container& container, const FileName& file,
                       const std::shared_ptr<const IInfoContainer>& input) {
    constexpr auto kKind = ElementFactoryType::AudioSink;
    const std::string type = GetLabel(container.format);
    const std::string implementation = FindImplementation(kKind, type);
    Telling(file.shown, "written", [&] {
        const auto settings = MakeSettings(kKind, implementation, type);
        SetFilePath(*settings, file.path);
        Define(file.shown, {implementation, type, settings}, input,
               fmt::format("{} does not take this encoding; see kelhost formats", container.title));
    });
}

SinkWriter::SinkWriter(const std::string& shownName, const ElementRecipe& recipe,
                       const std::shared_ptr<const IInfoContainer>& input,
                       const std::string& refusal) {
    Telling(shownName, "written", [&] { Define(shownName, recipe, input, refusal); });
}

void SinkWriter::Define(const std::string& shownName, const ElementRecipe& recipe,
                        const std::shared_ptr<const IInfoContainer>& input,
                        const std::string& refusal) {
    m_element = ImplementElement<ElementFactoryType::AudioSink>(recipe.implementation, recipe.type,
                                                                nullptr);
    m_element->SetInitConfig(recipe.settings);
    if (!Accepts(*m_element, input)) {
        throw JobError(fmt::format("{}: {}", Escape(shownName), refusal));
    }
    try {
        m_element->DefineInput(input, "");
    } catch (...) {
        // It may have created its file before it failed.
        IgnoreErrors([this] { Close(); });
        throw;
    }
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
        throw JobError(fmt::format(
            "{}: the file that was written opens with {} frames, {} channels and {} Hz instead of "
            "{} frames, {} channels and {} Hz; is the disk full?",
            Escape(file.shown), written.Frames(), written.Channels(), written.Rate(), frames,
            channels, rate));
    }
}

bool SinkAccepts(const Container& container, const std::shared_ptr<const IInfoContainer>& input) {
    constexpr auto kKind = ElementFactoryType::AudioSink;
    const std::string type = GetLabel(container.format);
    const auto sink = ImplementElement<kKind>(FindImplementation(kKind, type), type, nullptr);
    return Accepts(*sink, input);
}

SinkWriter::~SinkWriter() {
    IgnoreErrors([this] { Close(); });
}

void SinkWriter::Close() {
    m_element->Close(false);
}

} // namespace kel::host
