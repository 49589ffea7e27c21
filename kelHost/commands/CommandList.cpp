#include "commands/Command.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// The commands, in the order of the help. Each NAME is implemented by commands/NAMECommand.cpp,
// which defines std::unique_ptr<Command> MakeNAMECommand().
#define KEL_HOST_COMMANDS(COMMAND)                                                                 \
    COMMAND(Copy)                                                                                  \
    COMMAND(Run)                                                                                   \
    COMMAND(Info)                                                                                  \
    COMMAND(Compare)                                                                               \
    COMMAND(Plot)                                                                                  \
    COMMAND(Formats)                                                                               \
    COMMAND(Inspect)                                                                               \
    COMMAND(Validate)                                                                              \
    COMMAND(Demo)

namespace kel::host {

#define KEL_HOST_DECLARE(NAME) std::unique_ptr<Command> Make##NAME##Command();
KEL_HOST_COMMANDS(KEL_HOST_DECLARE)
#undef KEL_HOST_DECLARE

Command::Command(std::string name, std::string summary)
    : m_name(std::move(name)), m_summary(std::move(summary)) {}

std::vector<std::unique_ptr<Command>> MakeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
#define KEL_HOST_ADD(NAME) commands.push_back(Make##NAME##Command());
    KEL_HOST_COMMANDS(KEL_HOST_ADD)
#undef KEL_HOST_ADD
    return commands;
}

} // namespace kel::host
