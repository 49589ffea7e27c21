// A source and a sink whose files are one line of text: frames, channels and rate. They have the
// fault that the variable KEL_TEST_FAULT names, and a source the one that its file names after the
// numbers.
//
// While a sink has a file open, there is a marker at KEL_TEST_SINK_MARKER.

#include "EntryPoint.h"

#include <kelCore.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <istream>
#include <memory>
#include <new>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace kel; // NOLINT(google-build-using-namespace): all of it is about these elements

std::string Variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool HasFault(const std::string& fault) {
    return Variable("KEL_TEST_FAULT") == fault;
}

void FailIf(const std::string& fault) {
    if (HasFault(fault)) {
        KEL_FAIL("fault " << fault);
    }
}

void LogIf(const std::string& fault, LogLevel level) {
    if (HasFault(fault)) {
        KEL_LOG(level, "fault " << fault);
    }
}

bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// Leaves a sign and waits for another.
void Wait() {
    std::ofstream(Variable("KEL_TEST_WAITING")).flush();
    while (!Exists(Variable("KEL_TEST_GO_ON"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

// Ends the process by a signal that is not caught, without a core file.
[[noreturn]] void Crash(int signal) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(signal, SIG_DFL);
    raise(signal);
    _exit(0);
}

struct TextFile {
    std::int64_t frames = 0;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
};

class TextSource final : public IAudioSource {
public:
    explicit TextSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        m_mostFrames = config->GetIntegerValue("MaxSamplesPerBuffer");
        Open(config->GetWideStringValue("FilePath"));
    }

    void Open(const std::wstring& path) override {
        const std::string name = ConvertWideStringToPlatformString(path);
        std::ifstream stream(name);
        if (HasFault("source declares 100 frames")) {
            m_file = {100, 1, 44100};
        } else if (HasFault("source declares 100000 frames")) {
            m_file = {100000, 1, 44100};
        } else if (!(stream >> m_file.frames >> m_file.channels >> m_file.rate)) {
            KEL_FAIL("no text recording");
        }
        std::getline(stream >> std::ws, m_fault);
        if (m_fault == "crashes while opening") {
            Crash(SIGSEGV);
        } else if (m_fault == "aborts while opening") {
            Crash(SIGABRT);
        } else if (m_fault == "exits while opening") {
            _exit(3);
        }
        LogIf("source logs an error while opening", LogLevel::Error);
        // The output is opened, too.
        const bool isInput = name == "in.wav";
        if (isInput && HasFault("file grows while it is opened")) {
            std::ofstream(name, std::ios::app) << "\n";
            m_file.frames += m_openings++;
        } else if (isInput && HasFault("source finds more each time")) {
            m_file.frames += m_openings++;
        } else if (isInput) {
            m_isFirst = m_openings++ == 0;
        }
        m_parameters = CreateAudioParameters<ACodecFamily::PCM>();
        m_parameters->SetMuxing(PCMMuxing::Multi);
        m_parameters->SetSampleRate(m_file.rate);
        m_parameters->SetBitsDepth(32);
        m_parameters->SetEndianness(PCMEndianness::Little);
        m_parameters->SetPCMType(AudioPCMType::Float);
        m_parameters->SetSampleSize(sizeof(float));
        m_info = CreateAudioInfo(m_parameters,
                                 CreateChannelInfo(CreateTrack(ContentType::Audio, m_file.channels,
                                                               nullptr, TrackLayout::Default)),
                                 {}, {});
    }

    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (HasFault("source waits while reading") || m_fault == "waits while reading") {
            Wait();
        }
        const std::int64_t promised = m_file.frames -
                                      (HasFault("source delivers fewer frames") ||
                                               HasFault("source logs an error and ends early")
                                           ? 1
                                           : 0) +
                                      (DeliversMore() ? 1 : 0);
        const std::int64_t frames = std::min<std::int64_t>(promised - m_position, m_mostFrames);
        if (frames <= 0) {
            LogIf("source logs an error and ends early", LogLevel::Error);
            return nullptr;
        }
        const bool isLast = m_position > 0 && m_position + frames == m_file.frames;
        if (isLast && m_isFirst && HasFault("source loses its last sample once")) {
            LogIf("source loses its last sample once", LogLevel::Error);
            return nullptr;
        }
        return Deliver(frames, isLast);
    }

    std::shared_ptr<const ISampleContainer> Deliver(std::int64_t frames, bool isLast) {
        if (isLast && frames > 1) {
            LogIf("source delivers its last frame after an error", LogLevel::Error);
            frames -= HasFault("source delivers its last frame after an error") ? 1 : 0;
        }
        if (m_position > 0) {
            if (m_fault == "crashes while reading") {
                Crash(SIGSEGV);
            }
            FailIf("source throws while reading");
            LogIf("source logs an error while reading", LogLevel::Error);
        } else if (m_fault == "prints while reading") {
            std::fputs("\nnote: \x1B[2Jfirst\nsecond\n", stderr);
            std::fputs("third", stdout);
        }
        const auto bytes = static_cast<std::uint32_t>(frames) * m_file.channels *
                           static_cast<std::uint32_t>(sizeof(float));
        const auto buffer = CreateBuffer(nullptr, nullptr);
        buffer->Reserve(bytes);
        std::memset(buffer->GetData(), 0, bytes);
        buffer->SetSize(bytes);
        const TimeLimits limits(MediaTime(EditRate(m_file.rate, 1), m_position, nullptr),
                                frames + (HasFault("source stamps one frame more") ? 1 : 0));
        m_position += frames;
        const std::shared_ptr<const ISample> sample =
            CreateAudioSample(m_parameters, m_info, buffer, limits, {});
        if (HasFault("source delivers two samples at once")) {
            return CreateSampleContainer({sample, sample}, nullptr);
        }
        return CreateSampleContainer(sample, nullptr);
    }

    TimeLimits GetTimeLimits(std::string /*track*/) override {
        const std::uint32_t rate = HasFault("source counts milliseconds") ? 1000 : m_file.rate;
        return {MediaTime(EditRate(rate, 1), 0, nullptr), m_file.frames};
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string /*name*/) const override {
        if (HasFault("source describes nothing")) {
            return nullptr;
        }
        const std::shared_ptr<const IInfo> info = m_info;
        if (HasFault("source describes two tracks")) {
            return CreateInfoContainer({info, info}, nullptr);
        }
        return CreateInfoContainer(info, nullptr);
    }

    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return m_manifest;
    }

    MediaTime GotoTimeOffset(const MediaTime& time, std::string /*track*/) override {
        if (m_fault == "waits while seeking") {
            Wait();
        }
        m_position = time.GetTimeNumber() - (HasFault("source goes elsewhere") ? 1 : 0);
        return {time.GetEditRate(), m_position, nullptr};
    }

    bool IsMediaOpen() const override { return m_info != nullptr; }
    bool IsGrowing() const override { return HasFault("source grows"); }
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {}
    void SetDirection(MediaSourceDirection /*direction*/) override {}
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        return {m_info->GetChannelInfo()};
    }
    void
    ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& /*outputs*/) override {}
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        return GetAvailableOutputs();
    }
    void SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/, std::string /*output*/,
                           std::string /*name*/) override {}
    void Interrupt() override {}
    void ClearInternalBuffer() override {}
    void Release() override { FailIf("source throws while it is released"); }

