// A plug-in with a source of packets of an unknown codec, a sink for them, and an allocator. The
// name of its file selects a variant, correct or faulty: libkelUnusual-VARIANT.so.

#include "../EntryPoint.h"

#include <kelCore.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace kel; // NOLINT(google-build-using-namespace): all of it is about these elements

bool Is(const std::string& variant) {
    static const std::string own = [] {
        Dl_info library{};
        dladdr(reinterpret_cast<const void*>(&RegisterAll), &library);
        const std::string path = library.dli_fname;
        const std::string start = "/libkelUnusual-";
        const std::size_t begin = path.rfind(start);
        return begin == std::string::npos
                   ? ""
                   : path.substr(begin + start.size(), path.size() - begin - start.size() - 3);
    }();
    return own == variant;
}

// Logs an error in the variant of a name.
void LogErrorIf(const std::string& variant) {
    if (Is(variant)) {
        KEL_LOG(LogLevel::Error, "something\nwent wrong");
    }
}

bool ReadsFiles() {
    return Is("reads-its-own-type") || Is("reads-everything") || Is("opens-twice") ||
           Is("logs-an-error-about-its-file");
}

constexpr auto kCodec = static_cast<ACodecFamily>(9999);
constexpr std::uint32_t kRate = 48000;
constexpr std::int64_t kPacket = 100; // frames
constexpr std::int64_t kFrames = 3000;

std::shared_ptr<const IAudioInfo> Stream(std::shared_ptr<const IAudioParameters> parameters) {
    return CreateAudioInfo(
        std::move(parameters),
        CreateChannelInfo(CreateTrack(ContentType::Audio, 1, nullptr, TrackLayout::Default)), {},
        {});
}

std::shared_ptr<const IAudioParameters> Bytes() {
    const auto parameters = CreateAudioParameters<ACodecFamily::PCM>();
    parameters->SetMuxing(PCMMuxing::Multi);
    parameters->SetSampleRate(kRate);
    parameters->SetBitsDepth(16);
    parameters->SetEndianness(PCMEndianness::Little);
    parameters->SetPCMType(AudioPCMType::Integer);
    parameters->SetSampleSize(2);
    return parameters;
}

// A buffer that promises bytes.
class PromisingBuffer final : public IBuffer {
public:
    std::uint8_t* GetData() override { return nullptr; }
    const std::uint8_t* GetData() const override { return nullptr; }
    std::uint32_t GetSize() const override { return 4; }
    void SetSize(std::uint32_t /*bytes*/) override {}
    void Reserve(std::uint32_t /*bytes*/) override {}
};

class BareSample final : public IAudioSample {
public:
    std::shared_ptr<const IBuffer> GetBuffer() const override {
        return Is("buffers-without-data") ? std::make_shared<PromisingBuffer>() : nullptr;
    }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override { return nullptr; }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return nullptr; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

private:
    TimeLimits m_limits;
};

// A container of one sample of any kind.
class BareContainer final : public ISampleContainer {
public:
    explicit BareContainer(std::shared_ptr<const IAudioSample> sample)
        : m_sample(std::move(sample)) {}
    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> /*info*/,
                    std::shared_ptr<const ITrack> /*track*/) const override {
        return {m_sample};
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    std::shared_ptr<const IAudioSample> m_sample;
};

// Delivers packets of zero bytes, and seeks to the start of a packet.
class PacketSource final : public IAudioSource {
public:
    explicit PacketSource(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {}

    void Open(const std::wstring& path) override {
        KEL_CHECK(m_outputs.empty() || Is("opens-twice"), "open");
        LogErrorIf("logs-an-error-in-open");
        if (ReadsFiles()) {
            std::ifstream file(ConvertWideStringToPlatformString(path), std::ios::binary);
            KEL_CHECK(file.is_open() && !Is("reads-its-own-type"), "not a file of packets");
        }
        m_outputs.clear();
        const bool isPCM = Is("growing") || Is("endless");
        m_outputs.push_back(Stream(isPCM ? Bytes() : CreateAudioParameters(kCodec)));
        if (Is("two-outputs")) {
            m_outputs.push_back(Stream(Bytes()));
        }
        m_frames = Is("endless") ? std::numeric_limits<std::int64_t>::max() : kFrames;
        m_position = 0;
        m_active.assign(m_outputs.size(), true);
    }

    void Release() override {
        if (m_outputs.empty()) {
            LogErrorIf("logs-an-error-in-second-release");
        } else {
            LogErrorIf("logs-an-error-in-release");
        }
        m_outputs.clear();
        m_active.clear();
    }

    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (GetActivatedOutputs().empty()) {
            return nullptr;
        }
        if (m_position >= m_frames) {
            LogErrorIf("logs-an-error-at-its-end");
            return nullptr;
        }
        LogErrorIf("logs-an-error-in-get-sample");
        LogErrorIf("logs-an-error-about-its-file");
        m_position += kPacket;
        if (Is("growing") && m_frames < 2 * kFrames) {
            m_frames += kPacket;
        }
        if (Is("empty-samples")) {
            return std::make_shared<BareContainer>(nullptr);
        }
        if (Is("samples-without-buffers") || Is("buffers-without-data")) {
            return std::make_shared<BareContainer>(std::make_shared<BareSample>());
        }
        std::vector<std::shared_ptr<const ISample>> samples;
        for (std::size_t i = 0; i < m_outputs.size() && !Is("samples-of-another-kind"); ++i) {
            if (m_active[i]) {
                samples.push_back(MakePacket(m_outputs[i]));
            }
        }
        return CreateSampleContainer(samples, nullptr);
    }

