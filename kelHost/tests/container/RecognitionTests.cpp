#include "container/Recognition.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace kel::host {

namespace {

const std::string kUnknownFormat = "[... Error is:\"Format not recognised.\"]";

// Whether a file with this name and content counts as one that is not audio.
bool IsOther(const std::string& name, const std::string& content,
             const std::string& failure = kUnknownFormat) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / name, content);
    return IsUnrecognised(directory / name, failure);
}

} // namespace

TEST(Recognition, TakesOnlyFilesWithoutASignOfAudioForOthers) {
    EXPECT_TRUE(IsOther("notes.txt", "some text"));
    EXPECT_TRUE(IsOther("notes", ""));
    EXPECT_TRUE(IsOther("take.wav.txt", "some text"));
    EXPECT_TRUE(IsOther("._take.wav", std::string("\x00\x05\x16\x07\x00\x02", 6)));
    // The names of audio files.
    for (const char* name : {"take.wav", "take.WAV", "take.wave", "take.aifc", "take.flac",
                             "take.Mp3", "take.opus", "take.w64", "take.raw", "._take.wav"}) {
        EXPECT_FALSE(IsOther(name, "some text")) << name;
    }
    // The beginnings of audio files.
    for (const char* content : {"fLaC", "OggS", "caff....", "ID3"}) {
        EXPECT_FALSE(IsOther("take", content)) << content;
    }
    EXPECT_TRUE(IsOther("take", "fLa"));
    // Other failures, and what is not a regular file.
    EXPECT_FALSE(IsOther("notes.txt", "some text", "[... System error.]"));
    const test::TemporaryDirectory directory;
    EXPECT_FALSE(IsUnrecognised(directory.Path().string(), kUnknownFormat));
}

} // namespace kel::host
