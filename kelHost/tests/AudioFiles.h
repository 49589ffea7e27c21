/// Audio files made and read with libsndfile alone.
#pragma once

#include <sndfile.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {

/// The content of an audio file.
struct Audio {
    int format = 0; ///< as libsndfile reports it
    int channels = 0;
    int rate = 0;
    std::vector<float> values; ///< interleaved
};

/// Values that differ from frame to frame and from channel to channel, within full scale, and that
/// 16 bits can hold.
inline std::vector<float> MakeValues(std::size_t count) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = static_cast<float>(static_cast<int>(i * 7919 % 65536) - 32768) / 32768.0F;
    }
    return values;
}

/// Writes an audio file.
/// @param format container and encoding as libsndfile counts them
inline void WriteAudio(const std::string& path, int format, int channels, int rate,
                       const std::vector<float>& values) {
    SF_INFO info{};
    info.format = format;
    info.channels = channels;
    info.samplerate = rate;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(values.size());
    const bool written = sf_write_float(file, values.data(), count) == count;
    if (sf_close(file) != 0 || !written) {
        throw std::runtime_error(path + " can not be written");
    }
}

/// A small 16-bit stereo WAVE file, the input of most tests.
inline void WriteTake(const std::string& path, std::size_t frames = 1000) {
    WriteAudio(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2 * frames));
}

/// Reads an audio file.
inline Audio ReadAudio(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    Audio audio{info.format, info.channels, info.samplerate, {}};
    const sf_count_t count = info.frames * info.channels;
    audio.values.resize(static_cast<std::size_t>(count));
    const bool read = sf_read_float(file, audio.values.data(), count) == count;
    sf_close(file);
    if (!read) {
        throw std::runtime_error(path + " can not be read");
    }
    return audio;
}

} // namespace kel::test