    TimeLimits GetTimeLimits(std::string /*track*/) override {
        KEL_CHECK(!m_outputs.empty(), "closed");
        return {MediaTime(EditRate(Is("null-rate") ? 0 : kRate, 1), 0, nullptr),
                Is("negative-limits") ? -1 : m_frames};
    }

    MediaTime GotoTimeOffset(const MediaTime& time, std::string /*track*/) override {
        KEL_CHECK(!m_outputs.empty() || Is("seeks-while-closed"), "closed");
        KEL_CHECK(!Is("live"), "it cannot seek");
        m_position = std::clamp<std::int64_t>(time.GetTimeNumber(), 0, m_frames);
        m_position -= m_position % kPacket;
        return {time.GetEditRate(), m_position, nullptr};
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string /*name*/) const override {
        const std::vector<std::shared_ptr<const IInfo>> infos(m_outputs.begin(), m_outputs.end());
        return infos.empty() ? nullptr : CreateInfoContainer(infos, nullptr);
    }

    std::shared_ptr<const IParametersCollectionInstance> GetManifest() const override {
        return m_manifest;
    }

    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        return Outputs(std::vector<bool>(m_outputs.size(), true));
    }

    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        return Outputs(m_active);
    }

    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override {
        KEL_CHECK(!m_outputs.empty(), "closed");
        for (std::size_t i = 0; i < m_outputs.size(); ++i) {
            m_active[i] = std::find(outputs.begin(), outputs.end(),
                                    m_outputs[i]->GetChannelInfo()) != outputs.end();
        }
    }

    bool IsMediaOpen() const override { return !m_outputs.empty(); }
    bool IsGrowing() const override { return Is("growing"); }
    void Interrupt() override { LogErrorIf("logs-an-error-in-interrupt"); }
    void UpdateConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {
        KEL_FAIL("not supported");
    }
    void SetDirection(MediaSourceDirection /*direction*/) override {}
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    void SetOutputMediator(std::shared_ptr<IOutputMediator> /*mediator*/, std::string /*output*/,
                           std::string /*name*/) override {}
    void ClearInternalBuffer() override {}

private:
    std::shared_ptr<const ISample> MakePacket(const std::shared_ptr<const IAudioInfo>& info) const {
        const auto buffer = CreateBuffer(nullptr, nullptr);
        const std::uint32_t bytes = Is("growing") || Is("endless") ? 2 * kPacket : 7;
        buffer->Reserve(bytes);
        std::fill_n(buffer->GetData(), bytes, std::uint8_t{0});
        buffer->SetSize(bytes);
        const MediaTime start(EditRate(kRate, 1), m_position - kPacket, nullptr);
        return CreateAudioSample(info->GetAudioParameters(), info, buffer, {start, kPacket}, {});
    }

    std::vector<std::shared_ptr<const IChannelInfo>>
    Outputs(const std::vector<bool>& selected) const {
        std::vector<std::shared_ptr<const IChannelInfo>> outputs;
        for (std::size_t i = 0; i < m_outputs.size(); ++i) {
            if (selected[i]) {
                outputs.push_back(m_outputs[i]->GetChannelInfo());
            }
        }
        return outputs;
    }

    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::vector<std::shared_ptr<const IAudioInfo>> m_outputs; // empty while closed
    std::vector<bool> m_active;
    std::int64_t m_frames = kFrames;
    std::int64_t m_position = 0;
};

// Parameters of a codec that only this plug-in knows.
class OwnParameters final : public IAudioParameters {
public:
    ACodecFamily GetCodecFamily() const override { return kCodec; }
};

// Counts packets.
class PacketSink final : public IAudioSink {
public:
    explicit PacketSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
        : m_manifest(std::move(manifest)) {}

    void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {
        KEL_CHECK(!Is("needs-other-settings"), "needs other settings");
        m_isConfigured = true;
    }

