#include "commands/InputOptions.h"

#include <vector>

namespace kel::host {

std::vector<Option> InputOptions(InputPolicy& policy) {
    return {Option("--allow-truncated", "", &policy.allowTruncated,
                   "Accept an input that ends early, with the frames that exist")};
}

} // namespace kel::host
