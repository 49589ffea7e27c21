/// Audio files made and read with libsndfile only.
#pragma once

#include <sndfile.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <ios>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <unistd.h>
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

/// An open audio file.
class SoundFile {
public:
    SoundFile(const std::string& path, int mode, SF_INFO& info)
        : m_file(sf_open(path.c_str(), mode, &info), sf_close) {
        Require(m_file != nullptr, path + ": " + sf_strerror(nullptr));
    }

    SNDFILE* Handle() const { return m_file.get(); }

    static void Require(bool done, const std::string& error) {
        if (!done) {
            throw std::runtime_error(error);
        }
    }

private:
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> m_file;
};

/// Writes an audio file.
/// @param format container and encoding, as libsndfile numbers them
inline void WriteAudio(const std::string& path, int format, int channels, int rate,
                       const std::vector<float>& values) {
    SF_INFO info{0, rate, channels, format, 0, 0};
    const SoundFile file(path, SFM_WRITE, info);
    sf_command(file.Handle(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(values.size());
    SoundFile::Require(sf_write_float(file.Handle(), values.data(), count) == count,
                       path + " cannot be written");
}

/// Writes an audio file whose samples are these very bytes.
inline void WriteRawAudio(const std::string& path, int format, int channels, int rate,
                          const std::string& bytes) {
    SF_INFO info{0, rate, channels, format, 0, 0};
    const SoundFile file(path, SFM_WRITE, info);
    const auto count = static_cast<sf_count_t>(bytes.size());
    SoundFile::Require(sf_write_raw(file.Handle(), bytes.data(), count) == count,
                       path + " cannot be written");
}

/// The bytes of an audio file's samples, in the order of the file.
/// @param width bytes per value
inline std::string ReadRawAudio(const std::string& path, std::size_t width) {
    SF_INFO info{};
    const SoundFile file(path, SFM_READ, info);
    const auto count =
        static_cast<sf_count_t>(width) * static_cast<sf_count_t>(info.channels) * info.frames;
    std::string bytes(static_cast<std::size_t>(count), '\0');
    SoundFile::Require(sf_read_raw(file.Handle(), bytes.data(), count) == count,
                       path + " cannot be read");
    return bytes;
}

/// The bytes of numbers, in the order of memory.
template <typename Number>
std::string BytesOf(const std::vector<Number>& numbers) {
    std::string bytes(numbers.size() * sizeof(Number), '\0');
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    return bytes;
}

/// A number's lower bytes, the lowest first.
inline std::string LittleEndian(std::uint64_t number, std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes; ++i) {
        text.push_back(static_cast<char>(number));
        number >>= 8U;
    }
    return text;
}

/// A number's lower bytes, the highest first.
inline std::string BigEndian(std::uint64_t number, std::size_t bytes) {
    const std::string little = LittleEndian(number, bytes);
    return {little.rbegin(), little.rend()};
}

/// Writes an RF64 file of any size that has hardly anything on the disk but its header, and a few
/// bytes of samples. All others are 0.
/// @param width bytes per value, 1 to 4
/// @param place of the few among the bytes of the samples
inline void WriteSparseAudio(const std::string& path, std::uint64_t width, std::uint64_t channels,
                             std::uint64_t frames, std::uint64_t place, const std::string& few) {
    constexpr std::uint64_t kRate = 48000;
    const std::uint64_t frameBytes = width * channels;
    const std::uint64_t bytes = frames * frameBytes;
    const std::string format = "fmt " + LittleEndian(16, 4) + LittleEndian(1, 2) +
                               LittleEndian(channels, 2) + LittleEndian(kRate, 4) +
                               LittleEndian(kRate * frameBytes, 4) + LittleEndian(frameBytes, 2) +
                               LittleEndian(8 * width, 2);
    const std::uint64_t header = 12 + 36 + format.size() + 8;
    const std::string sizes = "ds64" + LittleEndian(28, 4) + LittleEndian(header + bytes - 8, 8) +
                              LittleEndian(bytes, 8) + LittleEndian(frames, 8) + LittleEndian(0, 4);
    std::ofstream file(path, std::ios::binary);
    file << "RF64" << LittleEndian(0xFFFFFFFF, 4) << "WAVE" << sizes << format << "data"
         << LittleEndian(0xFFFFFFFF, 4);
    file.seekp(static_cast<std::streamoff>(header + place));
    file << few << std::flush;
    if (!file || truncate(path.c_str(), static_cast<off_t>(header + bytes)) != 0) {
        throw std::runtime_error(path + " cannot be written");
    }
}

/// A small 16-bit stereo WAVE file, the input of most tests.
inline void WriteTake(const std::string& path, std::size_t frames = 1000) {
    WriteAudio(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2 * frames));
}

/// Reads an audio file.
inline Audio ReadAudio(const std::string& path) {
    SF_INFO info{};
    const SoundFile file(path, SFM_READ, info);
    Audio audio{info.format, info.channels, info.samplerate, {}};
    const sf_count_t count = info.frames * info.channels;
    audio.values.resize(static_cast<std::size_t>(count));
    SoundFile::Require(sf_read_float(file.Handle(), audio.values.data(), count) == count,
                       path + " cannot be read");
    return audio;
}

/// The bytes of a file without the time of writing, which a PEAK chunk holds after its name, size
/// and version.
inline std::string WithoutTime(std::string bytes) {
    const std::size_t peak = bytes.find("PEAK");
    return peak == std::string::npos ? bytes : bytes.replace(peak + 12, 4, 4, '\0');
}

} // namespace kel::test
