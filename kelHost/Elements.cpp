#include "Elements.h"

#include "Errors.h"
#include "OutputFile.h"
#include "Text.h"

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
#include <string>
#include <sys/stat.h>
#include <utility>

namespace kel::host {

namespace {

std::shared_ptr<IParametersCollectionInstance>
MakeSettings(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return CreateParametersCollectionInstance(
        GetManifest(kind, implementation, type)->GetCollectionValue("init_config"));
}

// A file may be called "-", which libraries take for standard input.
std::wstring ElementPath(const std::string& path) {
    return ConvertPlatformStringToWideString(path == "-" ? "./-" : path);
}

void CheckReadableFile(const FileName& file) {
    if (file.path.size() > kLongestPath) {
        throw JobError(fmt::format("{}: the path is longer than {} bytes; change to its folder or "
                                   "use a shorter name",
                                   Escape(file.shown), kLongestPath));
    }
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0) {
        throw JobError(fmt::format("{}: {}", Escape(file.shown), std::strerror(errno)));
    }
    if (S_ISDIR(status.st_mode)) {
        throw JobError(
            fmt::format("{}: is a folder; name the audio files in it", Escape(file.shown)));
    }
}

std::string TypeForReading(const std::string& path) {
    const Container* container = ContainerByExtension(path);
    return GetLabel(container != nullptr ? container->format : WrapperFormat::WAVE);
}

bool Accepts(const IAudioSink& sink, const std::shared_ptr<const IInfoContainer>& input) {
    const auto report = sink.CheckInputAndAdaptIfNecessary(input, "");
    return report == nullptr ||
           report->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::None);
}

template <typename Operation>
void IgnoreErrors(Operation operation) {
    try {
        operation();
    } catch (...) { // NOLINT(bugprone-empty-catch): another failure is under way
    }
}

} // namespace

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

OpenSource::OpenSource(const FileName& file, std::uint32_t blockFrames) : m_shownName(file.shown) {
    constexpr auto kKind = ElementFactoryType::AudioSource;
    CheckReadableFile(file);
    const std::string type = TypeForReading(file.path);
    const std::string implementation = FindImplementation(kKind, type);
    try {
        const auto settings = MakeSettings(kKind, implementation, type);
        settings->SetWideStringValue("FilePath", ElementPath(file.path));
        settings->SetIntegerValue("MaxSamplesPerBuffer", static_cast<std::int32_t>(blockFrames));
        m_element = ImplementElement<kKind>(implementation, type, nullptr);
        m_element->SetInitConfig(settings);
        m_limits = m_element->GetTimeLimits("");
        m_description = m_element->GetDefinedOutput("");
        m_info = m_description->GetAudioInfos().at(0);
    } catch (const std::exception& error) {
        throw JobError(
            fmt::format("{}: can not be read: {}", Escape(file.shown), Escape(error.what())));
    }
}

OpenSource::~OpenSource() {
    IgnoreErrors([this] { Release(); });
}

void OpenSource::Release() {
    m_element->Release();
}

std::uint32_t OpenSource::Channels() const {
    return m_info->GetChannelInfo()->GetNumberOfChannels();
}

std::uint32_t OpenSource::Rate() const {
    return m_limits.start.GetEditRate().numerator;
}

std::int64_t OpenSource::Frames() const {
    return m_limits.duration;
}

DefinedSink::DefinedSink(const Container& container, const FileName& file,
                         const std::shared_ptr<const IInfoContainer>& input) {
    constexpr auto kKind = ElementFactoryType::AudioSink;
    const std::string type = GetLabel(container.format);
    const std::string implementation = FindImplementation(kKind, type);
    try {
        const auto settings = MakeSettings(kKind, implementation, type);
        settings->SetWideStringValue("FilePath", ElementPath(file.path));
        m_element = ImplementElement<kKind>(implementation, type, nullptr);
        m_element->SetInitConfig(settings);
        if (!Accepts(*m_element, input)) {
            throw JobError(fmt::format("{}: {} does not take this encoding; see kelhost formats",
                                       Escape(file.shown), container.title));
        }
        try {
            m_element->DefineInput(input, "");
        } catch (...) {
            // It may have created its file before it failed.
            IgnoreErrors([this] { Close(); });
            throw;
        }
    } catch (const JobError&) {
        throw;
    } catch (const std::exception& error) {
        throw JobError(
            fmt::format("{}: can not be written: {}", Escape(file.shown), Escape(error.what())));
    }
}

bool SinkAccepts(const Container& container, const std::shared_ptr<const IInfoContainer>& input) {
    constexpr auto kKind = ElementFactoryType::AudioSink;
    const std::string type = GetLabel(container.format);
    const auto sink = ImplementElement<kKind>(FindImplementation(kKind, type), type, nullptr);
    return Accepts(*sink, input);
}

DefinedSink::~DefinedSink() {
    IgnoreErrors([this] { Close(); });
}

void DefinedSink::Close() {
    m_element->Close(false);
}

} // namespace kel::host
