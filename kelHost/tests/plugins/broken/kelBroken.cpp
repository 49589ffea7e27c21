// A plug-in with a source that computes its frames and a sink that writes a file of bare bytes. The
// name of its file selects one fault: libkelBroken-FAULT.so. Other names have none.

#include "../EntryPoint.h"

#include <kelCore.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <limits>
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

class ToneSource : public IAudioSource {
public:
    explicit ToneSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        m_isConfigured = true;
        if (!HasFault("no-settings")) {
            m_frames = config->GetIntegerValue("Frames");
        }
        if (HasFault("throws-at-defaults") && m_frames == kFrames) {
            throw std::logic_error("the defaults are no good");
        }
        const std::wstring path = ReadsFile() ? config->GetWideStringValue("FilePath") : L"";
        if (!ReadsFile() || !path.empty()) {
            m_isOpen = false;
            Open(path);
        }
    }

    void Open(const std::wstring& /*path*/) override {
        KEL_CHECK(!m_isOpen || HasFault("opens-twice"), "open");
        if (HasFault("source-leaks-descriptors")) {
            LeakDescriptor();
        } else if (HasFault("source-leaks-memory")) {
            LeakMemory();
        } else if (HasFault("source-leaves-files")) {
            LeaveFile();
        }
        const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
        parameters->SetMuxing(PCMMuxing::Multi);
        parameters->SetSampleRate(kRate);
        parameters->SetBitsDepth(32);
        parameters->SetEndianness(PCMEndianness::Little);
        parameters->SetPCMType(AudioPCMType::Float);
        parameters->SetSampleSize(sizeof(float));
        m_info = CreateAudioInfo(
            parameters,
            CreateChannelInfo(CreateTrack(ContentType::Audio, 1, nullptr, TrackLayout::Default)),
            {}, {});
        m_isOpen = true;
        m_hasEnded = false;
        if (!HasFault("goes-on-after-reopening")) {
            m_position = 0;
        }
    }

    void Release() override {
        KEL_CHECK(m_isConfigured || !HasFault("release-needs-settings"), "not configured");
        m_isOpen = false;
    }

    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (!m_isOpen || (!m_isActive && !HasFault("ignores-outputs"))) {
            return nullptr;
        }
        constexpr std::int64_t kBlock = 1024;
        const std::int64_t end = m_frames - (HasFault("frames-short") ? 1 : 0);
        const std::int64_t frames = std::min(kBlock, end - m_position);
        if (frames <= 0 && (!std::exchange(m_hasEnded, true) || !HasFault("sample-after-end"))) {
            return nullptr;
        }
        const bool hasGap = HasFault("gap-in-stamps") && m_position > 0;
        return MakeSample(std::max<std::int64_t>(frames, 1), m_position + (hasGap ? 1 : 0));
    }

    TimeLimits GetTimeLimits(std::string /*track*/) override {
        KEL_CHECK(m_isOpen || HasFault("limits-while-closed"), "closed");
        return {MediaTime(EditRate(kRate, 1), 0, nullptr), m_frames};
    }

    MediaTime GotoTimeOffset(const MediaTime& time, std::string /*track*/) override {
        KEL_CHECK(m_isOpen, "closed");
        if (time.GetEditRate() != EditRate(kRate, 1)) {
            MeetOtherRate();
        }
        const std::int64_t frame = time.GetTimeNumber();
        KEL_CHECK(frame >= 0, "before the start");
        KEL_CHECK(frame <= m_frames || HasFault("seeks-outside"), "after the end");
        m_position = frame;
        if (HasFault("seeks-elsewhere") && frame > 0 && frame < m_frames) {
            --m_position;
        }
        if (std::exchange(m_hasEnded, false) && HasFault("stays-at-its-end")) {
            m_position = m_frames;
        }
        return time;
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string /*name*/) const override {
        return m_isOpen && !HasFault("describes-nothing") ? CreateInfoContainer(m_info, nullptr)
                                                          : nullptr;
    }

    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return HasFault("no-manifest") ? nullptr : m_manifest;
    }

    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        return m_isOpen ? Outputs{m_info->GetChannelInfo()} : Outputs{};
    }

    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        return m_isActive ? GetAvailableOutputs() : Outputs{};
    }

    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override {
        KEL_CHECK(m_isOpen, "closed");
        m_isActive = !outputs.empty();
    }

    void Interrupt() override {
        if (HasFault("source-crashes-when-interrupted")) {
            Crash(SIGSEGV);
        }
    }

    bool IsMediaOpen() const override { return m_isOpen; }
    bool IsGrowing() const override { return false; }
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {
        KEL_FAIL("not supported");
    }
    void SetDirection(MediaSourceDirection /*direction*/) override {}
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    void SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/, std::string /*output*/,
                           std::string /*name*/) override {}
    void ClearInternalBuffer() override {}

    static constexpr std::int32_t kFrames = 3000;

