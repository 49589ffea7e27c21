#include "transfer/Transfer.h"

#include "base/Errors.h"
#include "base/Text.h"

#include <IAudioSample.h>
#include <ISampleContainer.h>
#include <Logging.h>

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace kel::host {

namespace {

// Does something whose failure is about a file or an element.
template <typename Operation>
auto About(const std::string& name, Operation operation) {
    try {
        return operation();
    } catch (const JobError&) {
        throw;
    } catch (const std::exception& error) {
        throw JobError(fmt::format("{}: {}", Escape(name), Escape(UserMessage(error))));
    }
}

} // namespace

Transfer::Transfer(std::string input, std::string output, const HostLogger& log, Reporter& reporter)
    : m_input(std::move(input)), m_output(std::move(output)), m_log(log), m_reporter(reporter),
      m_firstError(log.CountErrors()) {}

void Transfer::CheckOpening() const {
    RequireNoErrorRecords(m_log, m_firstError, m_input);
}

std::int64_t Transfer::Run(const Stages& stages, const Amount& amount, bool overlapped) const {
    std::int64_t pushed = 0;
    Stages watched;
    watched.pull = [&] {
        return Pull(stages.pull);
    };
    watched.convert = stages.convert;
    watched.push = [&](const SampleHandle& sample) {
        stages.push(sample);
        // A failed write is told by an error record alone; what follows it would only fill a full
        // disk once more.
        CheckWriting();
        pushed += sample->GetAudioSamples(nullptr, nullptr)[0]->GetTimeLimits().duration;
        m_reporter.Progress(pushed, amount.frames, amount.rate);
    };
    return About(m_output, [&] {
        if (overlapped) {
            RunOverlapped(watched, std::thread::hardware_concurrency());
        } else {
            RunInline(watched);
        }
        return pushed;
    });
}

void Transfer::Close(SinkWriter& sink) const {
    About(m_output, [&] { sink.Close(); });
}

SampleHandle Transfer::Pull(const std::function<SampleHandle()>& pull) const {
    const ContextScope context(ReadingContext());
    return About(m_input, pull);
}

// What the records say that come up while the source is asked for samples is about the input.
std::string Transfer::ReadingContext() const {
    return "reading " + m_input;
}

void Transfer::CheckWriting() const {
    const auto errors = m_log.ErrorsSince(m_firstError, ReadingContext(), false);
    if (!errors.empty()) {
        throw JobError(fmt::format("{}: {}", Escape(m_output), Escape(errors.front())));
    }
}

// A damaged input may log an error, and deliver fewer frames: it is told as what it is.
std::optional<std::string> Transfer::CheckLength(std::int64_t promised, std::int64_t delivered,
                                                 bool allowShort) const {
    const auto errors = m_log.ErrorsSince(m_firstError, ReadingContext(), true);
    if (delivered == promised) {
        if (!errors.empty()) {
            throw JobError(fmt::format("{}: {}", Escape(m_input), Escape(errors.front())));
        }
        return std::nullopt;
    }
    const std::string reason = errors.empty() ? "" : fmt::format(" ({})", Escape(errors.front()));
    std::string text = fmt::format("{}: promises {} frames and delivers {}{}", Escape(m_input),
                                   promised, delivered, reason);
    if (!allowShort) {
        throw JobError(text + "; it is damaged or was changed while it was read (--allow-short "
                              "copies what there is)");
    }
    return text;
}

void RequireNoErrorRecords(const HostLogger& log, std::size_t first, const std::string& path) {
    // Those that follow tell of the same thing, as often as it took to stop.
    if (log.CountErrors() != first) {
        throw JobError(fmt::format("{}: {}", Escape(path), Escape(log.ErrorsSince(first).front())));
    }
}

} // namespace kel::host
