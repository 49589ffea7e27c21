/// Objects of the framework that a test scripts: they note each call that the sink makes, and one
/// of the calls can be made to fail.
#pragma once

#include <kelCore.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

/// The calls so far, in order, and which of them fails.
struct Script {
    std::vector<std::string> calls;
    std::size_t failing = 0; ///< counted from 1; 0 for none

    void Note(const std::string& call) {
        calls.push_back(call);
        if (calls.size() == failing) {
            throw std::domain_error(call);
        }
    }
};

template <typename Value>
std::string Number(Value value) {
    return std::to_string(static_cast<std::int64_t>(value));
}

/// Keeps values in the real object behind it.
class ParametersDouble final : public IAudioParameters_PCM {
public:
    ParametersDouble(Script& script, std::shared_ptr<IAudioParameters_PCM> real)
        : m_script(script), m_real(std::move(real)) {}

    ACodecFamily GetCodecFamily() const override { return m_real->GetCodecFamily(); }

    void SetSampleRate(std::uint32_t value) override {
        m_script.Note("SetSampleRate " + Number(value));
        m_real->SetSampleRate(value);
    }
    void SetEndianness(PCMEndianness value) override {
        m_script.Note("SetEndianness " + Number(value));
        m_real->SetEndianness(value);
    }
    void SetMuxing(PCMMuxing value) override {
        m_script.Note("SetMuxing " + Number(value));
        m_real->SetMuxing(value);
    }
    void SetPCMType(AudioPCMType value) override {
        m_script.Note("SetPCMType " + Number(value));
        m_real->SetPCMType(value);
    }
    void SetSampleSize(std::uint8_t value) override {
        m_script.Note("SetSampleSize " + Number(value));
        m_real->SetSampleSize(value);
    }
    void SetBitsDepth(std::uint8_t value) override {
        m_script.Note("SetBitsDepth " + Number(value));
        m_real->SetBitsDepth(value);
    }

    std::uint32_t GetSampleRate() const override {
        m_script.Note("GetSampleRate");
        return m_real->GetSampleRate();
    }
    PCMEndianness GetEndianness() const override {
        m_script.Note("GetEndianness");
        return m_real->GetEndianness();
    }
    PCMMuxing GetMuxing() const override {
        m_script.Note("GetMuxing");
        return m_real->GetMuxing();
    }
    AudioPCMType GetPCMType() const override {
        m_script.Note("GetPCMType");
        return m_real->GetPCMType();
    }
    std::uint8_t GetSampleSize() const override {
        m_script.Note("GetSampleSize");
        return m_real->GetSampleSize();
    }
    std::uint8_t GetBitsDepth() const override {
        m_script.Note("GetBitsDepth");
        return m_real->GetBitsDepth();
    }

private:
    Script& m_script;
    std::shared_ptr<IAudioParameters_PCM> m_real;
};

/// So many channels.
class ChannelsDouble final : public IChannelInfo {
public:
    ChannelsDouble(Script& script, std::uint32_t channels)
        : m_script(script), m_channels(channels) {}

    std::uint32_t GetNumberOfChannels() const override {
        m_script.Note("GetNumberOfChannels");
        return m_channels;
    }
    std::shared_ptr<const ITrack> GetTrack() const override { return nullptr; }

private:
    Script& m_script;
    std::uint32_t m_channels;
};

/// An audio info that may answer differently at each call.
class AudioInfoDouble final : public IAudioInfo {
public:
    explicit AudioInfoDouble(Script& script) : m_script(script) {}

    std::function<std::shared_ptr<const IAudioParameters>()> parameters;
    std::shared_ptr<const IChannelInfo> channels;
    std::string id = "the info";

    std::shared_ptr<const IChannelInfo> GetChannelInfo() const override {
        m_script.Note("GetChannelInfo");
        return channels;
    }
    const std::string& GetId() const override {
        m_script.Note("GetId");
        return id;
    }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override {
        m_script.Note("GetAudioParameters");
        return parameters();
    }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }
    std::vector<std::shared_ptr<const IClockInfo>> GetClockInfos() const override { return {}; }

private:
    Script& m_script;
};

/// A container of one info, unless its lists are changed.
class InfoContainerDouble final : public IInfoContainer {
public:
    InfoContainerDouble(Script& script, const std::shared_ptr<const IAudioInfo>& info)
        : infos{info}, m_script(script) {
        audioInfos = [info] {
            return std::vector<std::shared_ptr<const IAudioInfo>>{info};
        };
    }

    std::vector<std::shared_ptr<const IInfo>> infos;
    std::function<std::vector<std::shared_ptr<const IAudioInfo>>()> audioInfos;

