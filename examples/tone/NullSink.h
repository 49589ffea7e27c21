/// A sink that drops its input and counts it.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace kelTone {

/// Accepts PCM audio of every format and keeps nothing of it. Close logs the number of frames at
/// level Info. It measures, for instance, how fast a source is.
class NullSink final : public kel::AudioSinkBase {
public:
    /// @param manifest the registry entry, shared
    explicit NullSink(std::shared_ptr<const kel::IParametersCollectionInstance> manifest)
        : AudioSinkBase("NullSink", std::move(manifest)) {}

protected:
    void BeginInput(const kel::PCMFormat& /*format*/) override { m_frames = 0; }

    void WriteFrames(const std::uint8_t* /*data*/, std::uint32_t frames) override {
        m_frames += frames;
    }

    void FinishInput() override {
        KEL_LOG(kel::LogLevel::Info, "NullSink: " << m_frames << " frames");
    }

private:
    std::uint64_t m_frames = 0;
};

} // namespace kelTone
