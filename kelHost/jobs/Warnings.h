/// Warnings of a job. Used by one thread.
#pragma once

#include "jobs/Job.h"

#include <string>
#include <vector>

namespace kel::host {

/// Shows warnings as they occur, and keeps them for the document.
class Warnings {
public:
    /// @param reporter outlives the object
    explicit Warnings(Reporter& reporter) : m_reporter(reporter) {}

    /// Adds a warning, which is not escaped.
    void Add(const std::string& text);
    void Add(const std::vector<std::string>& texts);

    /// All warnings, escaped.
    const std::vector<std::string>& Texts() const { return m_texts; }

private:
    Reporter& m_reporter;
    std::vector<std::string> m_texts;
};

} // namespace kel::host
