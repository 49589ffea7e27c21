/// Small inputs for checks of sources and sinks. Any thread.
#pragma once

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

/// Makes a container with one sample of silence.
/// @param input the description of one stream of PCM, such as those of UsualInputs
/// @param start the position of its first frame
std::shared_ptr<const ISampleContainer> MakeSilence(const IInfoContainer& input, std::int64_t start,
                                                    std::uint32_t frames);

} // namespace kel::host
