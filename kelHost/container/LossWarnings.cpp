#include "container/LossWarnings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace kel::host {

void LossWarnings::Add(const std::string& reason, const std::vector<std::string>& names) {
    AddList("not preserved" + reason, names);
}

void LossWarnings::AddUnadjusted(const std::string& reason, const std::vector<std::string>& names) {
    AddList("not adjusted" + reason, names);
}

void LossWarnings::AddList(const std::string& start, const std::vector<std::string>& names) {
    constexpr std::size_t kMaxShown = 20;
    if (names.empty()) {
        return;
    }
    const std::size_t shown = std::min(names.size(), kMaxShown);
    const auto last = names.begin() + static_cast<std::ptrdiff_t>(shown);
    const std::string more =
        shown < names.size() ? fmt::format(" and {} more", names.size() - shown) : "";
    warnings.push_back(
        fmt::format("{}: {}: {}{}", m_file, start, fmt::join(names.begin(), last, ", "), more));
}

} // namespace kel::host
