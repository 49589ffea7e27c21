/// Small inputs for checks of sources and sinks. Any thread.
#pragma once

#include <ICheckInputReport.h>
#include <IInfoContainer.h>
#include <ISampleContainer.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kel::host {

/// Writes a short recording in the container of a source's type: 16-bit stereo whose frames all
/// differ.
/// @param directory directory for the file
/// @param type the label of the type
/// @return the path of the file; none for a type whose files are not known here
/// @throws JobError when the file cannot be written
std::optional<std::string> WriteRecording(const std::string& directory, const std::string& type);

/// An input to offer to a sink.
struct OfferedInput {
    std::string name; ///< name for messages
    std::shared_ptr<const IInfoContainer> description;
};

/// Returns common inputs: PCM of every encoding, in both byte orders, with one, two and six
/// channels. The most usual ones are first.
std::vector<OfferedInput> UsualInputs();

/// Returns inputs that no sink can accept: no stream, two streams, incomplete streams.
std::vector<OfferedInput> OddInputs();

/// Returns inputs of the encodings that a sink has proposed in a report, of any codec, with two,
/// one and six channels.
/// @param report the answer to an input that is refused
std::vector<OfferedInput> ProposedInputs(const ICheckInputReport& report);

/// Returns whether silence can be made for an input: it is one complete stream of PCM.
bool IsCompletePCM(const IInfoContainer& input);

/// Returns whether samples can be made for an input: it has a stream of audio.
bool HasAudio(const IInfoContainer& input);

/// Makes a container with one sample for each stream of audio: silence for PCM, and as many zero
/// bytes as frames for a codec that is not known here. It is empty for an input without audio.
/// @param start the position of its first frame
std::shared_ptr<const ISampleContainer> MakeSamples(const IInfoContainer& input, std::int64_t start,
                                                    std::uint32_t frames);

} // namespace kel::host
