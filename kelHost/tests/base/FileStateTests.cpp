#include "base/FileState.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>

namespace kel::host {

namespace {

namespace fs = std::filesystem;

// The description of what a change of a file of 10 bytes did.
std::string Change(const std::function<void(const std::string&)>& change) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    test::WriteFile(path, "0123456789");
    const FileState before(path);
    change(path);
    return FileState(path).DescribeChange(before);
}

} // namespace

TEST(FileState, DescribesChanges) {
    EXPECT_EQ(Change([](const std::string&) {}), "");
    EXPECT_EQ(Change([](const std::string& path) { fs::resize_file(path, 12); }),
              "grew from 10 to 12 bytes");
    EXPECT_EQ(Change([](const std::string& path) { fs::resize_file(path, 9); }),
              "shrank from 10 to 9 bytes");
    EXPECT_EQ(Change([](const std::string& path) { fs::remove(path); }), "was removed");
    EXPECT_EQ(Change([](const std::string& path) {
                  test::WriteFile(path + ".new", "0123456789");
                  fs::last_write_time(path + ".new", fs::last_write_time(path));
                  fs::rename(path + ".new", path);
              }),
              "was replaced by another file");
    EXPECT_EQ(Change([](const std::string& path) {
                  fs::last_write_time(path,
                                      fs::last_write_time(path) + std::chrono::nanoseconds(1));
              }),
              "was written to");
    EXPECT_EQ(Change([](const std::string& path) {
                  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(1));
              }),
              "was written to");
}

TEST(FileState, OfPipesAndDirectoriesDoesNotChange) {
    const test::TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    for (const std::string& path : {directory / "pipe", directory.Path().string()}) {
        const FileState before(path);
        fs::rename(path, path + ".old");
        EXPECT_EQ(FileState(path).DescribeChange(before), "");
        fs::rename(path + ".old", path);
    }
}

} // namespace kel::host
