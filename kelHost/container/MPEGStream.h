/// MPEG audio of the layers I, II and III ("MP3"): its frames, counted. One thread at a time for
/// one file.
///
/// Sources of the layouts: ISO/IEC 11172-3, 2.4.1.3 (header) and ISO/IEC 13818-3, 2.4 (lower
/// rates); the frame "Xing" or "Info": Gabriel Bouvigne, "MP3 Info Tag revision 1 Specifications";
/// the frame "VBRI" and its place: Konrad Windszus, "MPEG Audio Frame Header".
#pragma once

#include "base/FileName.h"
#include "container/InputHeader.h"
#include "container/StepRunner.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// The frames of a file. Those that describe the file instead of sound are not counted.
struct MPEGStream {
    std::uint32_t firstHeader = 0;         ///< the header of its first frame
    std::uint64_t firstBytes = 0;          ///< length of its first frame
    std::uint32_t samplesPerFrame = 0;     ///< of each channel
    bool canDeclareFrames = true;          ///< layer III, with a bit rate in each frame
    std::uint64_t frames = 0;              ///< complete ones
    std::optional<std::uint64_t> declared; ///< frames, according to a frame "Xing" or "Info"
    std::vector<SamplePart> parts;  ///< the frames; those that follow each other are one part
    std::uint64_t skippedBytes = 0; ///< after the first frame, neither frames nor tags
    std::uint64_t otherFrames = 0;  ///< in these bytes: of another layer, rate or mono
    bool endsInFrame = false;       ///< the last frame is incomplete

    /// Number of samples of each channel that a decoder makes of all frames. Of a file that
    /// declares its number of frames, it may omit the first 529: its own delay.
    std::int64_t Samples() const { return static_cast<std::int64_t>(frames * samplesPerFrame); }

    /// Returns true when a decoder that believes the file does not deliver all samples: its length
    /// is not declared, or less than the file has. A library estimates a length that is missing.
    /// @param delivered samples that the decoder declares
    bool IsLongerThan(std::int64_t delivered) const;

    /// The reason, in words: "does not declare its length: 10 MPEG frames were counted".
    std::string Describe() const;

    /// True when the file has nothing but frames from the first to the last one, and tags.
    bool IsContinuous() const { return parts.size() < 2 && skippedBytes == 0 && !endsInFrame; }

    /// Explains what a decoder does not read: "20 of its 50 MPEG frames have another layer, rate or
    /// number of channels than the first"; empty for nothing.
    std::string DescribeOther() const;

    /// Bytes that have to follow the frames, so that a decoder that estimates their number by the
    /// length of the file and of the first frame finds no less than there are.
    std::uint64_t MissingBytes() const;

    /// Returns a frame of silence that declares the number of frames. Only where they can be
    /// declared.
    std::string MakeInfoFrame() const;
};

/// Walks over the frames of a file.
/// @param run runs the steps of the walk, each over at most 16 MiB; empty: they are run here
/// @return none for other files, and for pipes
/// @throws JobError when the file cannot be read
/// @throws std::runtime_error when more than 65536 gaps are between the frames
std::optional<MPEGStream> ReadMPEGStream(const FileName& file, const StepRunner& run);

} // namespace kel::host
