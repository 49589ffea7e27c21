// A plug-in with a source that computes its frames and a sink that writes a file of bare bytes. The
// name of its file selects one fault: libkelBroken-FAULT.so. Other names have none.

#include "../EntryPoint.h"

#include <kelCore.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <ios>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace kel; // NOLINT(google-build-using-namespace): all of it is about these elements

bool HasFault(const std::string& fault) {
    static const std::string own = [] {
        Dl_info library{};
        dladdr(reinterpret_cast<const void*>(&RegisterAll), &library);
        const std::string path = library.dli_fname;
        const std::size_t begin = path.rfind("/libkelBroken-");
        return begin == std::string::npos ? ""
                                          : path.substr(begin + 14, path.size() - (begin + 14) - 3);
    }();
    return own == fault;
}

// Ends the process by a signal that is not caught, without a core file.
[[noreturn]] void Crash(int signal) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(signal, SIG_DFL);
    raise(signal);
    _exit(0);
}

[[noreturn]] void Hang() {
    for (;;) {
        pause();
    }
}

void LeakDescriptor() {
    static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC)); // NOLINT: the fault
}

void LeakMemory() {
    constexpr std::size_t kBytes = 24;
    static std::atomic<void*> last{nullptr};
    last = std::malloc(kBytes); // NOLINT: the fault
}

void LeaveFile() {
    std::ofstream("left-behind") << "something\n";
}

struct CrashesWhenUnloaded {
    ~CrashesWhenUnloaded() {
        if (crashes) {
            Crash(SIGSEGV);
        }
    }
    bool crashes = HasFault("crashes-when-unloaded"); // asked while there is a name to look at
};
const CrashesWhenUnloaded kCrashesWhenUnloaded;

// Ends the program as if it had done its work.
void Exit() {
    std::printf("goodbye\n");
    std::exit(0);
}

struct ExitsWhileLoading {
    ExitsWhileLoading() {
        if (HasFault("exits-while-loading")) {
            Exit();
        }
    }
};
const ExitsWhileLoading kExitsWhileLoading;

class ToneSource : public AudioSourceBase {
public:
    explicit ToneSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : AudioSourceBase("ToneSource", std::move(manifest)) {}

    void Open(const std::wstring& path) override {
        if (HasFault("opens-twice")) {
            Release();
        }
        AudioSourceBase::Open(path);
        m_hasEnded = false;
        if (HasFault("goes-on-after-reopening")) {
            Seek(m_next);
        }
    }

    void Release() override {
        KEL_CHECK(m_isConfigured || !HasFault("release-needs-settings"), "not configured");
        AudioSourceBase::Release();
    }

    std::shared_ptr<const ISampleContainer> GetSample() override {
        const bool isOff = IsMediaOpen() && GetActivatedOutputs().empty();
        if (isOff && HasFault("ignores-outputs")) {
            ActivateOutputs(GetAvailableOutputs());
            const auto container = AudioSourceBase::GetSample();
            ActivateOutputs({});
            return container;
        }
        const auto container = AudioSourceBase::GetSample();
        if (container != nullptr) {
            return HasFault("gap-in-stamps") ? WithGap(*container) : container;
        }
        if (!IsMediaOpen() || isOff || !std::exchange(m_hasEnded, true) ||
            !HasFault("sample-after-end")) {
            return nullptr;
        }
        Seek(m_frames - 1);
        return AudioSourceBase::GetSample();
    }

    TimeLimits GetTimeLimits(std::string track) override {
        if (HasFault("limits-while-closed")) {
            return {MediaTime(EditRate(kRate, 1), 0, nullptr), m_frames};
        }
        return AudioSourceBase::GetTimeLimits(std::move(track));
    }

