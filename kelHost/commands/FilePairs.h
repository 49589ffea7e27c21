/// Pairs of files in two directory trees. Used by one thread.
#pragma once

#include "base/Errors.h"
#include "base/FileTree.h"

#include <string>
#include <vector>

namespace kel::host {

/// Two files, or one that exists in one tree only.
struct FilePair {
    std::string a; ///< "" for none
    std::string b; ///< "" for none
};

/// The files of two trees.
struct PairedTrees {
    std::vector<FilePair> pairs;
    std::vector<UnusedFile> unused; ///< links and special files of both
    std::vector<JobError> failures; ///< directories that cannot be read
};

/// Pairs the files of two trees by their paths below the directories. Files that differ only in the
/// extension, such as a.flac and its copy a.wav, are a pair, too, if both have the extension of
/// audio and no other file of the trees that has no counterpart has that name. The pairs are in the
/// order of the bytes of these paths.
/// @throws UsageError when one of both is not a directory
PairedTrees PairFiles(const std::string& directoryA, const std::string& directoryB,
                      const TreeSelection& selection);

} // namespace kel::host
