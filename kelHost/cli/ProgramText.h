/// Texts about the program as a whole, for the help and the manual page.
#pragma once

#include "commands/Command.h"

#include <vector>

namespace kel::host {

inline constexpr const char* kProgram = "kelhost";

inline constexpr const char* kDescription =
    "kelhost copies, converts, measures and plots audio files.";

/// One example of each frequent task.
inline std::vector<Example> ProgramExamples() {
    return {{"kelhost copy take.flac take.wav", "Convert a recording"},
            {"kelhost copy *.flac --output-dir wave", "Convert several"},
            {"kelhost info take.wav", "Show facts about a file"},
            {"kelhost info --measure *.wav", "Measure levels and loudness"},
            {"kelhost compare take.flac take.wav", "Compare the audio of two files"},
            {"kelhost plot take.wav", "Draw the waveform"},
            {"kelhost help copy", "Show the options of a command"}};
}

/// Notes after the options, each line a paragraph: the streams and the exit status.
inline constexpr const char* kNotes =
    "Results go to standard output, everything else to standard error.\n"
    "Exit status: 0 success, 1 the job failed, 2 usage error, 130 interrupted, 143 terminated.";

} // namespace kel::host
