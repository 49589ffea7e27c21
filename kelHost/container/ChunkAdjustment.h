/// Positions in the chunks of a file of which only a part is copied. One thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kel::host {

/// A part of a file.
struct FramePart {
    std::uint64_t first = 0;  ///< its first frame in the file
    std::uint64_t frames = 0; ///< number of frames
    bool isWhole = true;      ///< it is the whole file, so that no position changes
};

/// Adjusts the chunks of one file to a part of it: positions count from the first frame of the
/// part, and those outside of it are removed with what belongs to them. A point is between two
/// frames, so that one may be after the last.
///
/// Sources of the layouts: "cue ", "plst", "adtl" and "smpl" (IBM and Microsoft, "Multimedia
/// Programming Interface and Data Specifications 1.0", 1991; "New Multimedia Data Types and Data
/// Techniques", 1994), "bext" (EBU Tech 3285), "iXML" (iXML
/// Specification 2.10, with the times of the first frame in SPEED and BEXT), "cart" (AES46), "r64m"
/// (EBU Tech 3306), MARK, COMT and INST (Apple, "Audio Interchange File Format AIFF-C", 1991).
class ChunkAdjustment {
public:
    /// @param isAIFF the chunks are those of AIFF
    ChunkAdjustment(bool isAIFF, const FramePart& part) : m_isAIFF(isAIFF), m_part(part) {}

    /// True for a chunk that contains positions, or refers to points that have some.
    /// @param name with the kind of a list: "LIST adtl"
    bool Concerns(std::string_view name) const;

    /// True for a chunk that defines the points to which others refer.
    bool DefinesPoints(std::string_view name) const;

    /// Takes note of the points in a chunk for which DefinesPoints is true. All of them come before
    /// the first call of Adjust.
    /// @param content none when it cannot be read
    void AddPoints(const std::optional<std::string>& content);

    /// Returns the adjusted content of a chunk for which Concerns is true: empty when nothing is
    /// left of it, and none when it is damaged.
    std::optional<std::string> Adjust(std::string_view name, const std::string& content);

    /// The removed points and loops: "cue point", 2.
    const std::map<std::string, std::uint64_t>& Removed() const { return m_removed; }

private:
    bool Contains(std::uint64_t frame) const;
    bool ContainsPoint(std::uint64_t frame) const;
    void AddPoint(std::uint64_t number, std::uint64_t frame, bool isInside);
    bool IsRemoved(std::uint64_t number) const;
    bool AddMarkers(const std::string& content);
    bool AddCuePoints(const std::string& content);
    std::optional<std::string> AdjustBroadcast(std::string content) const;
    std::optional<std::string> AdjustIXML(const std::string& content) const;
    std::optional<std::string> AdjustCue(const std::string& content);
    std::optional<std::string> AdjustTexts(const std::string& content) const;
    std::optional<std::string> AdjustSampler(const std::string& content);
    std::optional<std::string> AdjustTimers(std::string content);
    std::optional<std::string> AdjustMarkers(const std::string& content);
    std::optional<std::string> AdjustInstrument(std::string content);
    std::optional<std::string> AdjustComments(const std::string& content) const;

    bool m_isAIFF;
    FramePart m_part;
    bool m_arePointsKnown = true;
    std::map<std::uint64_t, std::uint64_t> m_inside; // frames of points in the part, by number
    std::set<std::uint64_t> m_outside;               // numbers of other points
    std::map<std::string, std::uint64_t> m_removed;
};

/// Returns a broadcast chunk with a line added to its coding history. Without a history, or in a
/// chunk that ends before it, nothing changes.
/// @param line without its end
std::string AddToCodingHistory(std::string content, const std::string& line);

/// Returns a coding history with a line added to it; an empty one stays empty.
/// @param line without its end
std::string AppendHistoryLine(std::string history, const std::string& line);

} // namespace kel::host
