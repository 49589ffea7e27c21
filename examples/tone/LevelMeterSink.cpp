#include "LevelMeterSink.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <utility>

namespace kelTone {

using namespace kel;

namespace {

// Returns a level such as "-20.00", in every locale; "-inf" for silence.
std::string Decibels(double value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(2) << 20 * std::log10(value);
    return text.str();
}

} // namespace

LevelMeterSink::LevelMeterSink(std::shared_ptr<const IParametersCollectionInstance> manifest)
    : AudioSinkBase("LevelMeterSink", std::move(manifest)) {}

PCMFormat LevelMeterSink::AdaptFormat(const PCMFormat& offered) const {
    return {offered.rate, offered.channels}; // 32-bit float, little-endian
}

void LevelMeterSink::BeginInput(const PCMFormat& format) {
    m_levels.assign(format.channels, {});
    m_frames = 0;
    if (!Path().empty()) {
        m_file.open(Path());
        KEL_CHECK(m_file.is_open(), "LevelMeterSink cannot create \"" << Path() << "\"");
    }
}

void LevelMeterSink::WriteFrames(const std::uint8_t* data, std::uint32_t frames) {
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (Level& level : m_levels) {
            float value = 0;
            std::memcpy(&value, data, sizeof value); // the bytes may not be aligned
            data += sizeof value;
            level.peak = std::max(level.peak, std::abs(static_cast<double>(value)));
            level.sumOfSquares += static_cast<double>(value) * static_cast<double>(value);
        }
    }
    m_frames += frames;
}

void LevelMeterSink::FinishInput() {
    for (std::size_t i = 0; i < m_levels.size(); ++i) {
        const double rms =
            m_frames == 0 ? 0 : std::sqrt(m_levels[i].sumOfSquares / static_cast<double>(m_frames));
        const std::string text = "channel " + std::to_string(i + 1) + ": peak " +
                                 Decibels(m_levels[i].peak) + " dB, RMS " + Decibels(rms) + " dB";
        KEL_LOG(LogLevel::Info, text);
        m_file << text << "\n";
    }
    if (m_file.is_open()) {
        m_file.close();
        KEL_CHECK(m_file.good(), "LevelMeterSink cannot write \"" << Path() << "\"");
    }
}

} // namespace kelTone