    void Open(const std::wstring& path) override {
        KEL_CHECK(m_defined == nullptr, "writing");
        m_path = ConvertWideStringToPlatformString(path);
    }

    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer> input,
                                  std::string /*name*/) const override {
        if (!m_isConfigured) {
            std::abort(); // it cannot be asked before SetInitConfig
        }
        KEL_CHECK(m_defined == nullptr, "an input is defined");
        const auto infos = input->GetAudioInfos();
        if (infos.size() != 1) {
            return CreateCheckInputReportTrackError({ContentType::Audio});
        }
        if (IsAccepted(infos.front()->GetAudioParameters())) {
            LogErrorIf("logs-an-error-in-check");
            return CreateCheckInputReportNoError();
        }
        if (!Is("proposes")) {
            KEL_LOG(LogLevel::Error, "the reason of the report");
            return CreateCheckInputReportEncodingError({});
        }
        return CreateCheckInputReportEncodingError(
            {{infos.front()->GetId(), {nullptr, std::make_shared<OwnParameters>()}}});
    }

    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string name) override {
        const auto report = CheckInputAndAdaptIfNecessary(input, name);
        KEL_CHECK(report->GetErrorType() == 0, "not this input");
        m_defined = std::move(input);
        m_next = 0;
        if (Is("writes-a-file")) {
            std::ofstream(m_path) << "packets:";
        }
    }

    void PushSample(std::shared_ptr<const ISampleContainer> container) override {
        if (m_defined == nullptr && Is("crashes-without-an-input")) {
            std::abort();
        }
        KEL_CHECK(m_defined != nullptr, "no input");
        KEL_CHECK(!Is("refuses-zeros"), "not a packet");
        for (const auto& sample : container->GetAudioSamples(nullptr, nullptr)) {
            LogErrorIf("logs-an-error-in-push-sample");
            const TimeLimits& limits = sample->GetTimeLimits();
            KEL_CHECK(limits.duration > 0, "an empty packet");
            KEL_CHECK_EQUAL(limits.start.GetTimeNumber(), m_next, "a packet is missing");
            m_next += limits.duration;
        }
    }

    void Close(bool /*flag*/) override {
        if (m_defined != nullptr) {
            LogErrorIf("logs-an-error-in-close");
        } else {
            LogErrorIf("logs-an-error-in-second-close");
        }
        m_defined = nullptr;
    }

    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string /*name*/) const override {
        return m_defined;
    }

    void Release() override { m_defined = nullptr; }
    void Interrupt() override {}
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
    static bool IsAccepted(const std::shared_ptr<const IAudioParameters>& parameters) {
        if (Is("accepts-nothing")) {
            return false;
        }
        if (Is("accepts-no-codec")) {
            return parameters == nullptr;
        }
        if (Is("proposes")) {
            return std::dynamic_pointer_cast<const OwnParameters>(parameters) != nullptr;
        }
        if (Is("accepts-pcm") || Is("logs-an-error-in-close")) {
            const auto pcm = std::dynamic_pointer_cast<const IAudioParameters_PCM>(parameters);
            return pcm != nullptr && pcm->GetSampleSize() == 2;
        }
        return parameters != nullptr && parameters->GetCodecFamily() == kCodec;
    }

    std::shared_ptr<const IParametersCollectionInstance> m_manifest;
    std::shared_ptr<const IInfoContainer> m_defined;
    std::string m_path;
    bool m_isConfigured = false;
    std::int64_t m_next = 0;
};

class Block final : public IMemoryBlock {
public:
    explicit Block(std::uint32_t bytes) : m_bytes(bytes) {}
    std::uint8_t* GetData() override { return m_bytes.data(); }
    std::uint32_t GetSize() const override { return static_cast<std::uint32_t>(m_bytes.size()); }

private:
    std::vector<std::uint8_t> m_bytes;
};

class BlockAllocator final : public IMemoryBlockAllocator {
public:
    explicit BlockAllocator(
        const std::shared_ptr<const IParametersCollectionInstance>& /*manifest*/) {}
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t bytes) override {
        LogErrorIf("logs-an-error-in-allocate");
        return std::make_shared<Block>(bytes);
    }
};

template <ElementFactoryType T, typename Element>
void Register(const char* name, const std::string& implementation, bool hasPath) {
    auto settings = CreateParametersCollectionPrototype();
    if (hasPath) {
        settings->AddStringParameter("FilePath", "The file");
    }
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class", static_cast<std::int32_t>(T));
    entry->SetStringValue("type", "PACKETS");
    entry->SetStringValue("implementation", implementation);
    entry->SetStringValue("doc", "For trying the checks of plug-ins.");
    entry->SetCollectionValue("init_config", settings);
    RegisterFactory(name, GetKELCoreIdInternal("1.0"),
                    std::make_shared<ElementFactory<T>>(
                        [](std::shared_ptr<const IParametersCollectionInstance> manifest) {
                            return std::make_shared<Element>(std::move(manifest));
                        }),
                    std::move(entry));
}

} // namespace

void RegisterAll(const char* name) {
    const std::string given = name; // refuses a null name
    Register<ElementFactoryType::AudioSource, PacketSource>(name, "test.PacketSource",
                                                            ReadsFiles());
    Register<ElementFactoryType::AudioSink, PacketSink>(name, "test.PacketSink",
                                                        Is("writes-a-file"));
    Register<ElementFactoryType::MemoryBlockAllocator, BlockAllocator>(name, "test.Blocks", false);
}
