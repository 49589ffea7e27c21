/// Audio files that tests write and read with libsndfile.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel::test {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/// The content of an audio file.
struct Audio {
    int format = 0; ///< container and encoding, as libsndfile reports them
    int channels = 0;
    int rate = 0;              ///< in hertz
    std::vector<float> values; ///< interleaved

    /// The number of frames.
    std::int64_t Frames() const {
        return channels == 0 ? 0 : static_cast<std::int64_t>(values.size()) / channels;
    }
};

/// The description of a new file.
/// @param format container and encoding, as libsndfile numbers them
/// @param rate in hertz
inline SF_INFO MakeSfInfo(int format, int channels, int rate) {
    SF_INFO info{};
    info.format = format;
    info.channels = channels;
    info.samplerate = rate;
    return info;
}

/// Opens a file.
/// @param mode SFM_READ or SFM_WRITE
inline SndfileHandle OpenAudio(const std::string& path, int mode, SF_INFO& info) {
    SndfileHandle file(sf_open(path.c_str(), mode, &info));
    if (file == nullptr) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    return file;
}

/// Finishes a file that was written.
/// @param isComplete the writing succeeded
inline void FinishAudio(const std::string& path, SndfileHandle file, bool isComplete) {
    if (sf_close(file.release()) != 0 || !isComplete) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// Writes an audio file. Values beyond full scale are clipped.
/// @tparam Value float, double or int
/// @param format container and encoding, as libsndfile numbers them
/// @param values interleaved
template <typename Value>
void WriteAudio(const std::string& path, int format, int channels, int rate,
                const std::vector<Value>& values) {
    SF_INFO info = MakeSfInfo(format, channels, rate);
    SndfileHandle file = OpenAudio(path, SFM_WRITE, info);
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(values.size());
    sf_count_t written = 0;
    if constexpr (std::is_same_v<Value, float>) {
        written = sf_write_float(file.get(), values.data(), count);
    } else if constexpr (std::is_same_v<Value, double>) {
        written = sf_write_double(file.get(), values.data(), count);
    } else {
        static_assert(std::is_same_v<Value, int>);
        written = sf_write_int(file.get(), values.data(), count);
    }
    FinishAudio(path, std::move(file), written == count);
}

/// Writes an audio file with exactly these bytes as its samples.
inline void WriteRawAudio(const std::string& path, int format, int channels, int rate,
                          const std::string& bytes) {
    SF_INFO info = MakeSfInfo(format, channels, rate);
    SndfileHandle file = OpenAudio(path, SFM_WRITE, info);
    const auto count = static_cast<sf_count_t>(bytes.size());
    const sf_count_t written = sf_write_raw(file.get(), bytes.data(), count);
    FinishAudio(path, std::move(file), written == count);
}

/// Reads a whole audio file, as floats.
inline Audio ReadAudio(const std::string& path) {
    SF_INFO info{};
    const SndfileHandle file = OpenAudio(path, SFM_READ, info);
    Audio audio{info.format, info.channels, info.samplerate, {}};
    audio.values.resize(static_cast<std::size_t>(info.frames) *
                        static_cast<std::size_t>(info.channels));
    if (sf_readf_float(file.get(), audio.values.data(), info.frames) != info.frames) {
        throw std::runtime_error("cannot read all of " + path);
    }
    return audio;
}

/// Reads the bytes of an audio file's samples.
/// @param width bytes per value
inline std::string ReadRawAudio(const std::string& path, std::size_t width) {
    SF_INFO info{};
    const SndfileHandle file = OpenAudio(path, SFM_READ, info);
    std::string bytes(static_cast<std::size_t>(info.frames * info.channels) * width, '\0');
    const auto count = static_cast<sf_count_t>(bytes.size());
    if (count != 0 && sf_read_raw(file.get(), bytes.data(), count) != count) {
        throw std::runtime_error("cannot read all of " + path);
    }
    return bytes;
}

/// The bytes of a file with a fixed text in place of each time of writing. A file of floats has
/// that time in its PEAK chunk, after the chunk's name, size and version. Where a header was
/// written to a wrong place, the chunk occurs more than once.
inline std::string WithoutTime(std::string bytes) {
    const std::string name = "PEAK";
    const std::string time = "time";
    constexpr std::size_t kDistance = 12;
    for (std::size_t peak = bytes.find(name);
         peak != std::string::npos && peak + kDistance + time.size() <= bytes.size();
         peak = bytes.find(name, peak + name.size())) {
        bytes.replace(peak + kDistance, time.size(), time);
    }
    return bytes;
}

} // namespace kel::test
