/// The smallest possible elements, and registry entries for them. One thread at a time.
#pragma once

#include <kelCore.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

using Manifest = std::shared_ptr<const IParametersCollectionInstance>;

/// A source without a medium.
class SmallSource final : public IAudioSource {
public:
    explicit SmallSource(Manifest manifest = nullptr) : m_manifest(std::move(manifest)) {}

    void UpdateConfig(Manifest) override {}
    Manifest GetManifest() const override { return m_manifest; }

    void Open(const std::wstring&) override {}
    void SetDirection(MediaSourceDirection) override {}
    MediaSourceDirection GetDirection() const override { return MediaSourceDirection::Forward; }
    MediaTime GotoTimeOffset(const MediaTime& time, std::string) override { return time; }
    bool IsMediaOpen() const override { return false; }
    TimeLimits GetTimeLimits(std::string) override { return {}; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    bool IsGrowing() const override { return false; }
    std::vector<std::shared_ptr<const IChannelInfo>> GetAvailableOutputs() const override {
        return {};
    }
    void ActivateOutputs(const std::vector<std::shared_ptr<const IChannelInfo>>&) override {}
    std::vector<std::shared_ptr<const IChannelInfo>> GetActivatedOutputs() const override {
        return {};
    }

    std::shared_ptr<const IInfoContainer> GetDefinedOutput(std::string) const override {
        return nullptr;
    }
    std::shared_ptr<const ISampleContainer> GetSample() override { return nullptr; }
    void Interrupt() override {}
    void SetInitConfig(Manifest) override {}
    void SetOutputMediator(std::shared_ptr<IOutputMediator>, std::string, std::string) override {}
    void ClearInternalBuffer() override {}
    void Release() override {}

private:
    Manifest m_manifest;
};

/// A sink that drops its samples.
class SmallSink final : public IAudioSink {
public:
    explicit SmallSink(Manifest manifest = nullptr) : m_manifest(std::move(manifest)) {}

    void UpdateConfig(Manifest) override {}
    Manifest GetManifest() const override { return m_manifest; }

    void Open(const std::wstring&) override {}
    void PushMetadata(const std::vector<std::shared_ptr<const IMetadata>>&) override {}
    void Close(bool) override {}

    void PushSample(std::shared_ptr<const ISampleContainer>) override {}
    void DefineInput(std::shared_ptr<const IInfoContainer>, std::string) override {}
    std::shared_ptr<const IInfoContainer> GetDefinedInput(std::string) const override {
        return nullptr;
    }
    void SetInputMediator(std::shared_ptr<IInputMediator>, std::string, std::string) override {}
    void Interrupt() override {}
    void ClearInternalBuffer() override {}
    void SetInitConfig(Manifest) override {}
    std::shared_ptr<const ICheckInputReport>
    CheckInputAndAdaptIfNecessary(std::shared_ptr<const IInfoContainer>,
                                  std::string) const override {
        return CreateCheckInputReportNoError();
    }
    void Release() override {}

private:
    Manifest m_manifest;
};

/// An allocator without memory.
class NoMemory final : public IMemoryBlockAllocator {
public:
    std::shared_ptr<IMemoryBlock> Allocate(std::uint32_t) override { return nullptr; }
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

/// Registers a factory for as long as it lives, under a name of its own.
class TemporaryRegistration {
public:
    TemporaryRegistration(const std::shared_ptr<IElementFactory>& factory, ElementFactoryType kind,
                          const std::string& implementation, const std::string& type)
        : m_entry(MakeEntry(kind, implementation, type)),
          m_name("temporary: " + implementation + " " + type) {
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