    std::vector<std::shared_ptr<const IInfo>> GetInfos() const override {
        m_script.Note("GetInfos");
        return infos;
    }
    std::vector<std::shared_ptr<const IAudioInfo>> GetAudioInfos() const override {
        m_script.Note("GetAudioInfos");
        return audioInfos();
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    Script& m_script;
};

/// Keeps values in the real collection behind it.
class CollectionDouble final : public IParametersCollectionInstance {
public:
    CollectionDouble(Script& script, std::shared_ptr<IParametersCollectionInstance> real)
        : m_script(script), m_real(std::move(real)) {}

    void SetIntegerValue(std::string_view name, std::int32_t value) override {
        m_real->SetIntegerValue(name, value);
    }
    void SetStringValue(std::string_view name, std::string_view value) override {
        m_real->SetStringValue(name, value);
    }
    void SetWideStringValue(std::string_view name, const std::wstring& value) override {
        m_real->SetWideStringValue(name, value);
    }
    void SetCollectionValue(std::string_view name,
                            std::shared_ptr<const IParametersCollectionPrototype> value) override {
        m_real->SetCollectionValue(name, std::move(value));
    }
    std::int32_t GetIntegerValue(std::string_view name) const override {
        m_script.Note("GetIntegerValue " + std::string(name));
        return m_real->GetIntegerValue(name);
    }
    std::string GetStringValue(std::string_view name) const override {
        m_script.Note("GetStringValue " + std::string(name));
        return m_real->GetStringValue(name);
    }
    std::wstring GetWideStringValue(std::string_view name) const override {
        m_script.Note("GetWideStringValue " + std::string(name));
        return m_real->GetWideStringValue(name);
    }
    std::shared_ptr<const IParametersCollectionPrototype>
    GetCollectionValue(std::string_view name) const override {
        m_script.Note("GetCollectionValue " + std::string(name));
        return m_real->GetCollectionValue(name);
    }

private:
    Script& m_script;
    std::shared_ptr<IParametersCollectionInstance> m_real;
};

/// A report of any kind.
class ReportDouble final : public ICheckInputReport {
public:
    explicit ReportDouble(std::int32_t errorType) : m_errorType(errorType) {}

    std::int32_t GetErrorType() const override { return m_errorType; }
    const std::multiset<ContentType>& GetExpectedContentTypes() const override { return m_types; }
    const std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>&
    GetAcceptedEncodings() const override {
        return m_encodings;
    }

private:
    std::int32_t m_errorType;
    std::multiset<ContentType> m_types;
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>> m_encodings;
};

/// A buffer that claims a size. Its bytes are never touched.
class BufferDouble final : public IBuffer {
public:
    BufferDouble(Script& script, std::uint32_t size) : m_script(script), m_size(size) {}

    std::uint8_t* GetData() override { return &m_byte; }
    const std::uint8_t* GetData() const override {
        m_script.Note("GetData");
        return &m_byte;
    }
    std::uint32_t GetSize() const override {
        m_script.Note("GetSize");
        return m_size;
    }
    void SetSize(std::uint32_t bytes) override { m_size = bytes; }
    void Reserve(std::uint32_t /*bytes*/) override {}

private:
    Script& m_script;
    std::uint32_t m_size;
    std::uint8_t m_byte = 0;
};

/// A sample with a buffer and nothing else.
class SampleDouble final : public IAudioSample {
public:
    SampleDouble(Script& script, std::shared_ptr<const IBuffer> buffer)
        : m_script(script), m_buffer(std::move(buffer)) {}

    std::shared_ptr<const IBuffer> GetBuffer() const override {
        m_script.Note("GetBuffer");
        return m_buffer;
    }
    std::shared_ptr<const IAudioParameters> GetAudioParameters() const override { return nullptr; }
    std::shared_ptr<const IAudioInfo> GetAudioInfo() const override { return nullptr; }
    const TimeLimits& GetTimeLimits() const override { return m_limits; }
    std::vector<std::shared_ptr<const IMetadata>> GetMetadatas() const override { return {}; }

private:
    Script& m_script;
    std::shared_ptr<const IBuffer> m_buffer;
    TimeLimits m_limits;
};

/// A container that gives these samples where nothing narrows the selection.
class SampleContainerDouble final : public ISampleContainer {
public:
    SampleContainerDouble(Script& script, std::vector<std::shared_ptr<const IAudioSample>> samples)
        : m_script(script), m_samples(std::move(samples)) {}

    std::vector<std::shared_ptr<const IAudioSample>>
    GetAudioSamples(std::shared_ptr<const IAudioInfo> info,
                    std::shared_ptr<const ITrack> track) const override {
        m_script.Note("GetAudioSamples");
        if (info != nullptr || track != nullptr) {
            throw std::invalid_argument("all samples are wanted");
        }
        return m_samples;
    }
    std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const override { return nullptr; }

private:
    Script& m_script;
    std::vector<std::shared_ptr<const IAudioSample>> m_samples;
};

} // namespace kel::test
