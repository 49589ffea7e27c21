/// Metadata as it is collected from a file, within limits. One thread at a time.
#pragma once

#include "container/HeaderReader.h"
#include "container/Metadata.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kel::host {

/// Limits of what is kept in memory. Files have less; damaged ones may claim anything.
inline constexpr std::uint64_t kMaxPartBytes = std::uint64_t{1} << 20U;
inline constexpr std::uint64_t kMaxMetadataBytes = std::uint64_t{4} << 20U;
inline constexpr std::size_t kMaxTags = 4096;
inline constexpr std::size_t kMaxOthers = 4096;
inline constexpr std::size_t kMaxCuePoints = 8192;
inline constexpr std::size_t kMaxTextBytes = std::size_t{512} << 10U; // of all texts together
inline constexpr std::size_t kMaxProblems = 64;

/// Reads parts of a file and collects their metadata.
class MetadataBuilder {
public:
    /// @param header outlives the builder
    /// @param fileBytes length of the file
    MetadataBuilder(const HeaderReader& header, std::uint64_t fileBytes)
        : m_header(header), m_fileBytes(fileBytes) {}

    /// Returns the content of a part, or its beginning. What is missing becomes a problem.
    /// @param name of the part, for a problem
    /// @param bytes declared length
    /// @throws JobError when the file cannot be read
    std::string Read(const std::string& name, std::uint64_t offset, std::uint64_t bytes);

    /// Returns a text, or its beginning when the texts of the file have too many bytes.
    std::string Keep(std::string text);

    /// Adds a tag, unless it is there already. One without a value becomes an omission.
    void AddTag(const std::string& name, std::string value);

    /// Adds a tag with a text up to its first byte 0. Text after that becomes an omission.
    void AddStoredTag(const std::string& name, std::string_view stored);

    /// Adds a part that is neither samples nor understood.
    /// @param name as stored; spaces at its end are dropped
    void AddOther(std::string_view name, std::uint64_t bytes);

    /// Adds the kind of an item that has no place in Metadata, once.
    /// @param kind for users, in the plural: "times of comments"
    void AddOmission(const std::string& kind);

    void AddProblem(const std::string& problem);

    /// Leaves out cue points beyond the limit, and texts of cue points beyond theirs.
    void LimitCuePoints();

    /// Metadata collected so far.
    Metadata metadata;

private:
    const HeaderReader& m_header;
    std::uint64_t m_fileBytes;
    std::uint64_t m_left = kMaxMetadataBytes;
    std::size_t m_textLeft = kMaxTextBytes;
};

/// Returns the name of a part for users: without spaces at its end.
std::string PartName(std::string_view stored);

} // namespace kel::host
