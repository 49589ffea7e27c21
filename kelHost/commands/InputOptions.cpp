#include "commands/InputOptions.h"

#include <vector>

namespace kel::host {

std::vector<Option> InputOptions(InputPolicy& policy) {
    return {Option("--allow-truncated", "", &policy.allowTruncated,
                   "Accept an input that ends early, with the frames that exist"),
            Option("--repair", "", &policy.repair,
                   "Read an input with a wrong header through a copy in the temporary directory "
                   "(TMPDIR)")};
}

} // namespace kel::host