    MediaTime GotoTimeOffset(const MediaTime& time, std::string track) override {
        if (IsMediaOpen() && time.GetEditRate() != EditRate(kRate, 1)) {
            MeetOtherRate();
        }
        const std::int64_t frame = time.GetTimeNumber();
        MediaTime position = time;
        if (HasFault("seeks-outside") && frame > m_frames) {
            position.SetTimeNumber(m_frames);
        } else if (HasFault("seeks-elsewhere") && frame > 0 && frame < m_frames) {
            position.SetTimeNumber(frame - 1);
        }
        AudioSourceBase::GotoTimeOffset(position, std::move(track));
        if (std::exchange(m_hasEnded, false) && HasFault("stays-at-its-end")) {
            Seek(m_frames);
        }
        return time;
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string name) const override {
        return HasFault("describes-nothing") ? nullptr
                                             : AudioSourceBase::GetDefinedOutput(std::move(name));
    }

    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return HasFault("no-manifest") ? nullptr : AudioSourceBase::GetManifest();
    }

    void Interrupt() override {
        if (HasFault("source-crashes-when-interrupted")) {
            Crash(SIGSEGV);
        }
    }

    static constexpr std::int32_t kFrames = 3000;

protected:
    Medium OpenMedium(const std::string& /*path*/) override {
        m_isConfigured = true;
        if (!HasFault("no-settings")) {
            m_frames = Settings().GetIntegerValue("Frames");
        }
        if (HasFault("throws-at-defaults") && m_frames == kFrames) {
            throw std::logic_error("the defaults are no good");
        }
        if (HasFault("source-leaks-descriptors")) {
            LeakDescriptor();
        } else if (HasFault("source-leaks-memory")) {
            LeakMemory();
        } else if (HasFault("source-leaves-files")) {
            LeaveFile();
        }
        return {{kRate, 1}, m_frames};
    }

    std::uint32_t ReadFrames(std::int64_t position, std::uint32_t frames, void* data) override {
        frames -= HasFault("frames-short") && position + frames == m_frames ? 1U : 0U;
        auto* values = static_cast<float*>(data);
        for (std::uint32_t i = 0; i < frames; ++i) {
            values[i] = static_cast<float>(position + i) / 65536.0F;
        }
        m_next = position + frames;
        return frames;
    }

private:
    static constexpr std::uint32_t kRate = 48000;

    void Seek(std::int64_t frame) {
        AudioSourceBase::GotoTimeOffset(MediaTime(EditRate(kRate, 1), frame, nullptr), "");
    }

    static void MeetOtherRate() {
        if (HasFault("crashes")) {
            Crash(SIGSEGV);
        } else if (HasFault("hangs")) {
            Hang();
        } else if (HasFault("exits")) {
            _exit(3);
        } else if (HasFault("throws-number")) {
            throw 42;
        } else if (HasFault("throws-another-error")) {
            throw std::runtime_error("no such rate\nat all");
        }
    }

    // Stamps each sample but the first one frame later.
    static std::shared_ptr<const ISampleContainer> WithGap(const ISampleContainer& container) {
        const auto sample = container.GetAudioSamples(nullptr, nullptr).front();
        TimeLimits limits = sample->GetTimeLimits();
        const std::int64_t start = limits.start.GetTimeNumber();
        limits.start.SetTimeNumber(start + (start > 0 ? 1 : 0));
        return CreateSampleContainer(CreateAudioSample(sample->GetAudioParameters(),
                                                       sample->GetAudioInfo(), sample->GetBuffer(),
                                                       limits, {}),
                                     nullptr);
    }

    bool m_isConfigured = false;
    bool m_hasEnded = false;
    std::int64_t m_frames = kFrames;
    std::int64_t m_next = 0; // the frame after the last one that was read
};

// A source that is the control side of a sink as well, so that it has two base elements. Compilers
// warn of that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winaccessible-base"
class TwoSidedSource final : public ToneSource, public IAudioSinkControl {
public:
    using ToneSource::ToneSource;
    void Open(const std::wstring& path) override { ToneSource::Open(path); }
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) override {}
    void Close(bool /*flag*/) override {}
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        ToneSource::UpdateConfig(config);
    }
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return ToneSource::GetManifest();
    }
};
#pragma GCC diagnostic pop

class BytesSink final : public AudioSinkBase {
public:
    explicit BytesSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : AudioSinkBase("BytesSink", std::move(manifest)) {}

