/// A sink that computes a checksum of its input.
#pragma once

#include <kelCore.h>

#include <cstdint>
#include <memory>

namespace kelTone {

/// Computes the CRC-32 of all bytes of its input, PCM audio of every format, and logs it at level
/// Info when it is closed. Two sources that deliver the same bytes have the same checksum, however
/// the bytes are divided into samples.
class ChecksumSink final : public kel::AudioSinkBase {
public:
    /// @param manifest the registry entry, shared
    explicit ChecksumSink(std::shared_ptr<const kel::IParametersCollectionInstance> manifest);

protected:
    void BeginInput(const kel::PCMFormat& format) override;
    void WriteFrames(const std::uint8_t* data, std::uint32_t frames) override;
    void FinishInput() override;

private:
    std::uint64_t m_bytesPerFrame = 0;
    std::uint64_t m_bytes = 0;    // received so far
    std::uint32_t m_checksum = 0; // of them
};

} // namespace kelTone
