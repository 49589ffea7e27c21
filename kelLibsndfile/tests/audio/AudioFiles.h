/// Audio files written and read by libsndfile itself: the measure for what the elements do.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/// What libsndfile is told about a file to write.
inline SF_INFO MakeSfInfo(int format, int channels, int hertz) {
    SF_INFO info{};
    info.format = format;
    info.channels = channels;
    info.samplerate = hertz;
    return info;
}

inline sf_count_t WriteValues(SNDFILE* file, const std::vector<int>& values) {
    return sf_write_int(file, values.data(), static_cast<sf_count_t>(values.size()));
}

inline sf_count_t WriteValues(SNDFILE* file, const std::vector<float>& values) {
    return sf_write_float(file, values.data(), static_cast<sf_count_t>(values.size()));
}

inline sf_count_t WriteValues(SNDFILE* file, const std::vector<double>& values) {
    return sf_write_double(file, values.data(), static_cast<sf_count_t>(values.size()));
}

/// Writes a file of interleaved values.
template <typename Value>
void WriteAudioFile(const std::string& path, SF_INFO info, const std::vector<Value>& values) {
    const SndfileHandle file(sf_open(path.c_str(), SFM_WRITE, &info));
    if (file == nullptr) {
        throw std::runtime_error("cannot create " + path + ": " + sf_strerror(nullptr));
    }
    if (WriteValues(file.get(), values) != static_cast<sf_count_t>(values.size())) {
        throw std::runtime_error("cannot write " + path + ": " + sf_strerror(file.get()));
    }
}

/// What libsndfile reads from a file.
struct DecodedFile {
    SF_INFO info;
    std::vector<float> values; ///< interleaved
};

/// Reads a whole file by one call.
inline DecodedFile DecodeAudioFile(const std::string& path) {
    DecodedFile decoded{};
    const SndfileHandle file(sf_open(path.c_str(), SFM_READ, &decoded.info));
    if (file == nullptr) {
        throw std::runtime_error("cannot open " + path + ": " + sf_strerror(nullptr));
    }
    decoded.values.resize(static_cast<std::size_t>(decoded.info.frames) *
                          static_cast<std::size_t>(decoded.info.channels));
    if (sf_readf_float(file.get(), decoded.values.data(), decoded.info.frames) !=
        decoded.info.frames) {
        throw std::runtime_error("cannot read all of " + path);
    }
    return decoded;
}

/// The same bits as values of another type of the same size.
template <typename To, typename From>
std::vector<To> CopyBits(const std::vector<From>& from) {
    static_assert(sizeof(To) == sizeof(From));
    std::vector<To> to(from.size());
    if (!from.empty()) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(From));
    }
    return to;
}

/// The bit patterns of floats: NaN equals no number, but its bits equal themselves.
inline std::vector<std::uint32_t> BitsOf(const std::vector<float>& values) {
    return CopyBits<std::uint32_t>(values);
}

/// The floats of bit patterns.
inline std::vector<float> FloatsOf(const std::vector<std::uint32_t>& bits) {
    return CopyBits<float>(bits);
}

/// The bytes of a file without the time of writing: a file of floats has it in its PEAK chunk,
/// behind the chunk's name, size and version; and again where a header was written to a wrong
/// place.
inline std::string WithoutWritingTime(std::string bytes) {
    const std::string name = "PEAK";
    const std::string time = "time";
    const std::size_t distance = 12;
    for (std::size_t peak = bytes.find(name);
         peak != std::string::npos && peak + distance + time.size() <= bytes.size();
         peak = bytes.find(name, peak + name.size())) {
        bytes.replace(peak + distance, time.size(), time);
    }
    return bytes;
}

/// The same noise at every run, over all 2^32 patterns.
inline std::vector<std::uint32_t> MakeNoise(std::size_t count, std::uint32_t seed = 1) {
    std::mt19937 generator(seed);
    std::vector<std::uint32_t> noise(count);
    for (std::uint32_t& value : noise) {
        value = static_cast<std::uint32_t>(generator());
    }
    return noise;
}

} // namespace kel::test