    void Open(const std::wstring& path) override {
        if (!m_stream.is_open() || !HasFault("opens-while-writing")) {
            AudioSinkBase::Open(path);
        }
    }

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string name) const override {
        if (HasFault("check-makes-a-file") && m_defined == nullptr) {
            LeaveFile();
        }
        if (HasFault("accepts-every-input")) {
            return CreateCheckInputReportNoError();
        }
        return AudioSinkBase::CheckInputAndAdaptIfNecessary(std::move(input), std::move(name));
    }

    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) override {
        if (HasFault("refusal-leaves-file")) {
            std::ofstream(Path()).flush();
        }
        m_defined = input;
        if (HasFault("accepts-every-input")) { // as bytes
            const PCMFormat bytes{1, 1, AudioPCMType::Integer, 1};
            input = CreateInfoContainer(CreateAudioInfo(bytes, ""), nullptr);
        }
        AudioSinkBase::DefineInput(std::move(input), std::move(name));
    }

    void PushSample(std::shared_ptr<const ISampleContainer> container) override {
        if (m_stream.is_open() || !HasFault("loses-samples")) {
            AudioSinkBase::PushSample(std::move(container));
        }
    }

    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string name) const override {
        if (HasFault("accepts-every-input")) {
            return m_defined;
        }
        const auto defined = AudioSinkBase::GetDefinedInput(std::move(name));
        return defined == nullptr && HasFault("has-an-input-at-once")
                   ? CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{}, nullptr)
                   : defined;
    }

    void Interrupt() override {
        if (HasFault("sink-crashes-when-interrupted")) {
            Crash(SIGSEGV);
        }
    }

protected:
    PCMFormat AdaptFormat(const PCMFormat& offered) const override {
        const PCMFormat floats{offered.rate, offered.channels};
        PCMFormat doubles = floats;
        doubles.bytesPerValue = sizeof(double);
        static int asked = 0;
        const bool accepts =
            (offered == floats && (!HasFault("accepts-once") || ++asked == 1)) ||
            (offered == doubles && offered.channels == 2 && HasFault("check-accepts-too-much")) ||
            HasFault("accepts-every-input");
        if (accepts) {
            return offered;
        }
        return offered == floats ? doubles : floats;
    }

    void BeginInput(const PCMFormat& format) override {
        KEL_CHECK(!HasFault("check-accepts-too-much") || format.bytesPerValue == sizeof(float),
                  "not this input");
        m_stream.open(Path());
        KEL_CHECK(m_stream.is_open(), "the file cannot be created");
        m_bytesPerFrame = BytesPerFrame(format);
    }

    void WriteFrames(const std::uint8_t* data, std::uint32_t frames) override {
        if (HasFault("logs-an-error")) {
            KEL_LOG(LogLevel::Error, "something went wrong");
        }
        m_stream.write(static_cast<const char*>(static_cast<const void*>(data)),
                       static_cast<std::streamsize>(frames * m_bytesPerFrame));
    }

    void FinishInput() override {
        m_stream.close();
        if (HasFault("sink-leaks-descriptors")) {
            LeakDescriptor();
        } else if (HasFault("sink-leaks-memory")) {
            LeakMemory();
        } else if (HasFault("sink-leaves-files")) {
            LeaveFile();
        }
    }

private:
    std::shared_ptr<const IInfoContainer> m_defined; // or refused
    std::ofstream m_stream;
    std::uint64_t m_bytesPerFrame = 0;
};

class HeapBlock final : public IMemoryBlock {
public:
    explicit HeapBlock(std::size_t bytes) : m_bytes(bytes) {}
    std::uint8_t* GetData() override { return m_bytes.data(); }
    std::uint32_t GetSize() const override { return static_cast<std::uint32_t>(m_bytes.size()); }

private:
    std::vector<std::uint8_t> m_bytes;
};

class HeapAllocator final : public IMemoryBlockAllocator {
public:
    explicit HeapAllocator(
        const std::shared_ptr<const IParametersCollectionInstance>& /*manifest*/) {}
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        return std::make_shared<HeapBlock>(HasFault("small-blocks") ? bytes / 2 : bytes);
    }
};

// The entries of a registration.
struct Description {
    ElementFactoryType kind;
    std::string type;
    std::string implementation;
    std::shared_ptr<const IParametersCollectionPrototype> settings;
};

