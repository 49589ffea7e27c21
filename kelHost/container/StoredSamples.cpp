#include "container/StoredSamples.h"

#include "base/Errors.h"
#include "container/SndfileLibrary.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <vector>

namespace kel::host {

namespace {

constexpr sf_count_t kValuesAtOnce = 65536;

// Bits of the encodings that restore integers.
const std::map<int, unsigned>& IntegerBits() {
    static const std::map<int, unsigned> bits{
        {SF_FORMAT_PCM_S8, 8},   {SF_FORMAT_PCM_U8, 8},   {SF_FORMAT_PCM_16, 16},
        {SF_FORMAT_PCM_24, 24},  {SF_FORMAT_PCM_32, 32},  {SF_FORMAT_DWVW_12, 12},
        {SF_FORMAT_DWVW_16, 16}, {SF_FORMAT_DWVW_24, 24}, {SF_FORMAT_DPCM_8, 8},
        {SF_FORMAT_DPCM_16, 16}, {SF_FORMAT_ALAC_16, 16}, {SF_FORMAT_ALAC_20, 20},
        {SF_FORMAT_ALAC_24, 24}, {SF_FORMAT_ALAC_32, 32}};
    return bits;
}

// Appends the lower bytes of a number, the lowest first.
template <typename Number>
void Append(std::vector<unsigned char>& bytes, Number number, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(static_cast<unsigned char>(number >> (8 * i)));
    }
}

void AppendValue(std::vector<unsigned char>& bytes, float value) {
    std::uint32_t number = 0;
    std::memcpy(&number, &value, sizeof(number));
    Append(bytes, number, sizeof(number));
}

void AppendValue(std::vector<unsigned char>& bytes, double value) {
    std::uint64_t number = 0;
    std::memcpy(&number, &value, sizeof(number));
    Append(bytes, number, sizeof(number));
}

// Returns the values of the next frames.
template <typename Value>
std::vector<Value> ReadValues(const SoundFile& file,
                              sf_count_t (*read)(SNDFILE*, Value*, sf_count_t),
                              std::int64_t& framesRead) {
    const sf_count_t channels = file.Info().channels;
    const sf_count_t frames = std::max<sf_count_t>(kValuesAtOnce / channels, 1);
    std::vector<Value> values(static_cast<std::size_t>(frames * channels));
    const sf_count_t done = read(file.Handle(), values.data(), frames);
    values.resize(static_cast<std::size_t>(std::max<sf_count_t>(done, 0) * channels));
    framesRead += std::max<sf_count_t>(done, 0);
    return values;
}

} // namespace

StoredSamples::StoredSamples(const FileName& file) : m_file(file) {
    if (!m_file.IsOpen()) {
        m_file.RequireRead("cannot open for reading");
        throw JobError(file.shown, "cannot read its samples as stored: libsndfile does not know "
                                   "its format");
    }
    m_encoding = m_file.Info().format & SF_FORMAT_SUBMASK;
}

std::uint32_t StoredSamples::Channels() const {
    return static_cast<std::uint32_t>(m_file.Info().channels);
}

std::uint32_t StoredSamples::Rate() const {
    return static_cast<std::uint32_t>(m_file.Info().samplerate);
}

std::optional<std::int64_t> StoredSamples::Frames() const {
    const sf_count_t frames = m_file.Info().frames;
    return frames == std::numeric_limits<sf_count_t>::max() ? std::nullopt
                                                            : std::optional<std::int64_t>(frames);
}

const std::vector<unsigned char>& StoredSamples::Read() {
    m_bytes.clear();
    if (IntegerBits().count(m_encoding) != 0) {
        ReadIntegers();
    } else if (m_encoding == SF_FORMAT_DOUBLE) {
        ReadWith<double>(Sndfile().sf_readf_double);
    } else {
        ReadWith<float>(Sndfile().sf_readf_float);
    }
    constexpr const char* kReadFailure = "cannot read the file";
    m_file.RequireRead(kReadFailure);
    if (!Frames().has_value()) {
        m_file.RequireUndamaged(kReadFailure);
    }
    return m_bytes;
}

template <typename Value>
void StoredSamples::ReadWith(sf_count_t (*read)(SNDFILE*, Value*, sf_count_t)) {
    for (const Value value : ReadValues(m_file, read, m_framesRead)) {
        AppendValue(m_bytes, value);
    }
}

// libsndfile delivers integers in the upper bits.
void StoredSamples::ReadIntegers() {
    constexpr unsigned kBits = 32;
    constexpr std::uint32_t kUnsignedOffset = 0x80;
    const unsigned bits = IntegerBits().at(m_encoding);
    const std::size_t bytes = (bits + 7) / 8;
    const std::uint32_t offset = m_encoding == SF_FORMAT_PCM_U8 ? kUnsignedOffset : 0;
    for (const int value : ReadValues(m_file, Sndfile().sf_readf_int, m_framesRead)) {
        const auto number = static_cast<std::uint32_t>(value >> (kBits - bits));
        Append(m_bytes, number ^ offset, bytes);
    }
}

} // namespace kel::host
