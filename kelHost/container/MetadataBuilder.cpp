#include "container/MetadataBuilder.h"

#include "container/StoredText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// Damaged files have any number of problems.
void AddOnce(std::vector<std::string>& texts, const std::string& text) {
    if (texts.size() < kMaxProblems && std::find(texts.begin(), texts.end(), text) == texts.end()) {
        texts.push_back(text);
    }
}

} // namespace

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

std::string MetadataBuilder::Keep(std::string text) {
    if (text.size() > m_textLeft) {
        AddProblem(fmt::format("there are more than {} bytes of text", kMaxTextBytes));
        text = LimitText(text, m_textLeft);
    }
    m_textLeft -= text.size();
    return text;
}

void MetadataBuilder::AddTag(const std::string& name, std::string value) {
    const auto isSame = [&](const Tag& tag) {
        return tag.name == name && tag.value == value;
    };
    auto& tags = metadata.tags;
    if (value.empty()) {
        AddOmission("empty tags");
        return;
    }
    if (tags.size() == kMaxTags) {
        AddProblem(fmt::format("there are more than {} tags", kMaxTags));
    } else if (std::none_of(tags.begin(), tags.end(), isSame)) {
        std::string keptName = Keep(name);
        std::string keptValue = Keep(std::move(value));
        if (!keptValue.empty()) {
            tags.push_back({std::move(keptName), std::move(keptValue)});
        }
    }
}

void MetadataBuilder::AddStoredTag(const std::string& name, std::string_view stored) {
    const std::size_t end = std::min(stored.find('\0'), stored.size());
    if (stored.find_first_not_of('\0', end) != std::string_view::npos) {
        AddOmission("texts after a zero byte");
    }
    AddTag(name, DecodeText(stored));
}

void MetadataBuilder::AddOther(std::string_view name, std::uint64_t bytes) {
    if (metadata.others.size() == kMaxOthers) {
        AddProblem(fmt::format("there are more than {} other parts", kMaxOthers));
        return;
    }
    metadata.others.push_back({PartName(name), bytes});
}

void MetadataBuilder::AddOmission(const std::string& kind) {
    AddOnce(metadata.omissions, kind);
}

void MetadataBuilder::AddProblem(const std::string& problem) {
    AddOnce(metadata.problems, problem);
}

void MetadataBuilder::LimitCuePoints() {
    auto& points = metadata.cuePoints;
    if (points.size() > kMaxCuePoints) {
        AddProblem(fmt::format("there are more than {} cue points", kMaxCuePoints));
        points.resize(kMaxCuePoints);
        points.shrink_to_fit();
    }
    for (CuePoint& point : points) {
        point.label = Keep(std::move(point.label));
        point.note = Keep(std::move(point.note));
    }
}

std::string PartName(std::string_view stored) {
    const std::string name = DecodeText(stored);
    return name.substr(0, name.find_last_not_of(' ') + 1);
}

} // namespace kel::host
