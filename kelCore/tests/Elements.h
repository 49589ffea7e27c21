/// The smallest elements that there can be, and registry entries for them.
#pragma once

#include <kelCore.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

using Manifest = std::shared_ptr<const IParametersCollectionInstance>;

/// A source that delivers one sample for each time it is opened.
class SmallSource final : public IAudioSource {
public:
    explicit SmallSource(Manifest manifest = nullptr) : m_manifest(std::move(manifest)) {}

    void UpdateConfig(Manifest config) override { m_updated = std::move(config); }
    Manifest GetManifest() const override { return m_manifest; }

    void Open(const std::wstring& path) override { m_path = path; }
    void SetDirection(MediaSourceDirection direction) override { m_direction = direction; }
    MediaSourceDirection GetDirection() const override { return m_direction; }
    MediaTime GotoTimeOffset(const MediaTime& time, std::string) override { return time; }
    bool IsMediaOpen() const override { return !m_path.empty(); }
    TimeLimits GetTimeLimits(std::string) override { return {}; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    bool IsGrowing() const override { return false; }
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        return m_outputs;
    }
    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) override {
        m_outputs = outputs;
    }
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        return m_outputs;
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string) const override {
        return nullptr;
    }
    std::shared_ptr<const ISampleContainer> GetSample() override {
        if (!IsMediaOpen()) {
            return nullptr;
        }
        m_path.clear();
        return CreateSampleContainer(std::vector<std::shared_ptr<const ISample>>{}, nullptr);
    }
    void Interrupt() override {}
    void SetInitConfig(Manifest config) override { m_updated = std::move(config); }
    void SetOutputMediator(std::shared_ptr<IOutputMediator>, std::string, std::string) override {}
    void ClearInternalBuffer() override {}
    void Release() override { m_path.clear(); }

    /// The latest settings.
    Manifest Updated() const { return m_updated; }

private:
    Manifest m_manifest;
    Manifest m_updated;
    std::wstring m_path;
    MediaSourceDirection m_direction = MediaSourceDirection::Forward;
    std::vector<std::shared_ptr<const IChannelInfo>> m_outputs;
};

/// A sink that keeps what it is given.
class SmallSink final : public IAudioSink {
public:
    explicit SmallSink(Manifest manifest = nullptr) : m_manifest(std::move(manifest)) {}

    void UpdateConfig(Manifest config) override { m_updated = std::move(config); }
    Manifest GetManifest() const override { return m_manifest; }

    void Open(const std::wstring&) override {}
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>&) override {}
    void Close(bool) override { m_input = nullptr; }

    void PushSample(std::shared_ptr<const ISampleContainer>) override {}
    void DefineInput(std::shared_ptr<const IInfoContainer> input, std::string) override {
        m_input = std::move(input);
    }
    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string) const override {
        return m_input;
    }
    void SetInputMediator(std::shared_ptr<IInputMediator>, std::string, std::string) override {}
    void Interrupt() override {}
    void ClearInternalBuffer() override {}
    void SetInitConfig(Manifest config) override { m_updated = std::move(config); }
    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer>,
                                  std::string) const override {
        return CreateCheckInputReportNoError();
    }
    void Release() override { m_input = nullptr; }

    /// The latest settings.
    Manifest Updated() const { return m_updated; }

private:
    Manifest m_manifest;
    Manifest m_updated;
    std::shared_ptr<const IInfoContainer> m_input;
};

using SourceFactory = ElementFactory<ElementFactoryType::AudioSource>;
using SinkFactory = ElementFactory<ElementFactoryType::AudioSink>;
using AllocatorFactory = ElementFactory<ElementFactoryType::MemoryBlockAllocator>;

/// A factory of SmallSources.
inline std::shared_ptr<SourceFactory> MakeSourceFactory() {
    return std::make_shared<SourceFactory>(
        [](const Manifest& manifest) { return std::make_shared<SmallSource>(manifest); });
}

/// A registry entry with the three keys that look-ups compare.
inline std::shared_ptr<IParametersCollectionInstance>
MakeEntry(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    auto entry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
    entry->SetIntegerValue("class", static_cast<std::int32_t>(kind));
    entry->SetStringValue("implementation", implementation);
    entry->SetStringValue("type", type);
    return entry;
}

/// Registers a factory for as long as it lives, under a name that nothing else is registered under.
class TemporaryRegistration {
public:
    TemporaryRegistration(const std::shared_ptr<IElementFactory>& factory, ElementFactoryType kind,
                          const std::string& implementation, const std::string& type)
        : m_entry(MakeEntry(kind, implementation, type)),
          m_name("for a while: " + implementation + " " + type) {
        RegisterFactory(m_name, "core", factory, m_entry);
    }

    ~TemporaryRegistration() { UnregisterFactories(m_name); }

    TemporaryRegistration(const TemporaryRegistration&) = delete;
    TemporaryRegistration& operator=(const TemporaryRegistration&) = delete;

    Manifest Entry() const { return m_entry; }

private:
    Manifest m_entry;
    std::string m_name;
};

} // namespace kel::test
