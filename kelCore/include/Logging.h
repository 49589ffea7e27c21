/// Log records: where they go, what they carry, and how to write one.
///
/// Every record goes to the current logger writer, or to standard error when there is none. All
/// functions may be called from any thread; the writer may be exchanged while other threads log.
/// Writing a record never throws.
#pragma once

#include "Export.h"
#include "LogLevel.h"

#include <ios>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace kel {

/// Receives log records. A host implements it and installs it with SetCurrentLoggerWriter.
class KEL_CORE_EXPORT ILoggerWriter {
public:
    virtual ~ILoggerWriter();

    /// Takes one record. Called on the thread that logs, from several threads at once if several
    /// log. Every text is null-terminated and valid for the duration of the call only.
    /// An exception is caught by the caller, and the record goes to standard error instead.
    ///
    /// @param level severity
    /// @param message the record's text
    /// @param context the work that the thread is in, see ContextScope; "" outside of any
    /// @param file source file of the statement, relative to the root of its project
    /// @param line line of the statement, decimal
    /// @param reserved always ""
    /// @param threadId see GetThreadId
    /// @param time see GetCurrentTimeString
    virtual void Write(LogLevel level, const char* message, const char* context, const char* file,
                       const char* line, const char* reserved, const char* threadId,
                       const char* time) = 0;
};

/// Returns the writer that records go to; empty when none is installed. The handle keeps the writer
/// alive while it is in use, even if it is exchanged meanwhile.
KEL_CORE_EXPORT std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

/// Installs @p writer for the whole process; an empty handle sends records to standard error again.
/// The framework shares the writer until the next call and does not release it when the process
/// ends: a writer that has something to flush is taken out before.
KEL_CORE_EXPORT void SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer);

/// Returns the present time as ISO 8601 in UTC with milliseconds, "2026-11-21T09:30:00.125Z".
KEL_CORE_EXPORT std::string GetCurrentTimeString();

/// Returns the calling thread's kernel id as decimal text, the number that debuggers and process
/// listings show.
KEL_CORE_EXPORT std::string GetThreadId();

/// Returns the names of the calling thread's ContextScopes, outermost first, joined by " / "; ""
/// outside of any.
KEL_CORE_EXPORT std::string GetCurrentContextString();

/// Returns @p value in decimal.
KEL_CORE_EXPORT std::string ToString(int value);

/// Names the work that the current thread is in, for as long as it lives. Scopes nest; each is
/// destroyed on the thread that made it, the innermost first.
class KEL_CORE_EXPORT ContextScope {
public:
    /// @param name the work, for instance "copy take.wav"
    explicit ContextScope(std::string name);
    ~ContextScope();

    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

private:
    friend KEL_CORE_EXPORT std::string GetCurrentContextString();

    std::string m_name;
    ContextScope* m_outer;
};

namespace detail {

/// Writes one record to the current writer; without one, or when it throws, to standard error as
/// the level's text, a blank, the message and a newline. Never throws.
KEL_CORE_EXPORT void WriteRecord(LogLevel level, const std::string& message, const char* file,
                                 int line) noexcept;

/// Collects the text of a record or a check, piece by piece, as a stream does; numbers look the
/// same whatever locale the host has made global. Texts and integers are appended as they are; a
/// stream, which costs several times as much, is there from the first piece on that needs one. A
/// null pointer to text is no text, wherever it stands.
class KEL_CORE_EXPORT MessageText {
public:
    template <typename T>
    MessageText& operator<<(const T& piece) {
        if constexpr (kIsPlainText<T>) {
            const auto* const text = piece;
            if (text == nullptr) {
                return *this; // a stream would take it for a failure
            }
        }
        if (m_stream == nullptr) {
            if constexpr (std::is_same_v<Decayed<T>, const char*> ||
                          std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view> ||
                          std::is_same_v<T, char>) {
                m_text += piece;
                return *this;
            } else if constexpr (kIsNumber<T>) {
                m_text += std::to_string(piece);
                return *this;
            }
        }
        std::ostream& stream = Stream();
        stream << piece;
        stream.clear(); // a piece that cannot be written takes nothing else with it
        return *this;
    }

    MessageText& operator<<(std::ostream& (*manipulator)(std::ostream&));
    MessageText& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

    /// What was collected.
    std::string Text() const;

private:
    // What a piece is as a value: the pointer that an array turns into, its characters constant.
    template <typename T>
    using Decayed =
        std::conditional_t<std::is_pointer_v<std::decay_t<T>>,
                           const std::remove_pointer_t<std::decay_t<T>>*, std::decay_t<T>>;

    // Pointers that a stream follows to null-terminated text.
    template <typename T>
    static constexpr bool kIsPlainText =
        std::is_same_v<Decayed<T>, const char*> || std::is_same_v<Decayed<T>, const signed char*> ||
        std::is_same_v<Decayed<T>, const unsigned char*>;

    // Integers that a stream shows as numbers.
    template <typename T>
    static constexpr bool kIsNumber =
        std::is_same_v<T, short> || std::is_same_v<T, unsigned short> || std::is_same_v<T, int> ||
        std::is_same_v<T, unsigned> || std::is_same_v<T, long> ||
        std::is_same_v<T, unsigned long> || std::is_same_v<T, long long> ||
        std::is_same_v<T, unsigned long long>;

    std::ostream& Stream();

    std::string m_text;                           // up to the first piece that needs a stream
    std::unique_ptr<std::ostringstream> m_stream; // from there on
};

} // namespace detail
} // namespace kel

/// Writes a record at @p level (a LogLevel). @p text may be streamed: `"has " << n << " channels."`
/// Never throws. Where the text cannot be made, for want of memory for instance, the record says
/// no more than that it is lost, in words that take no memory.
// NOLINTBEGIN(bugprone-macro-parentheses): the text is streamed piece by piece
#define KEL_LOG(level, text)                                                                       \
    do {                                                                                           \
        try {                                                                                      \
            ::kel::detail::MessageText kelText_;                                                   \
            kelText_ << text;                                                                      \
            ::kel::detail::WriteRecord((level), kelText_.Text(), __FILE__, __LINE__);              \
        } catch (...) {                                                                            \
            ::kel::detail::WriteRecord((level), "(text is lost)", __FILE__, __LINE__);             \
        }                                                                                          \
    } while (false)
// NOLINTEND(bugprone-macro-parentheses)