private:
    static bool DeliversMore() {
        return HasFault("source delivers more frames") || HasFault("source grows");
    }

    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<IAudioParameters_PCM> m_parameters;
    std::shared_ptr<const IAudioInfo> m_info;
    TextFile m_file;
    std::string m_fault;
    std::int64_t m_mostFrames = 0;
    std::int64_t m_position = 0;
    inline static std::int64_t m_openings = 0; // by all sources
    bool m_isFirst = false;                    // of them
};

class TextSink final : public IAudioSink {
public:
    explicit TextSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        FailIf("sink throws while it is configured");
        m_path = ConvertWideStringToPlatformString(config->GetWideStringValue("FilePath"));
    }

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> /*input*/,
                                  std::string /*name*/) const override {
        FailIf("sink throws while checking");
        if (HasFault("sink refuses the encoding")) {
            return CreateCheckInputReportEncodingError({});
        }
        if (HasFault("sink refuses the tracks")) {
            return CreateCheckInputReportTrackError({ContentType::Audio});
        }
        return CreateCheckInputReportNoError();
    }

    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string /*name*/) override {
        const auto info = input->GetAudioInfos().at(0);
        const auto parameters =
            std::dynamic_pointer_cast<const IAudioParameters_PCM>(info->GetAudioParameters());
        KEL_CHECK_POINTER(parameters, "no PCM");
        m_bytesPerFrame =
            info->GetChannelInfo()->GetNumberOfChannels() * parameters->GetSampleSize();
        m_file = {0, info->GetChannelInfo()->GetNumberOfChannels(), parameters->GetSampleRate()};
        m_stream.open(m_path);
        KEL_CHECK(m_stream.is_open(), "the file cannot be created");
        m_stream << "unfinished" << std::flush;
        std::ofstream(Variable("KEL_TEST_SINK_MARKER")).flush();
        m_defined = std::move(input);
        FailIf("sink throws while the input is defined");
    }

    void PushSample(std::shared_ptr<const ISampleContainer> container) override {
        const auto samples = container->GetAudioSamples(nullptr, nullptr);
        KEL_CHECK_EQUAL(samples.size(), 1U, "one sample at a time");
        if (m_file.frames > 0) {
            FailIf("sink throws while writing");
            LogIf("sink logs an error while writing", LogLevel::Error);
            LogIf("sink logs a warning while writing", LogLevel::Warning);
            if (HasFault("sink runs out of memory while writing")) {
                throw std::bad_alloc();
            }
            if (HasFault("sink throws a number while writing")) {
                throw 42;
            }
        }
        m_file.frames += samples.front()->GetBuffer()->GetSize() / m_bytesPerFrame;
    }

    void Close(bool /*flag*/) override {
        if (!m_stream.is_open()) {
            return;
        }
        LogIf("sink reports when it closes", LogLevel::Milestone);
        m_stream.close();
        unlink(Variable("KEL_TEST_SINK_MARKER").c_str());
        TextFile file = m_file;
        file.frames += HasFault("file has other frames") ? 1 : 0;
        file.channels += HasFault("file has other channels") ? 1U : 0U;
        file.rate += HasFault("file has another rate") ? 1U : 0U;
        std::ofstream whole(m_path);
        if (HasFault("file does not open again")) {
            whole << "garbage\n";
        } else {
            whole << file.frames << " " << file.channels << " " << file.rate << "\n";
        }
        whole.flush();
        LogIf("sink logs an error while closing", LogLevel::Error);
        FailIf("sink throws while closing");
    }

    void Release() override { Close(false); }
    void Open(const std::wstring& path) override {
        m_path = ConvertWideStringToPlatformString(path);
    }
    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string /*name*/) const override {
        return m_defined;
    }
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return m_manifest;
    }
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {}
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) override {}
    void SetInputMediator(std::shared_ptr<IInputMediator> /*mediator*/, std::string /*input*/,
                          std::string /*name*/) override {}
    void Interrupt() override {}
    void ClearInternalBuffer() override {}

