#pragma once

#include <regex.h>

#include <stdexcept>
#include <string>

namespace kel::test {

/// A text in which each match of an extended regular expression is replaced. The C library's
/// expressions take a few milliseconds to compile; those of `<regex>` take seconds in each file
/// that uses them.
inline std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                                  const std::string& replacement) {
    regex_t expression;
    if (regcomp(&expression, pattern.c_str(), REG_EXTENDED) != 0) {
        throw std::invalid_argument(pattern + " is not an extended regular expression");
    }
    std::string result;
    const char* rest = text.c_str();
    regmatch_t match;
    while (regexec(&expression, rest, 1, &match, 0) == 0 && match.rm_eo > 0) {
        result.append(rest, static_cast<std::size_t>(match.rm_so)).append(replacement);
        rest += match.rm_eo;
    }
    regfree(&expression);
    return result + rest;
}

} // namespace kel::test
