/// Messages of workers to the host, as bytes in a pipe. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::host {

/// A message of a worker about the job that it does.
struct WorkerMessage {
    /// The kinds, with the fields of each.
    enum class Kind : unsigned char {
        Progress, ///< frames done, frames in total, frames per second
        Spooled,  ///< bytes
        Show,     ///< the line
        Result,   ///< the members of JobResult: document, output, report
        Skipped,  ///< the same
        Error,    ///< the members of ErrorText: file, message, path
    };

    Kind kind = Kind::Progress;
    std::uint32_t job = 0;
    std::vector<std::string> fields;
    bool hasPrinted = false; ///< the host has not read all that was printed before
};

/// The bytes are not those of a message.
class InvalidMessage : public std::runtime_error {
public:
    InvalidMessage() : std::runtime_error("the bytes are not a message of a worker") {}
};

/// Returns the bytes of a message.
std::string Encode(const WorkerMessage& message);

/// Removes the first message from received bytes. Its fields are those of its kind; the fields of
/// progress are integers.
/// @return none while it is incomplete
/// @throws InvalidMessage when the bytes are something else, which a plug-in wrote
std::optional<WorkerMessage> TakeMessage(std::string& received);

} // namespace kel::host
