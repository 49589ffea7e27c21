// How a sink creates its file, with libsndfile's own answers.

#include "FakeFiles.h"

#include <TemporaryDirectory.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {
namespace {

class LibsndfileSinkCreation : public StandInTest {
protected:
    TemporaryDirectory directory;
};

TEST_F(LibsndfileSinkCreation, RefusesWhatLibsndfileDoesNotTakeAndLeavesTheFileOfThatName) {
    WriteFile(directory / "take.wav", "precious");
    const auto sink = MakeConfiguredSink("WAVE", directory / "take.wav");
    ExpectRefusal(kInputRefused, [&] { sink->DefineInput(MakeInput(BigEndian()), ""); },
                  {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(SndfileCalls(), Times(1, "sf_format_check"));
    EXPECT_EQ(sink->GetDefinedInput(""), nullptr);
    EXPECT_EQ(ReadFile(directory / "take.wav"), "precious");
}

TEST_F(LibsndfileSinkCreation, FailsOnTheEmptyPath) {
    const auto sink = MakeConfiguredSink("WAVE");
    const auto input = MakeInput({});
    ExpectRefusal(CanNotOpen("", "System error : No such file or directory."),
                  [&] { sink->DefineInput(input, ""); }, {Info(kFromType + "WAVE")});
    EXPECT_EQ(sink->GetDefinedInput(""), input);
}

TEST_F(LibsndfileSinkCreation, FailsInADirectoryThatIsNotThere) {
    const std::string path = directory / "no such directory/take.wav";
    const auto sink = MakeConfiguredSink("WAVE", path);
    ExpectRefusal(CanNotOpen(path, "System error : No such file or directory."),
                  [&] { sink->DefineInput(MakeInput({}), ""); }, {Info(kFromBoth + "WAVE")});
    EXPECT_EQ(directory.Names(), std::vector<std::string>());
}

TEST_F(LibsndfileSinkCreation, FailsOnADirectory) {
    const std::string path = directory.Path().string();
    const auto sink = MakeConfiguredSink("AIFF", path);
    ExpectRefusal(CanNotOpen(path, "System error : Is a directory."),
                  [&] { sink->DefineInput(MakeInput({}), ""); }, {Info(kFromType + "AIFF")});
}

TEST_F(LibsndfileSinkCreation, FailsOnAFullDevice) {
    const auto sink = MakeConfiguredSink("WAVE", "/dev/full");
    ExpectRefusal(CanNotOpen("/dev/full", "System error : No space left on device."),
                  [&] { sink->DefineInput(MakeInput({}), ""); }, {Info(kFromType + "WAVE")});
}

TEST_F(LibsndfileSinkCreation, FailsAtRateZeroWhichTheCheckLetsPass) {
    Layout layout;
    layout.rate = 0;
    const std::string path = directory / "take.wav";
    const auto sink = MakeConfiguredSink("WAVE", path);
    EXPECT_EQ(sink->CheckInputAndAdaptIfNecessary(MakeInput(layout), "")->GetErrorType(), 0);
    ExpectRefusal(CanNotOpen(path, "Internal error : SF_INFO struct incomplete."),
                  [&] { sink->DefineInput(MakeInput(layout), ""); }, {Info(kFromBoth + "WAVE")});
}

TEST_F(LibsndfileSinkCreation, SucceedsOnASecondTryWithAnotherPath) {
    const auto sink = MakeConfiguredSink("WAVE");
    sink->Open(ConvertPlatformStringToWideString(directory / "no such directory/take.wav"));
    EXPECT_THROW(sink->DefineInput(MakeInput({}), ""), KELRuntimeError);
    sink->Open(ConvertPlatformStringToWideString(directory / "take.wav"));
    sink->DefineInput(MakeInput({}), "");
    sink->Close(false);
    EXPECT_EQ(directory.Names(), std::vector<std::string>({"take.wav"}));
}

TEST_F(LibsndfileSinkCreation, WritesAnAIFFFileUnderTheNameOfAWAVEFile) {
    const std::string path = directory / "take.wav";
    const auto sink = MakeConfiguredSink("AIFF", path);
    ExpectRecords({Overridden("WAVE", "AIFF")}, [&] { sink->DefineInput(MakeInput({}), ""); });
    sink->Close(false);
    EXPECT_EQ(ReadFile(path).substr(0, 4), "FORM");
    EXPECT_EQ(ReadFile(path).substr(8, 4), "AIFC");
}

TEST_F(LibsndfileSinkCreation, ReplacesAFileOfThatName) {
    const std::string path = directory / "take.wav";
    WriteFile(path, std::string(1000, 'x'));
    const auto sink = MakeWritingSink(path);
    sink->Close(false);
    EXPECT_EQ(ReadFile(path).size(), 80U);
    EXPECT_EQ(ReadFile(path).substr(0, 4), "RIFF");
}

TEST_F(LibsndfileSinkCreation, CreatesTheFileBeforeTheFirstSample) {
    const auto sink = MakeWritingSink(directory / "take.wav");
    EXPECT_EQ(directory.Names(), std::vector<std::string>({"take.wav"}));
    sink->Close(false);
}

TEST_F(LibsndfileSinkCreation, CreatesFilesWithNamesOfAnyBytes) {
    for (const std::string name : {"Gr\xC3\xBC\xC3\x9F"
                                   "e.wav",
                                   "\xFF\xC3.wav", "new\nline.wav"}) {
        const auto fromSettings = MakeWritingSink(directory / name);
        fromSettings->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);

        const auto fromOpen = MakeConfiguredSink("WAVE");
        fromOpen->Open(ConvertPlatformStringToWideString(directory / name));
        fromOpen->DefineInput(MakeInput({}), "");
        fromOpen->Close(false);
        EXPECT_EQ(directory.Names(), std::vector<std::string>({name}));
        std::filesystem::remove(directory.Path() / name);
    }
}

TEST_F(LibsndfileSinkCreation, CreatesASecondFileWhileTheFirstStaysUnfinished) {
    std::vector<SNDFILE*> opened;
    StandIn().open = [&opened](const char* path, int mode, SF_INFO* info) {
        opened.push_back(RealSndfile().open(path, mode, info));
        return opened.back();
    };
    const auto sink = MakeWritingSink(directory / "first.wav");
    sink->PushSample(MakeContainer("abcd"));
    sink->SetInitConfig(MakeSettingsFor(directory / "second.wav"));
    sink->DefineInput(MakeInput({}), "");
    sink->PushSample(MakeContainer("efghijkl"));
    sink->Close(false);
    const auto& calls = SndfileCalls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sf_close"), 1);

    const std::string second = ReadFile(directory / "second.wav");
    EXPECT_EQ(second.substr(80), "efghijkl");
    const std::string unfinished = ReadFile(directory / "first.wav");
    EXPECT_EQ(unfinished.substr(76, 4), std::string(4, '\0'));
    ASSERT_EQ(opened.size(), 2U);
    EXPECT_EQ(RealSndfile().close(opened[0]), 0);
    const std::string first = ReadFile(directory / "first.wav");
    EXPECT_EQ(first.substr(76), std::string("\4\0\0\0abcd", 8));
}

} // namespace
} // namespace kel::test
