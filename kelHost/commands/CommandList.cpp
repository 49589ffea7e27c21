#include "commands/Command.h"

#include <memory>
#include <vector>

// The commands, in the order of the help, with names and purposes. Each CLASS is implemented by
// commands/CLASSCommand.cpp, which defines std::unique_ptr<Command> MakeCLASSCommand().
#define KEL_HOST_COMMANDS(COMMAND)                                                                 \
    COMMAND(Copy, "copy", "Copy and convert audio files")                                          \
    COMMAND(Info, "info", "Show facts about audio files, or measure them")                         \
    COMMAND(Compare, "compare", "Compare the audio of two files")                                  \
    COMMAND(Plot, "plot", "Draw the waveform of an audio file")                                    \
    COMMAND(Formats, "formats", "Show which encodings each container supports")                    \
    COMMAND(Run, "run", "Run any source into any sink")                                            \
    COMMAND(Inspect, "inspect", "Show the elements of the plug-ins")                               \
    COMMAND(Validate, "validate", "Check that a plug-in meets the framework's rules")              \
    COMMAND(Demo, "demo", "Write a short tone and copy it into every format")

namespace kel::host {

#define KEL_HOST_DECLARE(CLASS, NAME, SUMMARY) std::unique_ptr<Command> Make##CLASS##Command();
KEL_HOST_COMMANDS(KEL_HOST_DECLARE)
#undef KEL_HOST_DECLARE

const std::vector<CommandEntry>& Commands() {
#define KEL_HOST_ENTRY(CLASS, NAME, SUMMARY) {NAME, SUMMARY, Make##CLASS##Command},
    static const std::vector<CommandEntry> commands{KEL_HOST_COMMANDS(KEL_HOST_ENTRY)};
#undef KEL_HOST_ENTRY
    return commands;
}

} // namespace kel::host
