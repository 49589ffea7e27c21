// A source and a sink whose files are one line of text: frames, channels and rate. They have the
// fault that the variable KEL_TEST_FAULT names, and a source the one that its file names after the
// numbers.
//
// While a sink has a file open, there is a marker at KEL_TEST_SINK_MARKER.

#include "EntryPoint.h"

#include <kelCore.h>

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

class TextSource final : public AudioSourceBase {
public:
    explicit TextSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : AudioSourceBase("TextSource", std::move(manifest)) {}

    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (HasFault("source waits while reading") || m_fault == "waits while reading") {
            Wait();
        }
        const auto container = AudioSourceBase::GetSample();
        if (container == nullptr) {
            LogIf("source logs an error and ends early", LogLevel::Error);
            return nullptr;
        }
        const auto sample = container->GetAudioSamples(nullptr, nullptr).front();
        TimeLimits limits = sample->GetTimeLimits();
        limits.duration += HasFault("source stamps one frame more") ? 1 : 0;
        const std::shared_ptr<const ISample> stamped = CreateAudioSample(
            sample->GetAudioParameters(), sample->GetAudioInfo(), sample->GetBuffer(), limits, {});
        if (HasFault("source delivers two samples at once")) {
            return CreateSampleContainer({stamped, stamped}, nullptr);
        }
        return CreateSampleContainer(stamped, nullptr);
    }

    TimeLimits GetTimeLimits(std::string /*track*/) override {
        const std::uint32_t rate = HasFault("source counts milliseconds") ? 1000 : m_file.rate;
        return {MediaTime(EditRate(rate, 1), 0, nullptr), m_file.frames};
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const override {
        const auto output = AudioSourceBase::GetDefinedOutput(std::move(name));
        if (HasFault("source describes nothing")) {
            return nullptr;
        }
        if (HasFault("source describes two tracks")) {
            const std::shared_ptr<const IInfo> info = output->GetInfos().front();
            return CreateInfoContainer({info, info}, nullptr);
        }
        return output;
    }

    MediaTime GotoTimeOffset(const MediaTime& time, std::string track) override {
        if (m_fault == "waits while seeking") {
            Wait();
        }
        MediaTime position = time;
        position.SetTimeNumber(time.GetTimeNumber() - (HasFault("source goes elsewhere") ? 1 : 0));
        return AudioSourceBase::GotoTimeOffset(position, std::move(track));
    }

    bool IsGrowing() const override { return HasFault("source grows"); }

protected:
    Medium OpenMedium(const std::string& name) override {
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
        const bool hasFewer = HasFault("source delivers fewer frames") ||
                              HasFault("source logs an error and ends early");
        const bool hasMore = HasFault("source delivers more frames") || IsGrowing();
        return {{m_file.rate, m_file.channels},
                m_file.frames - (hasFewer ? 1 : 0) + (hasMore ? 1 : 0),
                static_cast<std::uint32_t>(Settings().GetIntegerValue("MaxSamplesPerBuffer"))};
    }

    std::uint32_t ReadFrames(std::int64_t position, std::uint32_t frames, void* data) override {
        if (position > 0 && position + frames == m_file.frames) {
            if (m_isFirst && HasFault("source loses its last sample once")) {
                LogIf("source loses its last sample once", LogLevel::Error);
                return 0;
            }
            if (frames > 1) {
                LogIf("source delivers its last frame after an error", LogLevel::Error);
                frames -= HasFault("source delivers its last frame after an error") ? 1U : 0U;
            }
        }
        if (position > 0) {
            if (m_fault == "crashes while reading") {
                Crash(SIGSEGV);
            }
            FailIf("source throws while reading");
            LogIf("source logs an error while reading", LogLevel::Error);
        } else if (m_fault == "prints while reading") {
            std::fputs("\nnote: \x1B[2Jfirst\nsecond\n", stderr);
            std::fputs("third", stdout);
        }
        std::memset(data, 0, frames * m_file.channels * sizeof(float));
        return frames;
    }

    void CloseMedium() override { FailIf("source throws while it is released"); }

private:
    TextFile m_file;
    std::string m_fault;
    inline static std::int64_t m_openings = 0; // by all sources
    bool m_isFirst = false;                    // of them
};

class TextSink final : public AudioSinkBase {
public:
    explicit TextSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : AudioSinkBase("TextSink", std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        FailIf("sink throws while it is configured");
        AudioSinkBase::SetInitConfig(std::move(config));
    }

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const override {
        FailIf("sink throws while checking");
        if (HasFault("sink refuses the encoding")) {
            return CreateCheckInputReportEncodingError({});
        }
        if (HasFault("sink refuses the tracks")) {
            return CreateCheckInputReportTrackError({ContentType::Audio});
        }
        return AudioSinkBase::CheckInputAndAdaptIfNecessary(std::move(input), std::move(name));
    }

    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) override {
        AudioSinkBase::DefineInput(std::move(input), std::move(name));
        FailIf("sink throws while the input is defined");
    }

protected:
    void BeginInput(const PCMFormat& format) override {
        m_file = {0, format.channels, format.rate};
        m_stream.open(Path());
        KEL_CHECK(m_stream.is_open(), "the file cannot be created");
        m_stream << "unfinished" << std::flush;
        std::ofstream(Variable("KEL_TEST_SINK_MARKER")).flush();
    }

    void WriteFrames(const std::uint8_t* /*data*/, std::uint32_t frames) override {
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
        m_file.frames += frames;
    }

    void FinishInput() override {
        LogIf("sink reports when it closes", LogLevel::Milestone);
        m_stream.close();
        unlink(Variable("KEL_TEST_SINK_MARKER").c_str());
        TextFile file = m_file;
        file.frames += HasFault("file has other frames") ? 1 : 0;
        file.channels += HasFault("file has other channels") ? 1U : 0U;
        file.rate += HasFault("file has another rate") ? 1U : 0U;
        std::ofstream whole(Path());
        if (HasFault("file does not open again")) {
            whole << "garbage\n";
        } else {
            whole << file.frames << " " << file.channels << " " << file.rate << "\n";
        }
        whole.flush();
        LogIf("sink logs an error while closing", LogLevel::Error);
        FailIf("sink throws while closing");
    }

private:
    std::ofstream m_stream;
    TextFile m_file;
};

} // namespace

void RegisterAll(const char* name) {
    auto settings = CreateParametersCollectionPrototype();
    settings->AddStringParameter("FilePath", "Where the text is");
    settings->AddIntegerParameter("MaxSamplesPerBuffer", 1024, "Most frames at once");
    settings->AddCollectionParameter("Details", "Nothing that anybody reads");
    const std::string documentation = "Files of one line of text.";
    const std::vector<WrapperFormat> formats{WrapperFormat::WAVE, WrapperFormat::AIFF,
                                             WrapperFormat::BWAVE};
    for (const WrapperFormat format : formats) {
        RegisterElement<TextSource>(name, "1",
                                    {"test.TextSource", documentation, settings, GetLabel(format)});
    }
    for (const WrapperFormat format : formats) {
        RegisterElement<TextSink>(name, "1",
                                  {"test.TextSink", documentation, settings, GetLabel(format)});
    }
}
