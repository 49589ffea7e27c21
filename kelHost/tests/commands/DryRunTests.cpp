// Copies that are only planned.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

using nlohmann::json;

std::string Planned(const std::string& input, const std::string& output) {
    return input + " -> " + output +
           ": extensible WAVE, int16 little-endian, 2 channels, 48000 Hz, 1000 frames, "
           "0:00:00.021, not written (--dry-run)\n";
}

} // namespace

TEST(DryRun, ShowsWhatWouldBeDoneAndWritesNothing) {
    const TemporaryDirectory directory;
    for (const char* name : {"a.flac", "b.wav", "c.wav"}) {
        WriteTake(directory / name);
    }
    fs::create_directory(directory / "out");
    WriteTake(directory / "out/c.wav");
    const Arguments arguments{"copy", "a.flac", "b.wav",        "c.wav",
                              "-n",   "d.wav",  "--output-dir", "out"};
    const std::string missing =
        Error("d.wav", "cannot open for reading: No such file or directory");
    const std::string planned = Planned("a.flac", "out/a.wav") + Planned("b.wav", "out/b.wav");
    ExpectResult(RunKelhost(directory, arguments), 1,
                 planned + "4 files: 2 would be copied, 2 failed\n",
                 Error("out/c.wav", "exists already; use --force to replace it") + missing);
    ExpectResult(RunKelhost(directory, arguments + Arguments{"--skip-existing"}), 1,
                 planned + "c.wav -> out/c.wav: exists already, skipped\n"
                           "4 files: 2 would be copied, 1 skipped, 1 failed\n",
                 missing);
    EXPECT_EQ(SortedNames(directory / "out"), Names{"c.wav"});
    const ProcessResult result =
        RunKelhost(directory, {"copy", "a.flac", "new.wav", "--dry-run", "--json"});
    EXPECT_EQ(result.status, 0);
    ExpectDocuments({"kelhost.copy"}, result.out);
    const auto document = json::parse(result.out);
    EXPECT_EQ(document["results"], json::array());
    EXPECT_EQ(document["planned"], (json{{{"input", "a.flac"},
                                          {"input_path", "a.flac"},
                                          {"output", "new.wav"},
                                          {"output_path", "new.wav"},
                                          {"container", "extensible WAVE"},
                                          {"encoding", "int16"},
                                          {"byte_order", "little-endian"},
                                          {"channels", 2},
                                          {"rate", 48000},
                                          {"frames", 1000}}}));
    ExpectResult(RunKelhost(directory, {"copy", "-rn", ".", "--output-dir", "new"}), 0,
                 Planned("./a.flac", "new/a.wav") + Planned("./b.wav", "new/b.wav") +
                     Planned("./c.wav", "new/c.wav") + Planned("./out/c.wav", "new/out/c.wav") +
                     "4 files: 4 would be copied, 0 skipped, 0 failed\n",
                 "");
    EXPECT_EQ(SortedNames(directory), (Names{"a.flac", "b.wav", "c.wav", "out"}));
}

TEST(DryRun, RefusesOutputsThatCannotBeCreated) {
    const TemporaryDirectory directory;
    WriteTake(directory / "a.wav");
    WriteFile(directory / "file", "");
    fs::create_directory(directory / "locked");
    fs::permissions(directory / "locked", fs::perms(0555));
    struct Row {
        Arguments output;
        std::string error;
    };
    for (const Row& row :
         {Row{{"missing/b.wav"},
              "missing/b.wav: cannot create the file: No such file or directory"},
          Row{{"file/b.wav"}, "file/b.wav: cannot create the file: Not a directory"},
          Row{{"locked/b.wav"}, "locked/b.wav: cannot create the file: Permission denied"},
          Row{{"--output-dir", "locked"},
              "locked/a.wav: cannot create the file: Permission denied"},
          Row{{"--output-dir", "locked/new"},
              "locked/new: cannot create the directory: Permission denied"},
          Row{{"--output-dir", "."},
              "./a.wav: is the same file as the input a.wav; name another output"}}) {
        Command command = Kelhost(directory, Arguments{"copy", "--dry-run", "a.wav"} + row.output);
        command.obeysPermissions = true;
        ExpectResult(RunCommand(command), 1, "", "kelhost: " + row.error + "\n");
    }
    EXPECT_EQ(SortedNames(directory), (Names{"a.wav", "file", "locked"}));
    // Requests that are refused before any file is opened are refused here, too.
    EXPECT_EQ(
        RunKelhost(directory, {"copy", "-n", "a.wav", "x/a.wav", "--output-dir", "out"}).status, 2);
}

} // namespace kel::test