private:
    using Outputs = std::vector<std::shared_ptr<const IChannelInfo>>;

    static constexpr std::uint32_t kRate = 48000;

    static bool ReadsFile() { return HasFault("opens-missing-file"); }

    [[noreturn]] static void MeetOtherRate() {
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
        KEL_FAIL("another rate");
    }

    std::shared_ptr<const ISampleContainer> MakeSample(std::int64_t frames, std::int64_t stamp) {
        const auto count = static_cast<std::uint32_t>(frames);
        const auto buffer = CreateBuffer(nullptr, nullptr);
        buffer->Reserve(count * sizeof(float));
        buffer->SetSize(count * sizeof(float));
        auto* values = static_cast<float*>(static_cast<void*>(buffer->GetData()));
        for (std::uint32_t i = 0; i < count; ++i) {
            values[i] = static_cast<float>(m_position + i) / 65536.0F;
        }
        m_position += frames;
        return CreateSampleContainer(
            CreateAudioSample(m_info->GetAudioParameters(), m_info, buffer,
                              {MediaTime(EditRate(kRate, 1), stamp, nullptr), frames}, {}),
            nullptr);
    }

    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const IAudioInfo> m_info;
    bool m_isConfigured = false;
    bool m_isOpen = false;
    bool m_isActive = true;
    bool m_hasEnded = false;
    std::int64_t m_frames = kFrames;
    std::int64_t m_position = 0;
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

class BytesSink final : public IAudioSink {
public:
    explicit BytesSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) override {
        Open(config->GetWideStringValue("FilePath"));
    }

    void Open(const std::wstring& path) override {
        KEL_CHECK(!m_isWriting || HasFault("opens-while-writing"), "writing");
        m_path = ConvertWideStringToPlatformString(path);
    }

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string /*name*/) const override {
        if (HasFault("check-makes-a-file") && !m_isWriting) {
            LeaveFile();
        }
        if (HasFault("check-accepts-too-much") && BytesPerValue(*input) == sizeof(double) &&
            input->GetAudioInfos().front()->GetChannelInfo()->GetNumberOfChannels() == 2) {
            return CreateCheckInputReportNoError();
        }
        return Takes(*input) ? CreateCheckInputReportNoError()
                             : CreateCheckInputReportEncodingError({});
    }

    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string /*name*/) override {
        if (HasFault("refusal-leaves-file")) {
            m_stream.open(m_path);
            m_stream.close();
        }
        KEL_CHECK(Takes(*input), "not this input");
        m_stream.open(m_path);
        KEL_CHECK(m_stream.is_open(), "the file cannot be created");
        m_defined = std::move(input);
        m_isWriting = true;
    }

    void PushSample(std::shared_ptr<const ISampleContainer> container) override {
        if (!m_isWriting && HasFault("loses-samples")) {
            return;
        }
        KEL_CHECK(m_isWriting, "no input");
        if (HasFault("logs-an-error")) {
            KEL_LOG(LogLevel::Error, "something went wrong");
        }
        for (const auto& sample : container->GetAudioSamples(nullptr, nullptr)) {
            const std::shared_ptr<const IBuffer> buffer = sample->GetBuffer();
            m_stream.write(static_cast<const char*>(static_cast<const void*>(buffer->GetData())),
                           buffer->GetSize());
        }
    }

    void Close(bool /*flag*/) override {
        if (!m_isWriting) {
            return;
        }
        m_stream.close();
        m_isWriting = false;
        if (HasFault("sink-leaks-descriptors")) {
            LeakDescriptor();
        } else if (HasFault("sink-leaks-memory")) {
            LeakMemory();
        } else if (HasFault("sink-leaves-files")) {
            LeaveFile();
        }
    }

    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string /*name*/) const override {
        return m_defined == nullptr && HasFault("has-an-input-at-once")
                   ? CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>>{}, nullptr)
                   : m_defined;
    }

    void Interrupt() override {
        if (HasFault("sink-crashes-when-interrupted")) {
            Crash(SIGSEGV);
        }
    }

    void Release() override { Close(false); }
    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return m_manifest;
    }
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {
        KEL_FAIL("not supported");
    }
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>& /*metadata*/) override {
        KEL_FAIL("not supported");
    }
    void SetInputMediator(std::shared_ptr<IInputMediator> /*mediator*/, std::string /*input*/,
                          std::string /*name*/) override {
        KEL_FAIL("not supported");
    }
    void ClearInternalBuffer() override {}

private:
    // The size of little-endian floats in a single stream; 0 for everything else.
    static std::size_t BytesPerValue(const IInfoContainer& input) {
        const auto infos = input.GetAudioInfos();
        if (infos.size() != 1 || infos.front()->GetChannelInfo()->GetNumberOfChannels() == 0) {
            return 0;
        }
        const auto parameters = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
            infos.front()->GetAudioParameters());
        return parameters != nullptr && parameters->GetPCMType() == AudioPCMType::Float &&
                       parameters->GetEndianness() == PCMEndianness::Little
                   ? parameters->GetSampleSize()
                   : 0;
    }

    static bool Takes(const IInfoContainer& input) {
        static int asked = 0;
        if (HasFault("accepts-every-input")) {
            return true;
        }
        return BytesPerValue(input) == sizeof(float) && (!HasFault("accepts-once") || ++asked == 1);
    }

    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const IInfoContainer> m_defined;
    std::string m_path;
    std::ofstream m_stream;
    bool m_isWriting = false;
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
