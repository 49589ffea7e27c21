#include "elements/SourceReader.h"

#include "AudioFiles.h"
#include "Program.h"
#include "base/FileName.h"

#include <CapturingWriter.h>
#include <Plugin.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace kel::host {

TEST(SourceReader, ChoosesLargerBlocksForLongFilesWithFewChannels) {
    struct Row {
        std::uint32_t channels;
        std::uint64_t frames;
        std::uint32_t blockFrames;
    };
    const test::LogCapture log;
    test::LoadPlugin();
    for (const Row& row :
         {Row{1, 4194303, 16384}, Row{1, 4194304, 131072}, Row{2, 4194304, 65536},
          Row{8, 4194304, 16384}, Row{9, 4194304, 16384}, Row{64, 4194304, 8192}}) {
        SCOPED_TRACE(testing::Message() << row.frames << " frames of " << row.channels);
        const test::TemporaryDirectory directory;
        test::WriteSparseAudio(directory / "take.rf64", 1, row.channels, row.frames, 0, "");
        EXPECT_EQ(SourceReader(FileName(directory / "take.rf64")).BlockFrames(), row.blockFrames);
    }
}

} // namespace kel::host
