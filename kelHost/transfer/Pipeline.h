/// Any registered source into any registered sink.
#pragma once

#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "jobs/WorkerPool.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace kel::host {

/// An element of a chain.
struct PipelineElement {
    ElementRecipe recipe;
    std::string file; ///< what its setting "FilePath" says; empty when it has none

    /// What the user knows it as: the file that it works on, or its own name.
    const std::string& Name() const { return file.empty() ? recipe.implementation : file; }
};

/// What to run into what, and how.
struct PipelineRequest {
    PipelineElement source;
    PipelineElement sink;
    bool allowShort = false; ///< whether a source that delivers less than it promises will do
    bool replace = false;    ///< whether a file that stands there may be replaced
};

/// What came out of it.
struct PipelineResult {
    PipelineElement source; ///< without settings
    PipelineElement sink;   ///< without settings
    std::string encoding;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;           ///< frames per second
    std::int64_t frames = 0;          ///< frames that went through
    std::vector<std::string> reports; ///< what the sink told of its work when it was closed
    std::vector<std::string> warnings;
};

void to_json(nlohmann::json& json, const PipelineResult& result);
void from_json(const nlohmann::json& json, PipelineResult& result);

/// Reads "SOURCE[:TYPE] key=value... ! SINK[:TYPE] key=value...". The type is the label of a
/// format; it is needed where the element is registered for several and the extension of its
/// "FilePath" means none of them. Values are read as the kind that the element declares.
/// @param words the parts of that
/// @throws UsageError when an element or a key is not known, a key has no value, comes twice or has
/// one that is not of its kind
PipelineRequest ParsePipeline(const std::vector<std::string>& words);

/// Runs all that the source delivers into the sink; nothing is converted. A file that the sink's
/// "FilePath" names appears under its name only when the sink has closed it without an error; where
/// the sink's type is a container that the host knows, it is checked as that of a copy is.
/// @param log the current logger writer
/// @param reporter told of opening and progress
/// @throws JobError when that failed; nothing is left under the file's name then but what stood
/// there before
PipelineResult RunPipeline(const PipelineRequest& request, const HostLogger& log,
                           Reporter& reporter);

/// The report of a run for people: one line.
std::string Describe(const PipelineResult& result);

} // namespace kel::host
