#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace kel::test {

namespace {

// A directory with the real plug-in under a short name, so that tables are the same everywhere.
class PluginDirectory {
public:
    PluginDirectory() {
        const std::filesystem::path program = KEL_TEST_HOST;
        std::filesystem::create_symlink(program.parent_path().parent_path() /
                                            "lib/kel/libkelLibsndfile.so",
                                        m_directory / "p.so");
    }

    ProcessResult Inspect(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--plugin", "p.so", "inspect"});
        return RunKelhost(m_directory, arguments);
    }

    std::string Path() const { return m_directory / "p.so"; }

private:
    TemporaryDirectory m_directory;
};

} // namespace

TEST(Inspect, ShowsAllElementsInATable) {
    const PluginDirectory directory;
    ExpectResult(
        directory.Inspect({}), 0,
        "Implementation        Kind                  Types                            "
        "Registered by\n"
        "kel                   MemoryBlockAllocator  Recycler                         "
        "kelCore\n"
        "kel.LibsndfileSource  AudioSource           AIFF, WAVE, BWAVE                " +
            directory.Path() +
            "\n"
            "kel.LibsndfileSink    AudioSink             Unknown, AIFF, WAVE, BWAVE, RAW  " +
            directory.Path() + "\n",
        "");
}

TEST(Inspect, ShowsTheSource) {
    const PluginDirectory directory;
    ExpectResult(
        directory.Inspect({"kel.LibsndfileSource"}), 0,
        "Implementation  kel.LibsndfileSource\n"
        "Kind            AudioSource\n"
        "Types           AIFF, WAVE, BWAVE\n"
        "Registered by   " +
            directory.Path() +
            "\n"
            "\n"
            "This source allows loading PCM audio data from various file formats. The type "
            "attribute of the node describes the file format to read. Choices are WAVE, BWAVE "
            "(for RF64) and AIFF.\n"
            "Please note that you should load libkelLibsndFile.so/kelLibsndFile.dll to be able to "
            "use this source.This source is not available on Windows at the moment.\n"
            "\n"
            "Setting              Kind     Default  Description\n"
            "FilePath             string   none     Path to the file to open\n"
            "MaxSamplesPerBuffer  integer  1024     Maximum number of samples that will be "
            "returned in each buffer. Configurable.\n"
            "AllocatorRef         string   \"\"\n",
        "");
}

TEST(Inspect, ShowsAnElementWithoutSettings) {
    const PluginDirectory directory;
    ExpectResult(directory.Inspect({"kel"}), 0,
                 "Implementation  kel\n"
                 "Kind            MemoryBlockAllocator\n"
                 "Types           Recycler\n"
                 "Registered by   kelCore\n"
                 "\n"
                 "This allocator gives released memory blocks out again, so that a stream of "
                 "samples needs only a handful of blocks from the system. Each allocator made here "
                 "has a pool of its own.\n"
                 "\n"
                 "It has no settings.\n",
                 "");
}

TEST(Inspect, NamesTheChoiceOfElements) {
    const PluginDirectory directory;
    const std::string names = "; use kel, kel.LibsndfileSource or kel.LibsndfileSink\n";
    ExpectResult(directory.Inspect({"two\nlines"}), 1, "",
                 "kelhost: there is no element \"two\\nlines\"" + names);
}

TEST(Inspect, ShowsAnElementOnceForEachPluginThatHasIt) {
    const TemporaryDirectory directory;
    std::string expected;
    for (const char* name : {"libkel1.so", "libkel2.so"}) {
        std::filesystem::create_symlink(TestPlugin("kelFaultyElements"), directory / name);
        expected += std::string(expected.empty() ? "" : "\n") +
                    "Implementation  test.TextSink\n"
                    "Kind            AudioSink\n"
                    "Types           WAVE, AIFF, BWAVE\n"
                    "Registered by   " +
                    (directory / name) +
                    "\n\nFiles of one line of text.\n\n"
                    "Setting              Kind        Default  Description\n"
                    "FilePath             string      none     Where the text is\n"
                    "MaxSamplesPerBuffer  integer     1024     Most frames at once\n"
                    "Details              collection  none     Nothing that anybody reads\n";
    }
    Command command = Kelhost(directory, {"inspect", "test.TextSink"});
    command.environment["KEL_PLUGIN_PATH"] = directory.Path().string();
    const std::string end = " for WAVE, AIFF, BWAVE is not used, because " +
                            (directory / "libkel1.so") + " registers it, too\n";
    const std::string warning = "kelhost: warning: " + (directory / "libkel2.so") + ": its ";
    ExpectResult(RunCommand(command), 0, expected,
                 warning + "AudioSource test.TextSource" + end + warning +
                     "AudioSink test.TextSink" + end);
}

} // namespace kel::test
