#include "RecordingParameters.h"

#include <IAudioParameters_PCM.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

namespace kel::test {

std::vector<std::string>& ParameterCalls() {
    static std::vector<std::string>& calls = *new std::vector<std::string>;
    return calls;
}

std::string& FailingParameterCall() {
    static std::string& call = *new std::string;
    return call;
}

namespace {

template <typename Value>
void Record(const std::string& call, Value value) {
    ParameterCalls().push_back(call + " " + std::to_string(static_cast<std::int64_t>(value)));
    if (call == FailingParameterCall()) {
        throw std::domain_error(call);
    }
}

class RecordingParameters final : public IAudioParameters_PCM {
public:
    ACodecFamily GetCodecFamily() const override { return ACodecFamily::PCM; }

    void SetSampleRate(std::uint32_t hertz) override {
        Record("SetSampleRate", hertz);
        m_sampleRate = hertz;
    }
    void SetEndianness(PCMEndianness endianness) override {
        Record("SetEndianness", endianness);
        m_endianness = endianness;
    }
    void SetMuxing(PCMMuxing muxing) override {
        Record("SetMuxing", muxing);
        m_muxing = muxing;
    }
    void SetPCMType(AudioPCMType type) override {
        Record("SetPCMType", type);
        m_type = type;
    }
    void SetSampleSize(std::uint8_t bytes) override {
        Record("SetSampleSize", bytes);
        m_sampleSize = bytes;
    }
    void SetBitsDepth(std::uint8_t bits) override {
        Record("SetBitsDepth", bits);
        m_bitsDepth = bits;
    }

    std::uint32_t GetSampleRate() const override { return m_sampleRate; }
    PCMEndianness GetEndianness() const override { return m_endianness; }
    PCMMuxing GetMuxing() const override { return m_muxing; }
    AudioPCMType GetPCMType() const override { return m_type; }
    std::uint8_t GetSampleSize() const override { return m_sampleSize; }
    std::uint8_t GetBitsDepth() const override { return m_bitsDepth; }

private:
    std::uint32_t m_sampleRate = 0;
    PCMEndianness m_endianness = PCMEndianness::Undefined;
    PCMMuxing m_muxing{};
    AudioPCMType m_type = AudioPCMType::Undefined;
    std::uint8_t m_sampleSize = 0;
    std::uint8_t m_bitsDepth = 0;
};

} // namespace

} // namespace kel::test

namespace kel {

// The dynamic linker looks into the program first, so the plug-in and the tests get these.
std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family) {
    test::Record("CreateAudioParameters", family);
    return std::make_shared<test::RecordingParameters>();
}

} // namespace kel
