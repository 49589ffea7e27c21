/// Sources as the host uses them: created by name, opened, and released in any case.
#pragma once

#include "audio/Samples.h"
#include "base/FileName.h"
#include "base/FileState.h"
#include "base/TemporaryFile.h"
#include "container/InputHeader.h"
#include "container/InputPolicy.h"
#include "container/RepairedCopy.h"
#include "elements/Elements.h"
#include "elements/OpeningFacts.h"

#include <IAudioInfo.h>
#include <IAudioSource.h>
#include <IInfoContainer.h>
#include <TimeLimits.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The source does not know the format of a file, which has no sign of audio either: a picture or a
/// text. A damaged audio file is another error.
class UnrecognisedFile : public JobError {
public:
    using JobError::JobError;
};

/// Permission to repair files with wrong headers, and the way to do it.
struct Repair {
    bool isAllowed = false;
    StepRunner run; ///< see MakeRepairedCopy
    std::string directory = DefaultTemporaryDirectory();
};

/// An open source. MPEG streams that do not declare all of their frames are read through a copy
/// that does. Releases it at the end, unless Release was called. One thread at a time.
class SourceReader {
public:
    /// Creates the first registered source for the type of a file, and opens the file.
    /// @param blockFrames maximum number of frames in a sample; unset: 16384, fewer where many
    /// channels would make samples larger than 2 MiB, more where a long file has few channels
    /// @param repair a file that the source cannot read because of its header is read through a
    /// copy
    /// @throws JobError when the file is missing, is a directory, or cannot be opened, or when its
    /// header cannot be read; UnrecognisedFile when it is not audio
    explicit SourceReader(const FileName& file,
                          std::optional<std::uint32_t> blockFrames = std::nullopt,
                          const Repair& repair = {});

    /// Creates a source and opens it.
    /// @param shownName the file that it reads, or the source itself, as the user knows it
    /// @param file path of the file that it reads; empty for none
    /// @throws JobError when it cannot be opened, or when the header of the file cannot be read
    SourceReader(std::string shownName, const ElementRecipe& recipe, const std::string& file,
                 const Repair& repair = {});

    ~SourceReader();
    SourceReader(const SourceReader&) = delete;
    SourceReader& operator=(const SourceReader&) = delete;

    IAudioSource& Element() const { return *m_element; }

    /// Returns the next sample; empty at the end.
    /// @throws JobError when the source fails
    SampleHandle NextSample() const;

    /// The file or the source, as the user knows it.
    const std::string& ShownName() const { return m_shownName; }

    /// The file that the source reads: the input, or a copy with a right header.
    FileName File() const {
        return {m_repaired.has_value() ? m_repaired->Path() : m_path, m_shownName};
    }

    /// Size of the input in bytes before it was opened; 0 for a source without a file.
    std::uint64_t InputBytes() const { return m_state.has_value() ? m_state->Bytes() : 0; }

    /// Closes the file. Use it where a failure to close matters.
    void Release();

    /// The description of the output.
    const std::shared_ptr<const IInfoContainer>& Description() const { return m_description; }

    /// The audio info in the description.
    const std::shared_ptr<const IAudioInfo>& Info() const { return m_info; }

    /// Number of channels.
    std::uint32_t Channels() const;

    /// The channel as the source delivers it, from 0, for each channel in WAVE order; empty where
    /// both orders are the same.
    const std::vector<std::uint32_t>& ChannelOrder() const { return m_channelOrder; }

    /// Frames per second.
    std::uint32_t Rate() const;

    /// The time limits that the source declares.
    const TimeLimits& Limits() const { return m_limits; }

    /// Maximum number of frames in a sample of a file.
    std::uint32_t BlockFrames() const { return m_blockFrames; }

    /// Moves to a frame.
    /// @throws JobError when the source cannot
    void Seek(std::int64_t frame) const;

