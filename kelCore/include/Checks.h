/// Checks: each logs one record at level Error and throws KELRuntimeError when it fails.
/// Any thread may check.
///
/// The text of a check may be streamed: `"has " << n << " channels."`. The record has the file and
/// the line of the check; the exception has only the message.
/// @ingroup checks
#pragma once

#include "Export.h"
#include "KELRuntimeError.h"
#include "Logging.h"

#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

namespace kel::detail {

/// Logs @p message at level Error and throws it as KELRuntimeError.
[[noreturn]] KEL_CORE_EXPORT void Fail(const std::string& message, const char* file, int line);

/// Whether a stream accepts a value of a type.
template <typename T, typename = void>
struct IsStreamable : std::false_type {};
template <typename T>
struct IsStreamable<
    T, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<const T&>())>>
    : std::true_type {};

/// Appends a compared value. One-byte integers, which a stream would write as characters, are
/// written in decimal like the others. So are enumerations that no stream accepts.
template <typename T>
void AppendValue(MessageText& text, const T& value) {
    if constexpr (std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char>) {
        text << static_cast<int>(value);
    } else if constexpr (std::is_enum_v<T> && !IsStreamable<T>::value) {
        text << +static_cast<std::underlying_type_t<T>>(value);
    } else {
        text << value;
    }
}

/// Returns the second bracket of the two comparing checks.
template <typename T1, typename T2>
std::string DescribeComparison(const T1& value1, const char* relation, const T2& value2) {
    MessageText text;
    text << " [ value1 (";
    AppendValue(text, value1);
    text << ") is not " << relation << " value2 (";
    AppendValue(text, value2);
    text << ") ]";
    return text.Text();
}

} // namespace kel::detail

// The texts are streamed piece by piece and cannot be put in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)

#define KEL_DETAIL_FAIL(text, suffix)                                                              \
    do {                                                                                           \
        ::kel::detail::MessageText kelText_;                                                       \
        kelText_ << "[" << text << "]" << suffix;                                                  \
        ::kel::detail::Fail(kelText_.Text(), __FILE__, __LINE__);                                  \
    } while (false)

#define KEL_DETAIL_COMPARE(value1, relation, value2, text)                                         \
    do {                                                                                           \
        const auto& kelValue1_ = (value1);                                                         \
        const auto& kelValue2_ = (value2);                                                         \
        if (!(kelValue1_ relation kelValue2_)) {                                                   \
            KEL_DETAIL_FAIL(text,                                                                  \
                            ::kel::detail::DescribeComparison(kelValue1_, #relation, kelValue2_)); \
        }                                                                                          \
    } while (false)

/// Always fails: "[text]".
#define KEL_FAIL(text) KEL_DETAIL_FAIL(text, "")

/// Fails when @p pointer, raw or shared, is empty: "[text] [ Pointer is null ]".
#define KEL_CHECK_POINTER(pointer, text)                                                           \
    do {                                                                                           \
        if ((pointer) == nullptr) {                                                                \
            KEL_DETAIL_FAIL(text, " [ Pointer is null ]");                                         \
        }                                                                                          \
    } while (false)

/// Fails when @p condition is false: "[text] [ Condition is not true ]".
#define KEL_CHECK(condition, text)                                                                 \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            KEL_DETAIL_FAIL(text, " [ Condition is not true ]");                                   \
        }                                                                                          \
    } while (false)

/// Fails when the values differ: "[text] [ value1 (3) is not == value2 (4) ]".
#define KEL_CHECK_EQUAL(value1, value2, text) KEL_DETAIL_COMPARE(value1, ==, value2, text)

/// Fails when the values are equal: "[text] [ value1 (0) is not != value2 (0) ]".
#define KEL_CHECK_NOT_EQUAL(value1, value2, text) KEL_DETAIL_COMPARE(value1, !=, value2, text)

// NOLINTEND(bugprone-macro-parentheses)