template <ElementFactoryType T>
void Register(const char* name, const Description& description,
              typename ElementFactory<T>::Creator creator) {
    const bool isSource = T == ElementFactoryType::AudioSource;
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class", static_cast<std::int32_t>(description.kind));
    if (!isSource || !HasFault("no-type")) {
        entry->SetStringValue("type", description.type);
    }
    if (!isSource || !HasFault("no-implementation")) {
        entry->SetStringValue("implementation", description.implementation);
    }
    if (!isSource || !HasFault("no-documentation")) {
        entry->SetStringValue("doc", "For trying the checks of plug-ins.");
    }
    if (!isSource || !HasFault("no-settings")) {
        entry->SetCollectionValue("init_config", description.settings);
    }
    const std::string coreId =
        isSource && HasFault("own-core-id") ? "my own core" : GetKELCoreIdInternal("1.0");
    RegisterFactory(isSource && HasFault("own-name") ? "my own name" : name, coreId,
                    std::make_shared<ElementFactory<T>>(std::move(creator)), std::move(entry));
}

template <typename Element>
auto Maker() {
    return [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
        return std::make_shared<Element>(std::move(manifest));
    };
}

void RegisterSource(const char* name) {
    auto settings = CreateParametersCollectionPrototype();
    settings->AddIntegerParameter("Frames", ToneSource::kFrames,
                                  HasFault("undocumented-setting") ? "" : "How long it lasts");
    if (HasFault("opens-missing-file")) {
        settings->AddStringParameter("FilePath", "A file that must be there");
    }
    constexpr auto kKind = ElementFactoryType::AudioSource;
    const Description description{HasFault("other-class") ? ElementFactoryType::AudioSink : kKind,
                                  "WAVE", "test.Tone", settings};
    ElementFactory<kKind>::Creator creator = Maker<ToneSource>();
    if (HasFault("two-controls")) {
        creator = Maker<TwoSidedSource>();
    } else if (HasFault("same-element")) {
        creator = [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
            static const auto only = std::make_shared<ToneSource>(std::move(manifest));
            return only;
        };
    } else if (HasFault("no-element")) {
        creator = [](const auto& /*manifest*/) {
            return nullptr;
        };
    }
    Register<kKind>(name, description, creator);
    if (HasFault("registered-twice")) {
        Register<kKind>(name, description, creator);
    }
}

void RegisterSink(const char* name) {
    auto settings = CreateParametersCollectionPrototype();
    settings->AddStringParameter("FilePath", "Where the bytes go");
    constexpr auto kKind = ElementFactoryType::AudioSink;
    Register<kKind>(name, {kKind, "RAW", "test.Bytes", settings}, Maker<BytesSink>());
}

void RegisterAllocatorElement(const char* name) {
    constexpr auto kKind = ElementFactoryType::MemoryBlockAllocator;
    Register<kKind>(name, {kKind, "Heap", "test.Heap", CreateParametersCollectionPrototype()},
                    [](const auto& manifest) { return std::make_shared<HeapAllocator>(manifest); });
}

} // namespace

void RegisterAll(const char* name) {
    if (name == nullptr && HasFault("null-name")) {
        name = "";
    }
    const std::string given = name; // refuses a null name
    static bool hasRegistered = false;
    if (HasFault("registers-nothing") ||
        (HasFault("registers-once") && std::exchange(hasRegistered, true))) {
        return;
    }
    RegisterSource(name);
    if (HasFault("exits-while-registering")) {
        Exit();
    }
    if (HasFault("has-a-process-that-exits")) {
        const pid_t process = fork();
        if (process == 0) {
            std::exit(0);
        }
        int status = 1;
        waitpid(process, &status, 0);
        std::printf("its status is %d\n", status);
        static_cast<void>(std::fflush(stdout));
    }
    if (HasFault("exits-quickly-while-registering")) {
        std::quick_exit(0);
    }
    if (HasFault("throws-while-registering")) {
        throw std::runtime_error("the licence\nis missing");
    }
    if (HasFault("odd-words")) {
        std::printf("printed <b>&\n\x02\n");
        throw std::runtime_error("\"<a>&\x01\xFF ]]>\xEF\xBF\xBF \xE2\x80\xA8");
    }
    if (HasFault("throws-number-while-registering")) {
        throw 42;
    }
    RegisterSink(name);
    RegisterAllocatorElement(name);
}
