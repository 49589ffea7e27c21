#include "elements/ErrorRecords.h"

#include "base/Errors.h"
#include "base/Text.h"
#include "elements/ElementCall.h"
#include "elements/HostLogger.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

std::string ReadingContext(const std::string& file) {
    return "reading " + file;
}

std::string EndContext(const std::string& file) {
    return "the end of " + ReadingContext(file);
}

ErrorRecords::ErrorRecords(const HostLogger& log, std::string input)
    : m_log(log), m_input(std::move(input)), m_first(log.CountErrors()) {}

// The first record is reported; later ones repeat it, as often as it took to stop.
void ErrorRecords::RequireNone(const std::string& file, std::string_view task) const {
    if (m_log.CountErrors() != m_first) {
        throw ElementError(file, task, m_log.ErrorsSince(m_first).front().systemError);
    }
}

void ErrorRecords::RequireNoneFromOutput(const std::string& output) const {
    if (m_log.CountErrors() == m_first) {
        return; // the usual case, once for every sample
    }
    const auto errors = m_log.ErrorsSince(m_first, ReadingContext(m_input), false);
    if (!errors.empty()) {
        throw ElementError(output, kWriteAudio, errors.front().systemError);
    }
}

std::optional<std::string> ErrorRecords::VerifyDelivery(std::optional<std::int64_t> declared,
                                                        std::int64_t delivered,
                                                        const std::string& earlyStop,
                                                        bool allowTruncated) const {
    const auto errors = m_log.ErrorsSince(m_first, ReadingContext(m_input), true);
    const bool isComplete = declared.has_value() ? delivered == *declared : earlyStop.empty();
    if (isComplete) {
        const auto atEnd = m_log.ErrorsSince(m_first, EndContext(m_input), true);
        if (declared.has_value() && !errors.empty() && atEnd.size() == errors.size() &&
            earlyStop.empty()) {
            const std::string reason = DescribeFileError(errors.front().systemError);
            return fmt::format("{}: all declared frames were delivered, and then reading failed{}",
                               m_input, reason.empty() ? " (--verbose shows more)" : ": " + reason);
        }
        if (!errors.empty()) {
            throw ElementError(m_input, kReadAudio, errors.front().systemError);
        }
        return std::nullopt;
    }
    const std::string cause = errors.empty() ? "" : DescribeFileError(errors.front().systemError);
    const std::string shortfall =
        (declared.has_value()
             ? fmt::format("declares {} and delivers {}",
                           Count(static_cast<std::uint64_t>(*declared), "frame"), delivered)
             : fmt::format("delivers {} and {}",
                           Count(static_cast<std::uint64_t>(delivered), "frame"), earlyStop)) +
        (cause.empty() ? "" : " (" + cause + ")");
    if (!allowTruncated) {
        throw JobError(m_input, fmt::format("{}; it is damaged or was changed while it was read "
                                            "(--allow-truncated accepts the frames that exist)",
                                            shortfall));
    }
    return m_input + ": " + shortfall;
}

} // namespace kel::host
