#include "commands/InputFiles.h"

#include "base/FileList.h"
#include "base/FileName.h"
#include "commands/InputOptions.h"
#include "elements/SourceReader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

std::vector<NamePattern> ParsePatterns(std::string_view option,
                                       const std::vector<std::string>& texts, bool ofFiles) {
    std::vector<NamePattern> patterns;
    for (const std::string& text : texts) {
        const bool isEmpty = text.find_first_not_of('/') == std::string::npos;
        if (isEmpty || (ofFiles && NamePattern(text).MatchesOnlyDirectories())) {
            throw InvalidValue(option, text,
                               ofFiles ? "a pattern of files, such as *.wav or 2024/*.wav"
                                       : "a pattern, such as *.wav, old or 2024/*.wav");
        }
        patterns.emplace_back(text);
    }
    return patterns;
}

// Offset of the last part of a path: of "takes/2024/" that of "2024/".
std::size_t LastPart(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/');
    return end == std::string::npos ? 0 : path.rfind('/', end) + 1; // 0 without a "/"
}

// Offset of a name from the current or the root directory.
std::size_t WholeName(const std::string& name) {
    std::size_t start = 0;
    while (start < name.size() && (name[start] == '/' || name.compare(start, 2, "./") == 0)) {
        ++start;
    }
    for (const auto& part : std::filesystem::path(name)) {
        if (part == "..") {
            throw UsageError(name + ": --parents cannot keep \"..\"; change to that directory");
        }
    }
    return start;
}

// Offset of the part that outputs keep of the paths of files in a directory.
std::size_t KeptOfTree(const std::string& directory) {
    if (directory.back() == '/') {
        return directory.size();
    }
    const std::size_t last = LastPart(directory);
    const std::string_view name = std::string_view(directory).substr(last);
    return name == "." || name == ".." ? directory.size() + 1 : last;
}

} // namespace

std::vector<Option> TreeArguments::Options() {
    return {
        Option("-r,--recursive", "", &recursive, "Accept directories, and use all files in them"),
        Option("--include", "PATTERN", &include,
               "Use only the files in directories whose names match: *.wav; with \"/\" the path "
               "is compared: 2024/*.wav; repeatable")
            .Needs("--recursive"),
        Option("--exclude", "PATTERN", &exclude,
               "Leave out the files and directories whose names match; repeatable")
            .Needs("--recursive"),
        Option("--follow-links", "", &followLinks, "Follow symbolic links in directories")
            .Needs("--recursive")};
}

std::vector<Option> ListArguments::Options() {
    return {Option("--files-from", "LIST", &file,
                   "Read the names of more inputs from this file, one per line; - is standard "
                   "input")
                .Completes(Option::Values::Files),
            Option("-0,--null", "", &null, "Names in the list end with NUL, as of find -print0")
                .Needs("--files-from")};
}

void ListArguments::Append(std::vector<std::string>& names) const {
    if (file.has_value()) {
        std::vector<std::string> listed =
            ReadFileList(*file, null ? NameSeparator::Null : NameSeparator::Newline);
        names.insert(names.end(), std::make_move_iterator(listed.begin()),
                     std::make_move_iterator(listed.end()));
    }
}

void ListArguments::RequireNames(const std::vector<std::string>& names) const {
    if (names.empty() && !file.has_value()) {
        throw UsageError("FILE is missing; name audio files, or use --files-from LIST");
    }
    const auto inputs = InputNames(names);
    if (file == "-" && std::any_of(inputs.begin(), inputs.end(), IsStandardInput)) {
        throw UsageError("standard input is the list; name a file instead of the input \"-\"");
    }
}

TreeSelection TreeArguments::Interpret() const {
    TreeSelection selection;
    selection.include = ParsePatterns("--include", include, true);
    selection.exclude = ParsePatterns("--exclude", exclude, false);
    selection.followLinks = followLinks;
    return selection;
}

InputList ListInputs(const std::vector<std::string>& names,
                     const std::optional<TreeSelection>& selection, bool keepsParents) {
    InputList inputs;
    for (const std::string& name : names) {
        const bool isTree = selection.has_value() && FindDirectory(name).has_value();
        const auto keptAt = static_cast<std::uint32_t>(keepsParents ? WholeName(name)
                                                       : isTree     ? KeptOfTree(name)
                                                                    : LastPart(name));
        if (!isTree) {
            inputs.files.push_back({name, keptAt, false});
            continue;
        }
        FileTree tree(*selection);
        tree.Add(name);
        for (std::string& path : tree.TakeFiles()) {
            inputs.files.push_back({std::move(path), keptAt, true});
        }
        inputs.unused.insert(inputs.unused.end(), tree.UnusedFiles().begin(),
                             tree.UnusedFiles().end());
        inputs.failures.insert(inputs.failures.end(), tree.Failures().begin(),
                               tree.Failures().end());
    }
    return inputs;
}

bool MayBeAudio(const std::string& path, Reporter& reporter) {
    reporter.Opening(path);
    try {
        const SourceReader source(path);
    } catch (const UnrecognisedFile&) {
        return false;
    } catch (const JobError&) {
        return true; // where the file is used, the failure is reported
    }
    return true;
}

} // namespace kel::host
