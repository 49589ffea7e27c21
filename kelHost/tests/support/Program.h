/// Runs kelhost in a directory of its own.
#pragma once

#include <Patterns.h>
#include <Process.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

/// The command `kelhost ARGUMENTS...` in a directory, with the plug-in beside the program.
inline Command Kelhost(const TemporaryDirectory& directory, std::vector<std::string> arguments) {
    Command command;
    command.program = KEL_TEST_HOST;
    command.arguments = std::move(arguments);
    command.directory = directory.Path();
    command.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    command.environment["COLUMNS"] = std::nullopt;
    return command;
}

/// Runs `kelhost ARGUMENTS...` in a directory.
inline ProcessResult RunKelhost(const TemporaryDirectory& directory,
                                std::vector<std::string> arguments) {
    return RunCommand(Kelhost(directory, std::move(arguments)));
}

/// A line of bash in a directory, with kelhost among the programs.
inline Command ShellLine(const TemporaryDirectory& directory, const std::string& line) {
    Command command = Kelhost(directory, {"-c", line});
    command.program = "/bin/bash";
    command.environment["PATH"] =
        std::filesystem::path(KEL_TEST_HOST).parent_path().string() + ":" + std::getenv("PATH");
    return command;
}

/// Runs a line of bash.
inline ProcessResult RunLine(const TemporaryDirectory& directory, const std::string& line) {
    return RunCommand(ShellLine(directory, line));
}

/// Arguments of a command line.
using Arguments = std::vector<std::string>;

/// Arguments and those that follow them.
inline Arguments operator+(Arguments first, const Arguments& others) {
    first.insert(first.end(), others.begin(), others.end());
    return first;
}

/// The report of a copy of stereo audio at 48 kHz; by default of WriteTake into a WAVE file.
inline std::string CopyReport(const std::string& input, const std::string& output,
                              const std::string& format = "extensible WAVE, int16 little-endian",
                              const std::string& length = "1000 frames, 0:00:00.021") {
    return input + " -> " + output + ": " + format + ", 2 channels, 48000 Hz, " + length + "\n";
}

/// An error about a file.
inline std::string Error(const std::string& file, const std::string& cause) {
    return "kelhost: " + file + ": " + cause + "\n";
}

/// Text without sound, and the error of opening it.
constexpr const char* kNoAudio = "no audio at all, but a text of some length\n";
inline std::string NoAudioError(const std::string& file) {
    return Error(file, "cannot open for reading: its format is unknown or it is damaged (--verbose "
                       "shows more)");
}

/// The path of a plug-in that was made for the tests.
inline std::string TestPlugin(const std::string& name) {
    return std::string(KEL_TEST_PLUGIN_DIRECTORY "/lib") + name + ".so";
}

/// Names of files.
using Names = std::vector<std::string>;

/// The names in a directory, sorted.
inline Names SortedNames(const std::string& directory) {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline Names SortedNames(const TemporaryDirectory& directory) {
    return SortedNames(directory.Path().string());
}

/// Lines of a text.
inline std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A text with "XXXXXX" for the random part of every temporary name.
inline std::string WithoutRandomNames(const std::string& text) {
    return ReplaceMatches(text, "\\.kelhost-[0-9]+-[0-9a-f]{8}-[A-Za-z0-9]{6}\\.part",
                          ".kelhost-XXXXXX.part");
}

/// Has a command run with the library in front that disturbs system calls, see
/// testSupport/systemFaults.cpp.
inline void DisturbSystem(Command& command) {
    const char* sanitizerOptions = std::getenv("ASAN_OPTIONS");
    command.environment["LD_PRELOAD"] = KEL_TEST_PLUGIN_DIRECTORY "/libsystemFaults.so";
    command.environment["ASAN_OPTIONS"] =
        std::string(sanitizerOptions != nullptr ? sanitizerOptions : "") +
        ":verify_asan_link_order=0";
    command.environment["KEL_TEST_FAULTY_FILE"] = "unfinished"; // an output
}

/// Expects an exit status and exact texts; random parts of temporary names read as XXXXXX.
inline void ExpectResult(const ProcessResult& result, int status, const std::string& out,
                         const std::string& err) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(WithoutRandomNames(result.out), out);
    EXPECT_EQ(WithoutRandomNames(result.err), err);
}

} // namespace kel::test
