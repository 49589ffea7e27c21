/// Inputs that can be read at any place, and more than once. One thread at a time.
#pragma once

#include "base/FileName.h"
#include "base/TemporaryFile.h"
#include "jobs/Job.h"

#include <optional>

namespace kel::host {

/// An input of a job: a file, or a temporary copy of what cannot be sought. Pipes, sockets and
/// devices are such inputs, and standard input unless it is a file at its beginning. The copy
/// exists as long as this object.
class SeekableInput {
public:
    /// Opens what cannot be sought and copies it to its end. Anything else, also what is missing,
    /// is left to the opening that follows.
    /// @param reporter knows that the input is being opened, as even looking at it may take for
    /// ever
    /// @throws JobError when the input cannot be opened or read, is empty, is a terminal, is larger
    /// than the policy allows, or its copy cannot be written
    SeekableInput(FileName input, const SpoolPolicy& policy, Reporter& reporter);

    /// Path of the file, or of the copy, and the name of the input.
    const FileName& File() const { return m_file; }

private:
    void Spool(int from, const SpoolPolicy& policy, Reporter& reporter);

    FileName m_file;
    std::optional<TemporaryFile> m_copy;
};

} // namespace kel::host
