/// Pipelines of any registered source and any registered sink: "source ! sink".
#pragma once

#include "base/FileName.h"
#include "container/InputPolicy.h"
#include "elements/Elements.h"
#include "elements/HostLogger.h"
#include "jobs/Job.h"

#include <string>

namespace kel::host {

/// An element of a pipeline.
struct PipelineElement {
    ElementRecipe recipe;
    FileName file; ///< value of its setting "FilePath"; empty when it has none

    /// The element as the user knows it: its file, or its own name.
    const std::string& Name() const {
        return file.path.empty() ? recipe.implementation : file.shown;
    }
};

/// A pipeline to run.
struct PipelineRequest {
    PipelineElement source;
    PipelineElement sink;
    InputPolicy input;       ///< which inputs are accepted
    bool replace = false;    ///< replace an existing file
    bool isStreamed = false; ///< the sink's file is a temporary one that the caller sends elsewhere
};

/// Runs all that the source delivers into the sink; nothing is converted. A file that the sink's
/// "FilePath" names appears under its name only when the sink has closed it without an error. Where
/// the sink's type is a container that the host knows, the file is verified like that of a copy.
/// @param log the current logger writer
/// @param reporter receives opening, progress and warnings
/// @return the document that docs/json.md describes, a report of one line, and as output the texts
/// that the sink logged about its work when it was closed
/// @throws JobError when that failed; the sink's file then is what it was before
JobResult RunPipeline(const PipelineRequest& request, const HostLogger& log, Reporter& reporter);

} // namespace kel::host
