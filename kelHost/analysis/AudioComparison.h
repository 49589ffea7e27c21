/// Comparison of the audio in two files. One thread at a time.
#pragma once

#include "audio/TimeRange.h"
#include "base/FileName.h"
#include "container/InputPolicy.h"
#include "elements/HostLogger.h"
#include "elements/SourceReader.h"
#include "jobs/Job.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Differences between the values of one channel; 1.0 is full scale.
struct ChannelDifference {
    std::uint64_t differing = 0; ///< values that differ by more than the tolerance
    std::uint64_t nonFinite = 0; ///< of them, those where a value is NaN or infinite
    double largest = 0;          ///< of all pairs of finite values, also within the tolerance
    std::int64_t largestAt = 0;  ///< frame of the largest difference, from the starts
};

/// Compares values as they come. Equal numbers are the same, and so are two NaN, and 0 and -0.
class ValueComparison {
public:
    /// @param tolerance the largest accepted difference of two finite values
    ValueComparison(std::uint32_t channels, double tolerance)
        : m_channels(channels), m_tolerance(tolerance) {}

    /// Compares the next frames.
    /// @param a interleaved values
    /// @param b as many values
    void Add(const float* a, const float* b, std::size_t frames);

    /// Frames compared so far.
    std::int64_t Frames() const { return m_frames; }

    /// The first frame with a difference beyond the tolerance, from the starts.
    const std::optional<std::int64_t>& FirstDifference() const { return m_first; }

    const std::vector<ChannelDifference>& Channels() const { return m_channels; }

private:
    bool Differs(ChannelDifference& channel, float a, float b, std::int64_t frame) const;

    std::vector<ChannelDifference> m_channels;
    double m_tolerance;
    std::int64_t m_frames = 0;
    std::optional<std::int64_t> m_first;
};

/// The two files to compare, and how.
struct ComparisonRequest {
    std::array<FileName, 2> files;
    std::array<std::optional<TimePoint>, 2> starts; ///< missing: the beginning
    std::optional<TimePoint> duration;              ///< missing: to the ends
    double tolerance = 0;    ///< the largest accepted difference; 1.0 is full scale
    InputPolicy inputPolicy; ///< which inputs are accepted
};

/// One of the two files, as it was compared.
struct ComparedFile {
    std::string file; ///< escaped
    std::string path; ///< see PathToOpen
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;             ///< frames per second
    std::int64_t start = 0;             ///< the first frame of the compared part
    std::optional<std::int64_t> frames; ///< of the part; missing when unknown and not compared
};

/// The result of a comparison.
struct Comparison {
    std::array<ComparedFile, 2> files;
    double tolerance = 0;
    bool isCompared = false;           ///< false where channels or rates differ
    std::int64_t comparedFrames = 0;   ///< that both have
    std::optional<std::int64_t> first; ///< first frame that differs, from the starts
    std::vector<ChannelDifference> channels;
    std::vector<std::string> warnings; ///< about the files, escaped

    /// True when channels, rates and numbers of frames are equal, and no value differs.
    bool IsSame() const;
};

/// Compares parts of two open sources, and reads both parts to their ends.
/// @param a at its beginning
/// @param b at its beginning
/// @param log the current logger writer
/// @param reporter receives the progress
/// @throws JobError when a part does not exist, when reading fails, or ends early
Comparison CompareSources(const SourceReader& a, const SourceReader& b,
                          const ComparisonRequest& request, const HostLogger& log,
                          Reporter& reporter);

/// Opens two files and compares them.
/// @throws JobError also when one cannot be opened, and when both are the same pipe
Comparison CompareFiles(const ComparisonRequest& request, const HostLogger& log,
                        Reporter& reporter);

void to_json(nlohmann::json& members, const Comparison& comparison);

/// Returns the comparison for people: one line, and more where there are differences.
std::string FormatComparison(const Comparison& comparison);

} // namespace kel::host
