#include "commands/CopyPlan.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "commands/JobRunner.h"
#include "container/Recognition.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

std::string CopyPlan::Output(std::size_t index) const {
    const ListedFile& input = m_inputs.files[index];
    fs::path name = fs::path(input.Kept()).lexically_normal();
    name = name.has_filename() ? name : name.parent_path(); // a "/" at the end of a name
    const Container* own = ContainerByExtension(input.path);
    if (m_format.container != nullptr) {
        if (own != m_format.container) {
            name.replace_extension(m_format.container->extensions.front());
        }
    } else if (own == nullptr) {
        name.replace_extension(FindContainer(WrapperFormat::WAVE)->extensions.front());
    }
    return (fs::path(m_directory) / name).string();
}

void CopyPlan::RequireDistinctOutputs(const CommonOptions& common, std::ostream& err) const {
    const std::vector<Indexes> shared = SharedOutputs();
    Indexes doubtful;
    for (const Indexes& inputs : shared) {
        Indexes certain;
        for (const std::size_t input : inputs) {
            (MayBeOther(input) ? doubtful : certain).push_back(input);
        }
        RequireOne(certain);
    }
    const Indexes others = FindOthers(doubtful, common, err);
    for (Indexes inputs : shared) {
        const auto isOther = [&](std::size_t input) {
            return std::binary_search(others.begin(), others.end(), input);
        };
        inputs.erase(std::remove_if(inputs.begin(), inputs.end(), isOther), inputs.end());
        RequireOne(inputs);
    }
}

// Returns the inputs of each output that several have, both in their order.
std::vector<CopyPlan::Indexes> CopyPlan::SharedOutputs() const {
    // Hashes instead of names need a tenth of the memory.
    std::vector<std::pair<std::size_t, std::uint32_t>> hashes;
    hashes.reserve(m_inputs.files.size());
    for (std::size_t i = 0; i < m_inputs.files.size(); ++i) {
        hashes.emplace_back(std::hash<std::string>()(Output(i)), static_cast<std::uint32_t>(i));
    }
    std::sort(hashes.begin(), hashes.end());
    std::map<std::string, Indexes> outputs;
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        const bool isSame = (i > 0 && hashes[i - 1].first == hashes[i].first) ||
                            (i + 1 < hashes.size() && hashes[i + 1].first == hashes[i].first);
        if (isSame) {
            outputs[Output(hashes[i].second)].push_back(hashes[i].second);
        }
    }
    std::vector<Indexes> shared;
    for (auto& [output, inputs] : outputs) {
        if (inputs.size() > 1) {
            shared.push_back(std::move(inputs));
        }
    }
    std::sort(shared.begin(), shared.end());
    return shared;
}

// Returns true when an input may be a file that is not audio and has no copy.
bool CopyPlan::MayBeOther(std::size_t index) const {
    const ListedFile& input = m_inputs.files[index];
    return input.isFound && !HasAudioExtension(input.path);
}

// Returns those of the inputs that are not audio, in their order.
CopyPlan::Indexes CopyPlan::FindOthers(const Indexes& inputs, const CommonOptions& common,
                                       std::ostream& err) const {
    CommonOptions quiet = common;
    quiet.style.quiet = true;
    JobRunner runner(quiet, err);
    for (const std::size_t input : inputs) {
        const std::string& path = m_inputs.files[input].path;
        runner.Add(path, "", [input, &path](const HostLogger&, Reporter& reporter) {
            JobResult result;
            result.document = DumpJSON({{"input", input}, {"audio", MayBeAudio(path, reporter)}});
            return result;
        });
    }
    runner.Run([](const JobResult&) {});
    Indexes others;
    for (const nlohmann::json& result : runner.Results()) {
        if (!result.at("audio").get<bool>()) {
            others.push_back(result.at("input").get<std::size_t>());
        }
    }
    std::sort(others.begin(), others.end());
    return others;
}

void CopyPlan::RequireOne(const Indexes& inputs) const {
    if (inputs.size() < 2) {
        return;
    }
    const ListedFile& first = m_inputs.files[inputs[0]];
    const ListedFile& second = m_inputs.files[inputs[1]];
    throw UsageError(fmt::format(
        "{} and {} would both be written to {}{}", first.path, second.path, Output(inputs[0]),
        first.isFound || second.isFound ? "; leave one out with --exclude" : ""));
}

} // namespace kel::host
