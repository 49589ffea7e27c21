// The manual page and the completion for bash. Both are compared with --help and read by groff and
// bash.

#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kel::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

// The commands that the help lists.
std::vector<std::string> CommandNames(const TemporaryDirectory& directory) {
    std::vector<std::string> names;
    bool inSection = false;
    for (const std::string& line : LinesOf(RunKelhost(directory, {"help"}).out)) {
        if (line.rfind("  ", 0) != 0) {
            inSection = line == "Commands:";
        } else if (inSection) {
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
        }
    }
    EXPECT_EQ(names.back(), "help");
    names.pop_back();
    return names;
}

// "--output-dir": every long option of a command, or without one of the program.
std::set<std::string> LongOptions(const TemporaryDirectory& directory,
                                  std::vector<std::string> arguments) {
    arguments.emplace_back("--help");
    std::set<std::string> options;
    for (const std::string& line : LinesOf(RunKelhost(directory, arguments).out)) {
        const bool isLong = line.rfind("      --", 0) == 0;
        const bool isShortAndLong = line.rfind("  -", 0) == 0;
        if (isLong || isShortAndLong) {
            const std::size_t name = line.find("--");
            options.insert(line.substr(name, line.find(' ', name) - name));
        }
    }
    return options;
}

// The page as a reader sees it, without the marks of bold and slanted text.
std::string ReadManual(const TemporaryDirectory& directory) {
    const ProcessResult manual = RunKelhost(directory, {"manual"});
    EXPECT_EQ(manual.status, 0) << manual.err;
    WriteFile(directory / "kelhost.1", manual.out);
    Command groff;
    groff.program = "/usr/bin/groff";
    groff.arguments = {"-man", "-ww", "-Tascii", "-P-cbou", "-rLL=2000n", directory / "kelhost.1"};
    const ProcessResult page = RunCommand(groff);
    EXPECT_EQ(page.status, 0);
    EXPECT_EQ(page.err, "") << "the page is not well-formed";
    return page.out;
}

// The text below a heading, up to the next one of its kind.
std::string SectionOf(const std::string& page, const std::string& heading) {
    const std::size_t begin = page.find("\n" + heading + "\n");
    if (begin == std::string::npos) {
        return "";
    }
    const std::size_t indent = heading.find_first_not_of(' ');
    std::string section;
    for (const std::string& line : LinesOf(page.substr(begin + heading.size() + 2))) {
        if (!line.empty() && line.find_first_not_of(' ') <= indent) {
            break;
        }
        section += line + "\n";
    }
    return section;
}

// "--output-dir": the long options that a part of the page explains.
std::vector<std::string> OptionsIn(const std::string& section) {
    std::vector<std::string> options;
    for (const std::string& line : LinesOf(section)) {
        const std::size_t begin = line.find_first_not_of(' ');
        const std::size_t option = line.find("--");
        if (begin == 7 && line[begin] == '-' && option != std::string::npos) {
            options.push_back(line.substr(option, line.find(' ', option) - option));
        }
    }
    return options;
}

// The words that bash offers for the last of these.
std::vector<std::string> Complete(const TemporaryDirectory& directory,
                                  const std::vector<std::string>& words) {
    const ProcessResult script = RunKelhost(directory, {"completion", "bash"});
    EXPECT_EQ(script.status, 0) << script.err;
    Command bash;
    bash.program = "/bin/bash";
    bash.directory = directory / "";
    // compopt works only in a shell that reads a line.
    bash.arguments = {"-c",
                      "compopt() { :; }; eval \"$0\"; COMP_WORDS=($KELHOST \"$@\"); COMP_CWORD=$#;"
                      "_kelhost; printf '%s\\n' \"${COMPREPLY[@]}\"",
                      script.out};
    bash.arguments.insert(bash.arguments.end(), words.begin(), words.end());
    bash.environment["KELHOST"] = KEL_TEST_HOST;
    bash.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    const ProcessResult result = RunCommand(bash);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> offers = LinesOf(result.out);
    if (offers == std::vector<std::string>{""}) {
        offers.clear();
    }
    std::sort(offers.begin(), offers.end());
    return offers;
}

} // namespace

TEST(Manual, ExplainsTheOptionsOfTheProgramAndOfEveryCommand) {
    const TemporaryDirectory directory;
    const std::string page = ReadManual(directory);
    EXPECT_THAT(OptionsIn(SectionOf(page, "OPTIONS")),
                UnorderedElementsAreArray(LongOptions(directory, {})));
    const std::vector<std::string> commands = CommandNames(directory);
    EXPECT_THAT(commands, testing::IsSupersetOf({"copy", "info", "plot"}));
    for (const std::string& command : commands) {
        SCOPED_TRACE(command);
        EXPECT_THAT(SectionOf(page, "SYNOPSIS"), HasSubstr("kelhost " + command + " [options]"));
        const std::set<std::string> options = LongOptions(directory, {command});
        EXPECT_THAT(OptionsIn(SectionOf(page, "   " + command)),
                    UnorderedElementsAreArray(options));
    }
}

