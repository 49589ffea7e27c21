/// Outputs that are sent to standard output or a named pipe. Used by one thread.
#pragma once

#include "base/Descriptor.h"
#include "base/FileName.h"
#include "base/TemporaryFile.h"
#include "commands/Command.h"
#include "jobs/Posix.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace kel::host {

/// A temporary file that a job writes, and the stream that receives it when it is complete.
class StreamedOutput {
public:
    /// Opens the stream, if an output is one. A named pipe is open when a program reads it.
    /// @param input which must be another file
    /// @param directory of the temporary file
    /// @param limit maximum time for opening a named pipe
    /// @return null when the output is none of both
    /// @throws JobError when the stream is a terminal or cannot be opened, and when the temporary
    /// file cannot be created
    static std::unique_ptr<StreamedOutput> Open(const FileName& output, const FileName& input,
                                                const std::string& directory,
                                                std::chrono::milliseconds limit);

    /// Path of the temporary file, which the job writes, and the name of the output.
    FileName File() const { return {m_file.Path(), m_name}; }

    /// Does work that writes the temporary file, and sends the file if it succeeds. Results of the
    /// work go to standard error, after the file: no text may get into the audio. A signal ends the
    /// wait for a slow reader.
    /// @param work writes its results to the given streams, and returns whether it succeeded
    /// @return the exit status
    /// @throws JobError when it cannot be written
    /// @throws Interrupted when a signal has arrived; with SIGPIPE when the reader has gone
    int Run(const Streams& streams, const std::function<bool(const Streams&)>& work) const;

private:
    void Send(const SignalReader& signals) const;
    StreamedOutput(std::string name, Descriptor stream, const std::string& directory);

    std::string m_name;
    Descriptor m_stream;
    TemporaryFile m_file;
};

} // namespace kel::host
