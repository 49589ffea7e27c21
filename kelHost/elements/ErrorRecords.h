/// Failures that elements log without throwing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel::host {

class HostLogger;

/// Returns the name of the context in which a file is read. Records that are logged in a
/// ContextScope of that name are about the file.
std::string ReadingContext(const std::string& file);

/// Returns the name of the context, within that of reading, in which the last frames of a file are
/// read. What fails there, after all declared frames, is no loss.
std::string EndContext(const std::string& file);

/// The error records that are logged from its creation on, while a job reads one input. Any thread.
class ErrorRecords {
public:
    /// @param log the current logger writer; outlives the object
    /// @param input the file that is read within ReadingContext
    ErrorRecords(const HostLogger& log, std::string input);

    /// Verifies that no error was logged at all.
    /// @param file the file that was worked on
    /// @param task what was done with it, see ElementError
    /// @throws JobError when one was
    void RequireNone(const std::string& file, std::string_view task) const;

    /// Verifies that no error was logged outside of reading.
    /// @param output the file that was written
    /// @throws JobError when one was
    void RequireNoneFromOutput(const std::string& output) const;

    /// Verifies that the input delivered all of its frames and that reading it logged no error,
    /// except after the last declared frame.
    /// @param declared frames that it should have delivered; missing when that is unknown
    /// @param earlyStop see SourceReader::EarlyStop; its text matters only when @p declared is
    /// missing
    /// @param allowTruncated whether fewer frames are accepted
    /// @return the warning about an accepted shortfall or an error at the end, if there is one
    /// @throws JobError when the input is short or damaged
    std::optional<std::string> VerifyDelivery(std::optional<std::int64_t> declared,
                                              std::int64_t delivered, const std::string& earlyStop,
                                              bool allowTruncated) const;

private:
    const HostLogger& m_log;
    std::string m_input;
    std::size_t m_first;
};

} // namespace kel::host