TEST(Manual, ShowsExamplesChoicesAndDefaults) {
    const TemporaryDirectory directory;
    const std::string page = ReadManual(directory);
    EXPECT_THAT(page,
                HasSubstr("\n       Cut out a part:\n\n           kelhost copy take.wav part.wav "
                          "--start 0:01:00 --duration 30\n"));
    EXPECT_THAT(page, HasSubstr("Exit status: 0 success, 1 the job failed"));
    EXPECT_THAT(page, HasSubstr("\n       --on-clip ACTION\n"
                                "              Action when integers cannot hold a value: warn or "
                                "fail (default: warn).\n"));
}

TEST(Manual, IsNotListedAmongTheCommands) {
    const TemporaryDirectory directory;
    EXPECT_THAT(RunKelhost(directory, {"--help"}).out, testing::Not(HasSubstr("manual")));
    EXPECT_THAT(RunKelhost(directory, {"manua"}).err, testing::Not(HasSubstr("completion")));
}

TEST(Completion, OffersCommands) {
    const TemporaryDirectory directory;
    std::vector<std::string> commands = CommandNames(directory);
    EXPECT_THAT(Complete(directory, {"help", ""}), testing::IsSupersetOf(commands));
    commands.emplace_back("help");
    EXPECT_THAT(Complete(directory, {""}), UnorderedElementsAreArray(commands));
    EXPECT_THAT(Complete(directory, {"pl"}), ElementsAre("plot"));
    EXPECT_THAT(Complete(directory, {"--verbose", "pl"}), ElementsAre("plot"));
}

TEST(Completion, OffersTheOptionsOfACommandAndThoseOfAll) {
    const TemporaryDirectory directory;
    EXPECT_THAT(Complete(directory, {"--"}), UnorderedElementsAreArray(LongOptions(directory, {})));
    for (const std::string& command : CommandNames(directory)) {
        SCOPED_TRACE(command);
        std::set<std::string> options = LongOptions(directory, {command});
        options.merge(LongOptions(directory, {}));
        EXPECT_THAT(Complete(directory, {command, "--"}), UnorderedElementsAreArray(options));
    }
    EXPECT_THAT(Complete(directory, {"copy", "a.wav", "--out"}), ElementsAre("--output-dir"));
}

TEST(Completion, OffersTheValuesOfAnOption) {
    const TemporaryDirectory directory;
    EXPECT_THAT(Complete(directory, {"copy", "--format", ""}),
                ElementsAre("aiff", "bwave", "wave"));
    EXPECT_THAT(Complete(directory, {"copy", "--encoding", "f"}),
                ElementsAre("float32", "float64"));
    EXPECT_THAT(Complete(directory, {"copy", "--on-clip", "="}), ElementsAre("fail", "warn"));
    EXPECT_THAT(Complete(directory, {"copy", "--on-clip", "=", "w"}), ElementsAre("warn"));
    EXPECT_THAT(Complete(directory, {"info", "--field", "frames,dur"}),
                ElementsAre("frames,duration"));
    EXPECT_THAT(Complete(directory, {"validate", "--check", "plugin.l"}),
                ElementsAre("plugin.loads"));
    EXPECT_THAT(Complete(directory, {"info", "--progress", ""}),
                ElementsAre("auto", "json", "none"));
}

TEST(Completion, OffersFilesDirectoriesOrNothing) {
    const TemporaryDirectory directory;
    WriteFile(directory / "a take.wav", "");
    WriteFile(directory / "b.wav", "");
    std::filesystem::create_directory(directory / "takes");
    EXPECT_THAT(Complete(directory, {"copy", ""}), ElementsAre("a take.wav", "b.wav", "takes"));
    EXPECT_THAT(Complete(directory, {"copy", "--verify", "b"}), ElementsAre("b.wav"));
    EXPECT_THAT(Complete(directory, {"plot", "b.wav", "b"}), ElementsAre("b.wav"));
    EXPECT_THAT(Complete(directory, {"copy", "--output-dir", ""}), ElementsAre("takes"));
    EXPECT_THAT(Complete(directory, {"copy", "--start", ""}), IsEmpty());
    EXPECT_THAT(Complete(directory, {"demo", ""}), ElementsAre("takes"));
    EXPECT_THAT(Complete(directory, {"run", "FilePath", "=", "b"}), ElementsAre("b.wav"));
    EXPECT_THAT(Complete(directory, {"inspect", "kel."}),
                ElementsAre("kel.LibsndfileSink", "kel.LibsndfileSource"));
}

} // namespace kel::test
