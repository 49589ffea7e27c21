/// Moving samples from a source to a sink, with an eye on what the elements do not throw.
#pragma once

#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "jobs/WorkerPool.h"
#include "transfer/StageRunner.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kel::host {

/// How many frames are to come, and how many make a second.
struct Amount {
    std::int64_t frames = 0;
    std::uint32_t rate = 0;
};

/// The passage of samples from one source to one sink. What goes wrong is told as the input's or
/// the output's: exceptions of the stages, and records at level Error, by the place where they come
/// up. Used by one thread; the stages run on threads of their own.
class Transfer {
public:
    /// @param input what is read, as the user knows it
    /// @param output what is written, as the user knows it
    /// @param log the current logger writer; records at level Error count from here on
    /// @param reporter told of progress
    Transfer(std::string input, std::string output, const HostLogger& log, Reporter& reporter);

    /// Makes sure that no error was logged so far, which is about the input.
    /// @throws JobError with the text of the first
    void CheckOpening() const;

    /// Runs the stages to the end. A push must be of one audio sample.
    /// @param overlapped whether the stages run at the same time
    /// @return the frames that were pushed
    /// @throws JobError when a stage throws, or an error is logged in a push
    std::int64_t Run(const Stages& stages, const Amount& amount, bool overlapped) const;

    /// Closes the sink.
    /// @throws JobError when that throws
    void Close(SinkWriter& sink) const;

    /// Makes sure that no error was logged about the output.
    /// @throws JobError with the text of the first
    void CheckWriting() const;

    /// Makes sure that the input kept its promise, and that no error was logged about it.
    /// @param allowShort whether fewer frames than were promised will do
    /// @return what the user is to be warned of, if anything
    /// @throws JobError when it did not
    std::optional<std::string> CheckLength(std::int64_t promised, std::int64_t delivered,
                                           bool allowShort) const;

private:
    SampleHandle Pull(const std::function<SampleHandle()>& pull) const;
    std::string ReadingContext() const;

    std::string m_input;
    std::string m_output;
    const HostLogger& m_log;
    Reporter& m_reporter;
    std::size_t m_firstError;
};

/// Throws JobError when records at level Error were logged since @p first, with the text of the
/// first of them.
/// @param path the file that was worked on
void RequireNoErrorRecords(const HostLogger& log, std::size_t first, const std::string& path);

} // namespace kel::host
