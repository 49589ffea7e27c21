#include "ChecksumSink.h"

#include <array>
#include <iomanip>
#include <utility>

namespace kelTone {

using namespace kel;

namespace {

// The remainders of all bytes, as in the sample code of RFC 1952 (GZIP file format), section 8.
constexpr std::array<std::uint32_t, 256> MakeRemainders() {
    std::array<std::uint32_t, 256> remainders{};
    for (std::uint32_t byte = 0; byte < remainders.size(); ++byte) {
        std::uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? 0xEDB88320U : 0U);
        }
        remainders[byte] = remainder;
    }
    return remainders;
}

constexpr std::array<std::uint32_t, 256> kRemainders = MakeRemainders();

} // namespace

ChecksumSink::ChecksumSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : AudioSinkBase("ChecksumSink", std::move(manifest)) {}

void ChecksumSink::BeginInput(const PCMFormat& format) {
    m_bytesPerFrame = BytesPerFrame(format);
    m_bytes = 0;
    m_checksum = 0;
}

void ChecksumSink::WriteFrames(const std::uint8_t* data, std::uint32_t frames) {
    const std::uint64_t bytes = frames * m_bytesPerFrame;
    std::uint32_t remainder = ~m_checksum;
    for (std::uint64_t i = 0; i < bytes; ++i) {
        remainder = kRemainders[(remainder ^ data[i]) & 0xFFU] ^ (remainder >> 8U);
    }
    m_checksum = ~remainder;
    m_bytes += bytes;
}

void ChecksumSink::FinishInput() {
    KEL_LOG(LogLevel::Info, "ChecksumSink: CRC-32 " << std::hex << std::setfill('0') << std::setw(8)
                                                    << m_checksum << std::dec << " of " << m_bytes
                                                    << " bytes");
}

} // namespace kelTone
