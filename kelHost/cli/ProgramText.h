/// Texts about the program as a whole, for the help and the manual page.
#pragma once

namespace kel::host {

inline constexpr const char* kProgram = "kelhost";

inline constexpr const char* kDescription =
    "Copies, converts, measures and plots audio files with the elements of a media-workflow "
    "framework.";

/// Notes after the options: examples, then the streams and the exit status.
inline constexpr const char* kNotes =
    "Examples:\n"
    "  kelhost copy take.flac take.wav                   convert a recording\n"
    "  kelhost copy *.flac --output-dir wave             convert several\n"
    "  kelhost info *.wav                                show facts about files\n"
    "  kelhost info --measure take.wav                   measure levels and loudness\n"
    "  kelhost compare take.flac take.wav                compare the audio of two files\n"
    "  kelhost plot take.wav                             draw the waveform\n"
    "  kelhost copy --help                               show the options of a command\n"
    "\n"
    "Results go to standard output, everything else to standard error.\n"
    "Exit status: 0 success, 1 the job failed, 2 usage error, 130 interrupted, 143 terminated.";

} // namespace kel::host