    /// Opens the same file again, from its beginning.
    /// @return null where that is of no use: for a source without a file, and for one whose samples
    /// have one frame, or any number of frames that the host cannot set
    /// @throws JobError when it cannot be opened
    std::unique_ptr<SourceReader> OpenAgain() const;

    /// Sets the maximum number of frames in the following samples of a source that OpenAgain
    /// returned.
    void SetBlockFrames(std::uint32_t frames);

    /// Number of frames that the source declares, or that were counted where it estimates; missing
    /// when it does not know it, as for a stream that was recorded without going back to its
    /// header.
    std::optional<std::int64_t> Frames() const;

    /// The header of the file; missing where the host does not know its kind.
    const std::optional<InputHeader>& Header() const { return m_header; }

    /// Verifies that the file contains what its header declares, and that the source reads that.
    /// @return warnings about repairs, and about what the policy accepts
    /// @throws JobError when the file is truncated and that is not allowed, or when its header is
    /// wrong and it was not repaired
    std::vector<std::string> CheckHeader(const InputPolicy& policy) const;

    /// Returns warnings about repairs, and about samples that cannot be read, for work that reads
    /// none.
    std::vector<std::string> DescribeHeader() const;

    /// Verifies that no other program has changed the file since it was opened, or put another one
    /// in its place.
    /// @throws JobError when one has
    void RequireUnchanged() const;

    /// Takes note that a sample has fewer frames than the source was asked for and still declares:
    /// a read failed before the last frame, not after it.
    void NoteShortSample() const { m_isShort = true; }

    /// Explains why a source that has delivered its last sample may have more, or has delivered
    /// some of it only after a failed read. One of unknown length did not read its file to the end:
    /// the sources do not report a failed read that delivers nothing.
    /// @param declared frames that it should have delivered; missing when that is unknown
    /// @return "stops at byte 8192 of 140882"; empty when there is no sign of it
    std::string EarlyStop(std::optional<std::int64_t> declared) const;

private:
    void Open();
    void OpenFile(const FileName& file, const Repair& repair);
    void OpenSource(const FileName& file, const FileState& state,
                    const std::optional<SampleLayout>& declared);
    void OpenRepaired(const FileName& file, const std::string& reason, const Repair& repair);
    void CountMPEGFrames(const FileName& file, const Repair& repair);
    std::string Misreading() const;
    std::string Loss() const;
    bool IsRepaired() const { return !m_repairReason.empty(); }
    OpeningFacts Facts(const OpenPositions& before) const;

    std::string m_shownName;
    std::optional<InputHeader> m_header;
    std::string m_path;
    std::optional<FileState> m_state; // of a file, before it was opened
    std::optional<TemporaryFile> m_repaired;
    std::string m_repairReason;            // empty: not repaired
    std::string m_countReason;             // why MPEG frames were counted; empty: they were not
    std::string m_otherFrames;             // MPEG frames that are not read, in words; empty: none
    std::optional<std::int64_t> m_counted; // frames, where the source only estimates them
    std::uint32_t m_blockFrames = 0;
    ElementRecipe m_recipe;
    std::shared_ptr<IAudioSource> m_element;
    std::shared_ptr<const IInfoContainer> m_description;
    std::shared_ptr<const IAudioInfo> m_info;
    TimeLimits m_limits;
    bool m_hasFurtherStreams = false; // which the source does not read
    std::vector<std::uint32_t> m_channelOrder;
    std::optional<OpenPositions> m_positions; // of a file
    mutable bool m_isShort = false;           // a sample was: a fact about reading
};

/// Returns the samples that a source delivers in words: "32-bit float little-endian".
std::string DescribeDelivery(const IAudioInfo& info);

/// Verifies that a written file opens with the given frames, channels and rate.
/// @throws JobError when it does not
void VerifyReopens(const FileName& file, std::int64_t frames, std::uint32_t channels,
                   std::uint32_t rate);

} // namespace kel::host
