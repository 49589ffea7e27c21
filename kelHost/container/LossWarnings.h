/// Warnings about metadata that a copy does not contain. One thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kel::host {

/// Collects one warning for each reason: "take.wav: not preserved in AIFF-C: lengths of regions".
class LossWarnings {
public:
    /// @param file name of the input
    explicit LossWarnings(std::string file) : m_file(std::move(file)) {}

    /// Adds a warning, unless nothing is lost. Of many names, only the first are listed.
    /// @param reason follows "not preserved"
    void Add(const std::string& reason, const std::vector<std::string>& names);

    /// Adds a warning about what is copied, but describes the whole input.
    /// @param reason follows "not adjusted"
    void AddUnadjusted(const std::string& reason, const std::vector<std::string>& names);

    std::vector<std::string> warnings;

private:
    void AddList(const std::string& start, const std::vector<std::string>& names);

    std::string m_file;
};

} // namespace kel::host
