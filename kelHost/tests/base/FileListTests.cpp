#include "base/FileList.h"

#include "base/Errors.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kel::host {

namespace {

using ListedNames = std::vector<std::string>;

ListedNames ReadList(const std::string& content, NameSeparator separator) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "list", content);
    return ReadFileList(directory / "list", separator);
}

// The error of reading a list, without its directory.
std::string ListError(const std::string& content, NameSeparator separator) {
    try {
        ReadList(content, separator);
    } catch (const JobError& error) {
        return error.what();
    }
    return "none";
}

} // namespace

TEST(FileList, HasNamesOfAnyBytes) {
    EXPECT_EQ(ReadList("a.wav\n b \r\n\n\n\xFF\xFE\n-\n--x\nlast", NameSeparator::Newline),
              (ListedNames{"a.wav", " b \r", "\xFF\xFE", "./-", "--x", "last"}));
    const std::string names("a\nb\0./-\0-\0last", 14);
    EXPECT_EQ(ReadList(names, NameSeparator::Null), (ListedNames{"a\nb", "./-", "./-", "last"}));
    EXPECT_EQ(ReadList("", NameSeparator::Null), ListedNames{});
}

TEST(FileList, RefusesNamesThatNoFileHas) {
    EXPECT_EQ(ListError(std::string("a\0\0b\0", 5), NameSeparator::Null), "name 2 is empty");
    EXPECT_EQ(ListError(std::string("a\nb\0c\0", 6), NameSeparator::Newline),
              "name 2 contains a NUL character; use --null");
}

TEST(FileList, HasToBeReadable) {
    const test::TemporaryDirectory directory;
    for (const auto& [name, problem] :
         {std::pair{std::string("missing"), "cannot open for reading: No such file or directory"},
          std::pair{std::string("."), "cannot read the list: Is a directory"}}) {
        try {
            ReadFileList(directory / name, NameSeparator::Newline);
            ADD_FAILURE() << name;
        } catch (const JobError& error) {
            EXPECT_EQ(error.File(), directory / name);
            EXPECT_STREQ(error.what(), problem);
        }
    }
}

} // namespace kel::host
