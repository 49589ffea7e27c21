#include "analysis/FileInfo.h"

#include "AudioFiles.h"

#include <CapturingWriter.h>
#include <Plugin.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace kel::host {

namespace {

// Adds a byte to a file while it is read, as another program may.
class GrowingReporter final : public Reporter {
public:
    explicit GrowingReporter(std::string file) : m_file(std::move(file)) {}

    void Opening(const std::string& /*file*/) override {}
    void Opened() override {}
    void Spooled(std::uint64_t /*bytes*/) override {}
    void Progress(std::int64_t /*done*/, std::int64_t /*total*/, std::uint32_t /*rate*/) override {}
    void Show(const std::string& /*line*/) override {}
    void ShowAs(const FileName& /*file*/) override {}
    void BeginReading() override { test::WriteFile(m_file, test::ReadFile(m_file) + "x"); }
    void EndReading() override {}

private:
    std::string m_file;
};

} // namespace

TEST(FileInfo, HasNoChecksumOfAFileThatIsChanged) {
    test::LoadPlugin();
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take.wav";
    const HostLogger log([](const std::string&) {}, Verbosity::Nothing);
    test::WriteTake(path, 10); // is read twice, the second time to find its end
    GrowingReporter reporter(path);
    InfoRequest request;
    request.checksum = true;
    try {
        ReadFileInfo(path, request, {}, log, reporter);
        FAIL();
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), path);
        EXPECT_STREQ(error.what(), "grew from 84 to 86 bytes while it was read; try again when no "
                                   "program writes to it");
    }
}

} // namespace kel::host
