/// Log records, their writer, and the functions that write a record.
/// Any thread may call all functions; the writer may be replaced while other threads log.
///
/// Every record goes to the current logger writer, or to standard error without one. Writing a
/// record never throws.
/// @ingroup logging
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

    /// Writes one record. Called without any lock on the thread that logs, on several threads at
    /// once if several log; it may log itself. Every text is null-terminated and valid only during
    /// the call. The caller catches an exception and writes the record to standard error instead.
    ///
    /// [any, any thread]
    /// @param level severity
    /// @param message the record's text
    /// @param context see GetCurrentContextString
    /// @param file source file of the statement, relative to the root of its project
    /// @param line line of the statement, decimal
    /// @param reserved always ""
    /// @param threadId see GetThreadId
    /// @param time see GetCurrentTimeString
    /// @throws std::exception or anything else when the record cannot be written
    virtual void Write(LogLevel level, const char* message, const char* context, const char* file,
                       const char* line, const char* reserved, const char* threadId,
                       const char* time) = 0;
};

/// Returns the writer that records go to; empty without one. The handle keeps the writer alive
/// while it is in use, even if another thread replaces it.
KEL_CORE_EXPORT std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

/// Installs @p writer for the whole process; an empty handle sends records to standard error again.
/// The framework shares the writer until the next call. It does not release it when the process
/// ends: remove a writer that has to be flushed before.
KEL_CORE_EXPORT void SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer);

/// Returns the current time as ISO 8601 in UTC with milliseconds, "2026-11-21T09:30:00.125Z".
KEL_CORE_EXPORT std::string GetCurrentTimeString();

/// Returns the kernel id of the calling thread as decimal text, as debuggers display it.
KEL_CORE_EXPORT std::string GetThreadId();

/// Returns the names of the open ContextScopes of the calling thread, outermost first, joined by
/// " / "; "" without one.
KEL_CORE_EXPORT std::string GetCurrentContextString();

/// Returns @p value in decimal.
KEL_CORE_EXPORT std::string ToString(int value);

/// Names the work of the current thread while the object exists. Scopes nest; each must be
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

/// Collects the text of a record or a check, piece by piece, as a stream does; numbers do not
/// depend on the global locale. Texts and integers are appended directly; a stream, which costs
/// several times as much, is made for the first piece that needs one. A null pointer to text adds
/// nothing.
class KEL_CORE_EXPORT MessageText {
public:
    template <typename T>
    MessageText& operator<<(const T& piece) {
        if constexpr (kIsPlainText<T>) {
            const auto* const text = piece;
            if (text == nullptr) {
                return *this; // a stream would fail
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
        stream.clear(); // a piece that cannot be written must not suppress the next ones
        return *this;
    }

    MessageText& operator<<(std::ostream& (*manipulator)(std::ostream&));
    MessageText& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

    /// Returns the collected text.
    std::string Text() const;

private:
    // The type of a piece as a value: arrays become pointers, and their characters constant.
    template <typename T>
    using Decayed =
        std::conditional_t<std::is_pointer_v<std::decay_t<T>>,
                           const std::remove_pointer_t<std::decay_t<T>>*, std::decay_t<T>>;

    // Pointers that a stream writes as null-terminated text.
    template <typename T>
    static constexpr bool kIsPlainText =
        std::is_same_v<Decayed<T>, const char*> || std::is_same_v<Decayed<T>, const signed char*> ||
        std::is_same_v<Decayed<T>, const unsigned char*>;

    // Integers that a stream writes as numbers.
    template <typename T>
    static constexpr bool kIsNumber =
        std::is_same_v<T, short> || std::is_same_v<T, unsigned short> || std::is_same_v<T, int> ||
        std::is_same_v<T, unsigned> || std::is_same_v<T, long> ||
        std::is_same_v<T, unsigned long> || std::is_same_v<T, long long> ||
        std::is_same_v<T, unsigned long long>;

    std::ostream& Stream();

    std::string m_text;                           // up to the first piece that needs a stream
    std::unique_ptr<std::ostringstream> m_stream; // from that piece on
};

} // namespace detail
} // namespace kel

/// Writes a record at @p level (a LogLevel). @p text may be streamed: `"has " << n << " channels."`
/// Never throws. If the text cannot be made, for example without memory, the record is only
/// "(text is lost)", which needs no memory.
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
