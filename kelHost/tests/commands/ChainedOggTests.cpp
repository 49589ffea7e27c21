// Ogg files with several streams, one after the other, as in recordings of radio programmes.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

namespace {

const std::string kSeveral = "cannot read all samples: it contains several streams, one after the "
                             "other, of which only the first can be read";

class ChainedOgg : public testing::Test {
protected:
    ChainedOgg() {
        std::string bytes;
        for (const std::size_t frames : {4800U, 2400U}) {
            WriteAudio(m_directory / "take.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, 48000,
                       std::vector<float>(frames, 0.5F));
            bytes += ReadFile(m_directory / "take.ogg");
        }
        WriteFile(m_directory / "take.ogg", bytes);
    }

    ProcessResult Run(const Arguments& arguments) const {
        return RunKelhost(m_directory, arguments);
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(ChainedOgg, IsRefusedByCommandsThatReadIt) {
    for (const Arguments& arguments :
         {Arguments{"copy", "take.ogg", "out.wav"}, Arguments{"info", "--measure", "take.ogg"},
          Arguments{"plot", "take.ogg"}, Arguments{"compare", "take.ogg", "take.ogg"},
          Arguments{"run", "kel.LibsndfileSource:WAVE", "FilePath=take.ogg", "!",
                    "kel.LibsndfileSink", "FilePath=out.wav"}}) {
        ExpectResult(Run(arguments), arguments.front() == "compare" ? 2 : 1, "",
                     Error("take.ogg", kSeveral + " (--allow-truncated accepts that)"));
    }
    EXPECT_EQ(SortedNames(m_directory), Names{"take.ogg"});
}

TEST_F(ChainedOgg, IsReadUpToItsSecondStreamWhereThatIsAllowed) {
    const std::string warning = "kelhost: warning: take.ogg: " + kSeveral + "\n";
    ExpectResult(Run({"copy", "--allow-truncated", "--quiet", "take.ogg", "out.wav"}), 0, "",
                 warning);
    EXPECT_EQ(ReadAudio(m_directory / "out.wav").values.size(), 4800U);
    ExpectResult(Run({"info", "--field", "frames", "take.ogg"}), 0, "4800\n", warning);
}

// As by "cat take.ogg take.ogg".
TEST(JoinedOgg, IsRefusedWhereItsStreamsHaveTheSameNumber) {
    for (const int encoding : {SF_FORMAT_VORBIS, SF_FORMAT_OPUS}) {
        const TemporaryDirectory directory;
        WriteAudio(directory / "take.ogg", SF_FORMAT_OGG | encoding, 1, 48000,
                   std::vector<float>(4800, 0.5F));
        const std::string bytes = ReadFile(directory / "take.ogg");
        WriteFile(directory / "take.ogg", bytes + bytes);
        ExpectResult(RunKelhost(directory, {"copy", "take.ogg", "out.wav"}), 1, "",
                     Error("take.ogg", kSeveral + " (--allow-truncated accepts that)"));
    }
}

} // namespace kel::test
