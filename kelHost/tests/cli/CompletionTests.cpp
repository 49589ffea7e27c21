// Completion for zsh and fish, by these shells themselves. That for bash is among the tests of the
// manual page.

#include "Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// A shell that finds kelhost, in a directory with its completion.
Command Shell(const TemporaryDirectory& directory, const std::string& program,
              const std::string& file) {
    const ProcessResult script =
        RunKelhost(directory, {"completion", std::filesystem::path(program).filename()});
    EXPECT_EQ(script.status, 0) << script.err;
    std::filesystem::create_directory(directory / "completion");
    WriteFile(directory / ("completion/" + file), script.out);
    Command shell;
    shell.program = program;
    shell.directory = directory.Path();
    const char* path = std::getenv("PATH");
    shell.environment["PATH"] = std::filesystem::path(KEL_TEST_HOST).parent_path().string() + ":" +
                                (path != nullptr ? path : "");
    shell.environment["KEL_PLUGIN_PATH"] = std::nullopt;
    shell.environment["HOME"] = directory.Path();
    shell.environment["XDG_CONFIG_HOME"] = std::nullopt;
    shell.environment["XDG_DATA_HOME"] = std::nullopt;
    shell.environment["TERM"] = "xterm";
    return shell;
}

// The words that zsh offers instead of the last word of a line.
std::vector<std::string> OffersOfZsh(const TemporaryDirectory& directory, const std::string& line) {
    Command zsh = Shell(directory, "/usr/bin/zsh", "_kelhost");
    zsh.arguments = {"-f", KEL_TEST_COMPLETE_ZSH, directory / "completion", line};
    std::vector<std::string> words = LinesOf(RunCommand(zsh).out);
    // Without the words before the last one.
    const auto before = std::count(line.begin(), line.end(), ' ') - 1;
    for (auto i = before; i > 0 && !words.empty(); --i) {
        words.erase(words.begin());
    }
    std::sort(words.begin(), words.end());
    return words;
}

// The words that fish offers for the last word of a line.
std::vector<std::string> OffersOfFish(const TemporaryDirectory& directory,
                                      const std::string& line) {
    Command fish = Shell(directory, "/usr/bin/fish", "kelhost.fish");
    fish.arguments = {"--no-config", "-c", "source completion/kelhost.fish; complete -C $argv",
                      line};
    std::vector<std::string> words;
    for (const std::string& offer : LinesOf(RunCommand(fish).out)) {
        words.push_back(offer.substr(0, offer.find('\t')));
    }
    std::sort(words.begin(), words.end());
    return words;
}

struct CompletionRow {
    std::string line;
    std::vector<std::string> offers;
};

const std::vector<CompletionRow>& CompletionRows() {
    static const std::vector<CompletionRow> rows{
        {"kelhost co", {"compare", "copy"}},
        {"kelhost -q pl", {"plot"}},
        {"kelhost help va", {"validate"}},
        {"kelhost copy --skip", {"--skip-existing"}},
        {"kelhost copy --verb", {"--verbose"}},
        {"kelhost copy --encoding fl", {"float32", "float64"}},
        {"kelhost copy --format ", {"aiff", "bwave", "wave"}},
        {"kelhost info --progress=", {"--progress=auto", "--progress=json", "--progress=none"}},
        {"kelhost copy -o ta", {"takes/"}},
        {"kelhost info --field frames,dur", {"frames,duration"}},
        {"kelhost validate --check plugin.l", {"plugin.loads"}},
        {"kelhost validate --debug plugin.u", {"plugin.unloads"}},
        {"kelhost inspect kel.", {"kel.LibsndfileSink", "kel.LibsndfileSource"}},
        {"kelhost plot ta", {"take.wav", "takes/"}},
    };
    return rows;
}

void MakeCompletedFiles(const TemporaryDirectory& directory) {
    WriteFile(directory / "take.wav", "");
    std::filesystem::create_directory(directory / "takes");
}

} // namespace

TEST(CompletionForZsh, OffersCommandsOptionsAndValues) {
    for (const CompletionRow& row : CompletionRows()) {
        SCOPED_TRACE(row.line);
        const TemporaryDirectory directory;
        MakeCompletedFiles(directory);
        std::vector<std::string> offers = row.offers;
        for (std::string& offer : offers) {
            // A directory has no slash when it is one of several words.
            offer.erase(std::find(offer.begin(), offer.end(), '/'), offer.end());
        }
        EXPECT_EQ(OffersOfZsh(directory, row.line), offers);
    }
}

TEST(CompletionForFish, OffersCommandsOptionsAndValues) {
    for (const CompletionRow& row : CompletionRows()) {
        SCOPED_TRACE(row.line);
        const TemporaryDirectory directory;
        MakeCompletedFiles(directory);
        EXPECT_EQ(OffersOfFish(directory, row.line), row.offers);
    }
}

TEST(Completion, ExistsForThreeShells) {
    const TemporaryDirectory directory;
    ExpectResult(RunKelhost(directory, {"completion", "ksh"}), 2, "",
                 "kelhost: invalid value \"ksh\" for completion: expected bash, zsh or fish; did "
                 "you mean zsh?\n");
    ExpectResult(RunKelhost(directory, {"completion"}), 2, "",
                 "kelhost: invalid value \"\" for completion: expected bash, zsh or fish\n");
}

} // namespace kel::test
