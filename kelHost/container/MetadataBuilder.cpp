#include "container/MetadataBuilder.h"

#include "container/StoredText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace kel::host {

std::string MetadataBuilder::Read(const std::string& name, std::uint64_t offset,
                                  std::uint64_t bytes) {
    const std::uint64_t present = offset >= m_fileBytes ? 0 : std::min(bytes, m_fileBytes - offset);
    if (present < bytes) {
        AddProblem(fmt::format("{} declares {} bytes and has {}", name, bytes, present));
    }
    const std::uint64_t read = std::min({present, kMaxPartBytes, m_left});
    if (read < present) {
        AddProblem(fmt::format("{} has {} bytes; only the first {} are read", name, present, read));
    }
    m_left -= read;
    return m_header.Bytes(offset, static_cast<std::size_t>(read));
}

void MetadataBuilder::AddTag(const std::string& name, std::string value) {
    const auto isSame = [&](const Tag& tag) {
        return tag.name == name && tag.value == value;
    };
    auto& tags = metadata.tags;
    if (value.empty()) {
        return;
    }
    if (tags.size() == kMaxTags) {
        AddProblem(fmt::format("there are more than {} tags", kMaxTags));
    } else if (std::none_of(tags.begin(), tags.end(), isSame)) {
        tags.push_back({name, std::move(value)});
    }
}

void MetadataBuilder::AddOther(std::string_view name, std::uint64_t bytes) {
    if (metadata.others.size() == kMaxOthers) {
        AddProblem(fmt::format("there are more than {} other parts", kMaxOthers));
        return;
    }
    metadata.others.push_back({PartName(name), bytes});
}

void MetadataBuilder::AddProblem(const std::string& problem) {
    auto& problems = metadata.problems;
    if (problems.size() < kMaxProblems &&
        std::find(problems.begin(), problems.end(), problem) == problems.end()) {
        problems.push_back(problem);
    }
}

std::string PartName(std::string_view stored) {
    const std::string name = DecodeText(stored);
    return name.substr(0, name.find_last_not_of(' ') + 1);
}

} // namespace kel::host
