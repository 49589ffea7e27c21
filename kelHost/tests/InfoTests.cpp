#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace kel::test {

TEST(Info, ShowsFilesInATable) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav", 96024);
    WriteAudio(folder / "long name.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 8000,
               MakeValues(8000));
    WriteAudio(folder / "six", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 6, 192000, MakeValues(6));
    ExpectResult(RunKelhost(folder, {"info", "take.wav", "long name.aiff", "six"}), 0,
                 "File            Channels       Rate  Frames     Duration  Delivered as\n"
                 "take.wav               2   48000 Hz   96024  0:00:02.001  32-bit float "
                 "little-endian\n"
                 "long name.aiff         1    8000 Hz    8000  0:00:01.000  32-bit float "
                 "little-endian\n"
                 "six                    6  192000 Hz       1  0:00:00.000  32-bit float "
                 "little-endian\n",
                 "");
    EXPECT_EQ(SortedNames(folder), (Names{"long name.aiff", "six", "take.wav"}));
}

TEST(Info, ShowsTheOthersWhenFilesCanNotBeOpened) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav");
    WriteFile(folder / "text.wav", "no audio at all, but a text of some length\n");
    std::filesystem::create_directory(folder / "folder");
    ExpectResult(RunKelhost(folder, {"info", "text.wav", "take.wav", "missing.wav", "folder"}), 1,
                 "File      Channels      Rate  Frames     Duration  Delivered as\n"
                 "take.wav         2  48000 Hz    1000  0:00:00.021  32-bit float little-endian\n",
                 "kelhost: text.wav: can not be read: [Unable to open file \"text.wav\" with "
                 "libsndfile. Error is:\"Format not recognised.\"]\n"
                 "kelhost: missing.wav: No such file or directory\n"
                 "kelhost: folder: is a folder; name the audio files in it\n");
}

TEST(Info, ShowsNoTableWhenNoFileCanBeOpened) {
    const TemporaryFolder folder;
    ExpectResult(RunKelhost(folder, {"info", "a.wav", "b.wav"}), 1, "",
                 "kelhost: a.wav: No such file or directory\n"
                 "kelhost: b.wav: No such file or directory\n");
}

TEST(Info, ShowsAFileAsOftenAsItIsNamed) {
    const TemporaryFolder folder;
    WriteTake(folder / "take.wav");
    ExpectResult(RunKelhost(folder, {"info", "take.wav", "./take.wav", "take.wav"}), 0,
                 "File        Channels      Rate  Frames     Duration  Delivered as\n"
                 "take.wav           2  48000 Hz    1000  0:00:00.021  32-bit float "
                 "little-endian\n"
                 "./take.wav         2  48000 Hz    1000  0:00:00.021  32-bit float "
                 "little-endian\n"
                 "take.wav           2  48000 Hz    1000  0:00:00.021  32-bit float "
                 "little-endian\n",
                 "");
}

} // namespace kel::test