private:
    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const IInfoContainer> m_defined;
    std::string m_path;
    std::ofstream m_stream;
    TextFile m_file;
    std::uint32_t m_bytesPerFrame = 1;
};

template <ElementFactoryType T, typename Element>
void Register(const char* name, const char* implementation,
              const std::shared_ptr<const IParametersCollectionPrototype>& settings) {
    for (const WrapperFormat format :
         {WrapperFormat::WAVE, WrapperFormat::AIFF, WrapperFormat::BWAVE}) {
        auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
        entry->SetIntegerValue("class", static_cast<std::int32_t>(T));
        entry->SetStringValue("type", GetLabel(format));
        entry->SetStringValue("implementation", implementation);
        entry->SetStringValue("doc", "Files of one line of text.");
        entry->SetCollectionValue("init_config", settings);
        auto factory = std::make_shared<ElementFactory<T>>(
            [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
                return std::make_shared<Element>(std::move(manifest));
            });
        RegisterFactory(name, GetKELCoreIdInternal("1"), std::move(factory), std::move(entry));
    }
}

} // namespace

void RegisterAll(const char* name) {
    auto settings = CreateParametersCollectionPrototype();
    settings->AddStringParameter("FilePath", "Where the text is");
    settings->AddIntegerParameter("MaxSamplesPerBuffer", 1024, "Most frames at once");
    settings->AddCollectionParameter("Details", "Nothing that anybody reads");
    Register<ElementFactoryType::AudioSource, TextSource>(name, "test.TextSource", settings);
    Register<ElementFactoryType::AudioSink, TextSink>(name, "test.TextSink", settings);
}
