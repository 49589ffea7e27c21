#include "cli/Completion.h"

#include "base/Suggestion.h"

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

void WriteCompletion(const std::string& shell, const std::vector<Option>& common,
                     std::ostream& out) {
    if (shell == "bash") {
        WriteBashCompletion(common, out);
    } else if (shell == "zsh") {
        WriteZshCompletion(common, out);
    } else if (shell == "fish") {
        WriteFishCompletion(common, out);
    } else {
        throw InvalidChoice("completion", shell, {"bash", "zsh", "fish"});
    }
}

std::string QuoteWord(std::string_view word) {
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

} // namespace kel::host
