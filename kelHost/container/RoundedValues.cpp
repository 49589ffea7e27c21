#include "container/RoundedValues.h"

#include "audio/Rounding.h"
#include "base/Errors.h"
#include "container/SndfileLibrary.h"
#include "container/SoundFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sndfile.h>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kCannotCompare = "cannot read it for a count of rounded values";

} // namespace

// Delivers blocks of frames.
class RoundedValueCounter::Reader {
public:
    Reader(const FileName& file, std::int64_t first) : m_file(file) {
        m_file.RequireRead(kCannotCompare);
        if (!m_file.IsOpen() || m_file.Info().channels < 1 ||
            (first > 0 && Sndfile().sf_seek(m_file.Handle(), first, SEEK_SET) != first)) {
            throw JobError(file.shown, fmt::format("{}: {}", kCannotCompare,
                                                   Sndfile().sf_strerror(m_file.Handle())));
        }
        constexpr std::size_t kMaxValues = 65536;
        m_block.resize(std::max(kMaxValues / Channels(), std::size_t{1}) * Channels());
    }

    std::size_t Channels() const { return static_cast<std::size_t>(m_file.Info().channels); }

    // Returns the number of frames in the block; 0 at the end.
    std::int64_t Read(std::int64_t maxFrames) {
        const auto frames = static_cast<std::int64_t>(m_block.size() / Channels());
        const std::int64_t read =
            Sndfile().sf_readf_double(m_file.Handle(), m_block.data(), std::min(frames, maxFrames));
        m_file.RequireRead(kCannotCompare);
        return read;
    }

    const std::vector<double>& Block() const { return m_block; }

private:
    SoundFile m_file;
    std::vector<double> m_block; // interleaved
};

RoundedValueCounter::RoundedValueCounter(const FileName& file, CountedValues counted)
    : m_reader(std::make_unique<Reader>(file, counted.first)), m_counted(std::move(counted)) {}

RoundedValueCounter::~RoundedValueCounter() = default;

bool RoundedValueCounter::Next() {
    const std::int64_t left = m_counted.frames.value_or(INT64_MAX) - m_frames;
    const std::int64_t frames = left > 0 ? m_reader->Read(left) : 0;
    if (frames <= 0) {
        return false;
    }
    m_frames += frames;
    const std::size_t channels = m_reader->Channels();
    const double* values = m_reader->Block().data();
    std::size_t count = static_cast<std::size_t>(frames) * channels;
    if (!m_counted.channels.empty()) {
        m_selected.clear();
        for (std::size_t frame = 0; frame < count; frame += channels) {
            for (const std::uint32_t channel : m_counted.channels) {
                m_selected.push_back(values[frame + channel]);
            }
        }
        values = m_selected.data();
        count = m_selected.size();
    }
    m_rounded += CountRounded(values, count, m_counted.integerBits);
    m_all += count;
    return true;
}

} // namespace kel::host
