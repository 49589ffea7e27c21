/// Running kelhost in a directory of its own.
#pragma once

#include <Process.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

/// What to run for `kelhost ARGUMENTS...` in a directory. The plug-in is the one beside the
/// program.
inline Command Kelhost(const TemporaryDirectory& directory, std::vector<std::string> arguments) {
    Command command;
    command.program = KEL_TEST_HOST;
    command.arguments = std::move(arguments);
    command.directory = directory.Path();
    command.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    return command;
}

/// Runs `kelhost ARGUMENTS...` in a directory.
inline ProcessResult RunKelhost(const TemporaryDirectory& directory,
                                std::vector<std::string> arguments) {
    return RunCommand(Kelhost(directory, std::move(arguments)));
}

/// The path of a plug-in that was made for the tests.
inline std::string TestPlugin(const std::string& name) {
    return std::string(KEL_TEST_PLUGIN_DIRECTORY "/lib") + name + ".so";
}

/// The names in a directory, sorted.
inline std::vector<std::string> SortedNames(const TemporaryDirectory& directory) {
    std::vector<std::string> names = directory.Names();
    std::sort(names.begin(), names.end());
    return names;
}

/// Names of files, for comparing them with SortedNames.
using Names = std::vector<std::string>;

/// The bytes of a file.
inline std::string Content(const std::string& path) {
    std::ostringstream content;
    std::ifstream stream(path, std::ios::binary);
    if (stream.peek() != std::ifstream::traits_type::eof()) {
        content << stream.rdbuf();
    }
    if (stream.bad() || !stream.is_open()) {
        throw std::runtime_error("cannot read " + path);
    }
    return content.str();
}

/// A text with "XXXXXX" for the random part of every temporary name.
inline std::string WithoutRandomNames(const std::string& text) {
    static const std::regex name("\\.kelhost-[0-9]+-[0-9a-f]{8}-[A-Za-z0-9]{6}\\.part");
    return std::regex_replace(text, name, ".kelhost-XXXXXX.part");
}

/// Has a command run with the library in front that disturbs system calls, see
/// testSupport/systemFaults.cpp.
inline void DisturbSystem(Command& command) {
    const char* sanitizerOptions = std::getenv("ASAN_OPTIONS");
    command.environment["LD_PRELOAD"] = KEL_TEST_PLUGIN_DIRECTORY "/libsystemFaults.so";
    command.environment["ASAN_OPTIONS"] =
        std::string(sanitizerOptions != nullptr ? sanitizerOptions : "") +
        ":verify_asan_link_order=0";
    command.environment["KEL_TEST_FAULTY_FILE"] = ".kelhost-"; // an unfinished output
}

/// Expects an exit status and exact texts; random parts of temporary names read as XXXXXX.
inline void ExpectResult(const ProcessResult& result, int status, const std::string& out,
                         const std::string& err) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(WithoutRandomNames(result.out), out);
    EXPECT_EQ(WithoutRandomNames(result.err), err);
}

} // namespace kel::test
