// File names of all kinds: they open, and they are logged and passed on byte by byte.

#include "SourceTestSupport.h"

#include <clocale>
#include <filesystem>
#include <locale>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {
namespace {

const std::vector<std::string> kNames = {
    "with spaces and  two.wav",
    "100% %s %n %d.wav",
    "quote\"d.wav",
    "back\\slash.wav",
    "two\nlines.wav",
    "tab\tand bell\a.wav",
    "\xC3\xA4\xC3\xB6\xC3\xBC \xE2\x82\xAC \xF0\x9F\x8E\xB5.wav", // UTF-8 of two to four bytes
    "a\xCC\x88.wav",                                              // not composed
    "latin \xE4\xF6\xFC.wav",                                     // no UTF-8
    "cut \xE2\x82.wav",
    "\x80\xFF.wav",
    "long form \xC0\xAF.wav",
    "half \xED\xB2\x80.wav", // a surrogate
    "-",
    " ",
    "no extension",
};

std::string TrackGroupOf(const IAudioSource& source) {
    const auto info = source.GetDefinedOutput("")->GetAudioInfos().at(0);
    return info->GetChannelInfo()->GetTrack()->GetTrackGroup()->GetName();
}

// A place where numbers and texts are written in a way of its own.
class GroupedNumbers final : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\1"; }
};

// Sets the process's locale for as long as it lives.
class GlobalLocale {
public:
    explicit GlobalLocale(const std::locale& locale) : m_former(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(m_former); }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

private:
    std::locale m_former;
};

// Opens each file in both ways, and fails to open it when it is gone.
void ExpectNamesKept() {
    for (const std::string& name : kNames) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        const std::string path = WriteWave(directory, {2, 44100, 12345}, name);

        const auto settings = MakeReadSettings(1024);
        settings->SetStringValue("FilePath", path);
        const auto source = MakeSource();
        const Lines opened = {OpenedLine(path, 2, 12345, kWaveFormat), AllocatorLine()};
        ExpectRecords(opened, [&] { source->SetInitConfig(settings); });
        ASSERT_TRUE(source->IsMediaOpen());
        EXPECT_EQ(TrackGroupOf(*source), name);
        EXPECT_EQ(ValuesOf(source->GetSample()), ExpectedValues({}, 0, 1024));

        source->Release();
        ExpectRecords(opened, [&] { source->Open(ConvertPlatformStringToWideString(path)); });
        EXPECT_EQ(TrackGroupOf(*source), name);

        source->Release();
        std::filesystem::remove(path);
        ExpectRefusal("[Unable to open file \"" + path +
                          "\" with libsndfile. Error is:\"System error : No such file or "
                          "directory.\"]",
                      [&] { source->Open(ConvertPlatformStringToWideString(path)); });
    }
}

TEST(LibsndfileSourceFileNames, AreKeptByteByByte) {
    ExpectNamesKept();
}

TEST(LibsndfileSourceFileNames, DoNotDependOnTheLocaleOfTheProcess) {
    const GlobalLocale grouped(std::locale(std::locale::classic(), new GroupedNumbers));
    ExpectNamesKept();
}

TEST(LibsndfileSourceFileNames, DoNotDependOnTheLocaleOfTheEnvironment) {
    const std::string former = std::setlocale(LC_ALL, nullptr);
    for (const char* const locale : {"C", "C.UTF-8", ""}) {
        if (std::setlocale(LC_ALL, locale) != nullptr) {
            SCOPED_TRACE(locale);
            ExpectNamesKept();
        }
    }
    std::setlocale(LC_ALL, former.c_str());
}

TEST(LibsndfileSourceFileNames, MayGoWithDirectoriesOfAnyName) {
    for (const std::string& name : kNames) {
        SCOPED_TRACE(name);
        const TemporaryDirectory directory;
        std::filesystem::create_directory(directory.Path() / name);
        const std::string path = WriteWave(directory, {}, name + "/" + name);
        const auto source = MakeConfiguredSource();
        ExpectRecords({OpenedLine(path, 2, 2500, kWaveFormat), AllocatorLine()},
                      [&] { source->Open(ConvertPlatformStringToWideString(path)); });
        EXPECT_EQ(TrackGroupOf(*source), name);
    }
}

TEST(LibsndfileSourceFileNames, AreTakenAsTheWideTextsThatTheyStandFor) {
    const TemporaryDirectory directory;
    WriteWave(directory, {}, "\xC3\xA4 \xF0\x9F\x8E\xB5.wav");
    const auto source = MakeConfiguredSource();
    source->Open(ConvertPlatformStringToWideString(directory / "") + L"\u00E4 \U0001F3B5.wav");
    EXPECT_EQ(TrackGroupOf(*source), "\xC3\xA4 \xF0\x9F\x8E\xB5.wav");
}

TEST(LibsndfileSourceFileNames, LikeNamesOfAllocatorsStandUnchangedInRefusals) {
    const TemporaryDirectory directory;
    const std::string name = "100%s\n\xE4\xC3\xA4 allocator";
    const std::string path = WriteWave(directory);
    const auto settings = MakeSourceSettings();
    settings->SetStringValue("AllocatorRef", name);
    const auto source = MakeSource();
    source->SetInitConfig(settings);
    ExpectRefusal("[could not find allocator " + name + "] [ Pointer is null ]",
                  [&] { source->Open(ConvertPlatformStringToWideString(path)); },
                  {OpenedLine(path, 2, 2500, kWaveFormat)});
}

} // namespace
} // namespace kel::test
