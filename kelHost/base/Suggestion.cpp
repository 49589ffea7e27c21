#include "base/Suggestion.h"

#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return lower;
}

// Returns the number of characters to insert, remove, replace, or swap with the next one to get
// from one word to the other (optimal string alignment distance).
std::size_t EditDistance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> before; // the row before the last one
    std::vector<std::size_t> last(to.size() + 1);
    std::iota(last.begin(), last.end(), 0U);
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::vector<std::size_t> row{i};
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const bool isSame = from[i - 1] == to[j - 1];
            row.push_back(std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)}));
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

// Returns how far a name is from a word; none when it is too far.
std::optional<std::size_t> Distance(const std::string& word, const std::string& name) {
    constexpr std::size_t kMaxLength = 100; // of a name that a user types
    constexpr std::size_t kMinLength = 3;
    constexpr std::size_t kPartOfLength = 3; // one of so many characters may be wrong
    if (word.size() < kMinLength || word.size() > kMaxLength) {
        return word == name ? std::optional<std::size_t>(0) : std::nullopt;
    }
    const std::size_t place = name.find(word);
    if (place != std::string::npos) {
        return place == 0 ? 1 : 2;
    }
    const std::size_t distance = EditDistance(word, name);
    const bool isClose = distance * kPartOfLength <= std::max(word.size(), name.size());
    return isClose ? std::optional(distance) : std::nullopt;
}

} // namespace

std::optional<std::string> ClosestName(std::string_view word,
                                       const std::vector<std::string>& names) {
    std::optional<std::string> closest;
    std::size_t least = 0;
    for (const std::string& name : names) {
        const auto distance = Distance(LowerCase(word), LowerCase(name));
        if (distance.has_value() && (!closest.has_value() || *distance < least)) {
            closest = name;
            least = *distance;
        }
    }
    return closest;
}

std::string DescribeUnknown(std::string_view kind, std::string_view name,
                            const std::vector<std::string>& names) {
    const std::optional<std::string> closest = ClosestName(name, names);
    std::string message = "there is no ";
    message.append(kind).append(" \"").append(name).append("\"; ");
    return message + (closest.has_value() ? "did you mean " + *closest + "?"
                                          : "use " + ListAlternatives(names));
}

UsageError InvalidChoice(std::string_view name, std::string_view value,
                         const std::vector<std::string>& choices) {
    constexpr std::size_t kMaxListed = 12;
    const std::optional<std::string> closest = ClosestName(value, choices);
    if (!closest.has_value()) {
        return InvalidValue(name, value, ListAlternatives(choices));
    }
    return InvalidValue(
        name, value,
        (choices.size() <= kMaxListed ? ListAlternatives(choices) : "another name") +
            "; did you mean " + *closest + "?");
}

} // namespace kel::host
