#include "commands/FilePairs.h"

#include "container/Recognition.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

// One of both trees.
struct Side {
    std::size_t below = 0; // offset in its paths, after the directory
    std::vector<std::string> files;

    std::string_view Below(const std::string& path) const {
        return std::string_view(path).substr(below);
    }
};

Side ReadSide(const std::string& directory, const TreeSelection& selection, PairedTrees& result) {
    if (!FindDirectory(directory).has_value()) {
        throw UsageError(directory + ": is not a directory; compare files without --recursive");
    }
    FileTree tree(selection);
    tree.Add(directory);
    result.unused.insert(result.unused.end(), tree.UnusedFiles().begin(), tree.UnusedFiles().end());
    result.failures.insert(result.failures.end(), tree.Failures().begin(), tree.Failures().end());
    return {directory.size() + (directory.back() == '/' ? 0 : 1), tree.TakeFiles()};
}

// Pairs files with the same path. Both lists are in the order of these.
std::vector<FilePair> PairByPath(Side& a, Side& b) {
    std::vector<FilePair> pairs;
    auto nextA = a.files.begin();
    auto nextB = b.files.begin();
    while (nextA != a.files.end() || nextB != b.files.end()) {
        const int order = nextA == a.files.end()   ? 1
                          : nextB == b.files.end() ? -1
                                                   : a.Below(*nextA).compare(b.Below(*nextB));
        FilePair& pair = pairs.emplace_back();
        if (order <= 0) {
            pair.a = std::move(*nextA++);
        }
        if (order >= 0) {
            pair.b = std::move(*nextB++);
        }
    }
    return pairs;
}

// Indexes of the files without a counterpart that have one name but for the extension.
using Unpaired = std::map<std::string_view, std::array<std::vector<std::size_t>, 2>>;

Unpaired FindUnpaired(const std::vector<FilePair>& pairs, const Side& a, const Side& b) {
    Unpaired unpaired;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const bool isA = pairs[i].b.empty();
        const std::string& path = isA ? pairs[i].a : pairs[i].b;
        if ((isA || pairs[i].a.empty()) && HasAudioExtension(path)) {
            const std::string_view name = (isA ? a : b).Below(path);
            unpaired[name.substr(0, name.rfind('.'))][isA ? 0 : 1].push_back(i);
        }
    }
    return unpaired;
}

} // namespace

PairedTrees PairFiles(const std::string& directoryA, const std::string& directoryB,
                      const TreeSelection& selection) {
    PairedTrees result;
    Side a = ReadSide(directoryA, selection, result);
    Side b = ReadSide(directoryB, selection, result);
    std::vector<FilePair>& pairs = result.pairs;
    pairs = PairByPath(a, b);
    std::vector<bool> isMoved(pairs.size());
    std::vector<std::pair<std::size_t, std::size_t>> partners;
    for (const auto& [name, indexes] : FindUnpaired(pairs, a, b)) {
        if (indexes[0].size() == 1 && indexes[1].size() == 1) {
            partners.emplace_back(indexes[0].front(), indexes[1].front());
        }
    }
    for (const auto& [indexA, indexB] : partners) {
        pairs[indexA].b = std::move(pairs[indexB].b);
        isMoved[indexB] = true;
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (!isMoved[i] && kept++ != i) {
            pairs[kept - 1] = std::move(pairs[i]);
        }
    }
    pairs.resize(kept);
    return result;
}

} // namespace kel::host
