#include "commands/InputOptions.h"

#include "base/Errors.h"
#include "commands/OptionParsing.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace kel::host {

std::vector<Option> InputArguments::Options() {
    return {Option("--allow-truncated", "", &allowTruncated,
                   "Accept an input that ends early, with the frames that exist"),
            Option("--repair", "", &repair,
                   "Read an input with a wrong header through a copy in the temporary directory"),
            Option("--temp-dir", "DIRECTORY", &directory,
                   "Directory for temporary copies (default: TMPDIR, or /tmp)")
                .Completes(Option::Values::Directories),
            Option("--max-spool", "SIZE", &maxSpool,
                   "Maximum size of the temporary copy of a pipe: 500M, 16G; 0: no limit")};
}

InputPolicy InputArguments::Interpret() const {
    InputPolicy policy;
    policy.allowTruncated = allowTruncated;
    policy.repair = repair;
    policy.spool.maxBytes = ParseSizeOption("--max-spool", maxSpool);
    if (directory.has_value()) {
        policy.spool.directory = *directory;
    }
    return policy;
}

std::vector<FileName> InputNames(const std::vector<std::string>& typed) {
    std::vector<FileName> names;
    std::transform(typed.begin(), typed.end(), std::back_inserter(names), InputName);
    if (std::count_if(names.begin(), names.end(), IsStandardInput) > 1) {
        throw UsageError("standard input can be read only once; name a file instead of one \"-\"");
    }
    return names;
}

} // namespace kel::host
