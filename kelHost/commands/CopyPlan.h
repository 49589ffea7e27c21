/// Copies into a directory. Used by one thread.
#pragma once

#include "audio/Formats.h"
#include "commands/CommonOptions.h"
#include "commands/InputFiles.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kel::host {

/// The inputs of copies into a directory, and the names of their outputs.
class CopyPlan {
public:
    /// @param directory not empty
    CopyPlan(InputList inputs, std::string directory, FormatChoice format)
        : m_inputs(std::move(inputs)), m_directory(std::move(directory)), m_format(format) {}

    const InputList& Inputs() const { return m_inputs; }

    /// Returns the name of an output: the kept part of the input's, with the extension of the
    /// output format. Names are made when they are needed, because a tree may have a million.
    std::string Output(std::size_t index) const;

    /// Verifies that no two inputs would be written to one output. Files in directories that are
    /// not audio do not count; they are opened in workers if that is necessary to know.
    /// @param err receives log records of the workers
    /// @throws UsageError that names both
    void RequireDistinctOutputs(const CommonOptions& common, std::ostream& err) const;

private:
    using Indexes = std::vector<std::size_t>;

    std::vector<Indexes> SharedOutputs() const;
    bool MayBeOther(std::size_t index) const;
    Indexes FindOthers(const Indexes& inputs, const CommonOptions& common, std::ostream& err) const;
    void RequireOne(const Indexes& inputs) const;

    InputList m_inputs;
    std::string m_directory;
    FormatChoice m_format;
};

} // namespace kel::host
