#include "base/FileTree.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace kel::host {

namespace {

namespace fs = std::filesystem;

using TreeNames = std::vector<std::string>;

// Files of a tree, for selections.
class FileTreeTest : public testing::Test {
protected:
    // Makes a file and its directories.
    void Make(const std::string& path) const {
        fs::create_directories(fs::path(m_directory / path).parent_path());
        test::WriteFile(m_directory / path, "");
    }

    // Reads a directory of the test; the results are named from there.
    void Read(const std::string& directory, const TreeSelection& selection = {}) {
        FileTree tree(selection);
        const std::string top = m_directory / directory;
        tree.Add(top);
        const auto below = [&](const std::string& path) {
            return path.substr(top.size());
        };
        m_files.clear();
        m_unused.clear();
        m_failures.clear();
        for (const std::string& file : tree.TakeFiles()) {
            m_files.push_back(below(file));
        }
        for (const UnusedFile& file : tree.UnusedFiles()) {
            m_unused.push_back((file.isLink ? "link " : "special ") + below(file.path));
        }
        for (const JobError& failure : tree.Failures()) {
            m_failures.push_back(below(failure.File()) + ": " + failure.what());
        }
    }

    static TreeSelection Selection(const TreeNames& include, const TreeNames& exclude) {
        TreeSelection selection;
        for (const std::string& pattern : include) {
            selection.include.emplace_back(pattern);
        }
        for (const std::string& pattern : exclude) {
            selection.exclude.emplace_back(pattern);
        }
        return selection;
    }

    test::TemporaryDirectory m_directory;
    TreeNames m_files;
    TreeNames m_unused;
    TreeNames m_failures;
};

} // namespace

TEST_F(FileTreeTest, ListsTheFilesOfAllDirectoriesInTheOrderOfTheirBytes) {
    for (const char* name : {"t/b", "t/a.wav", "t/a/y", "t/a/x/z", "t/\xFF\xFE", "t/B", "t/\n",
                             "t/.h", "t/.kelhost-1-0a1b2c3d-abcdef.part/a.wav"}) {
        Make(name);
    }
    fs::create_directory(m_directory / "t/empty");
    Read("t/");
    EXPECT_EQ(m_files, (TreeNames{"\n", ".h", "B", "a.wav", "a/x/z", "a/y", "b", "\xFF\xFE"}));
    EXPECT_EQ(m_unused, TreeNames{});
    EXPECT_EQ(m_failures, TreeNames{});
    Read("t");
    EXPECT_EQ(m_files.front(), "/\n");
}

TEST_F(FileTreeTest, ReportsLinksAndSpecialFilesWithoutFollowingThem) {
    Make("t/a");
    Make("elsewhere/b");
    fs::create_symlink("a", m_directory / "t/link");
    fs::create_symlink("../elsewhere", m_directory / "t/directory");
    fs::create_symlink("nothing", m_directory / "t/dangling");
    ASSERT_EQ(mkfifo((m_directory / "t/pipe").c_str(), 0600), 0);
    Read("t/");
    EXPECT_EQ(m_files, TreeNames{"a"});
    EXPECT_EQ(m_unused,
              (TreeNames{"link dangling", "link directory", "link link", "special pipe"}));

    TreeSelection selection;
    selection.followLinks = true;
    Read("t/", selection);
    EXPECT_EQ(m_files, (TreeNames{"a", "dangling", "directory/b", "link"}));
    EXPECT_EQ(m_unused, TreeNames{"special pipe"});
    // The tree itself may be a link.
    Read("t/directory/");
    EXPECT_EQ(m_files, TreeNames{"b"});
}

TEST_F(FileTreeTest, NamesLinksToADirectoryAboveThem) {
    Make("t/sub/a");
    fs::create_directory_symlink("..", m_directory / "t/sub/up");
    fs::create_directory_symlink(".", m_directory / "t/self");
    // Two names of a directory that is not above are two directories.
    fs::create_directory_symlink("sub", m_directory / "t/again");
    TreeSelection selection;
    selection.followLinks = true;
    Read("t/", selection);
    const std::string loop = ": is a link to a directory above it; leave it out with --exclude";
    EXPECT_EQ(m_files, (TreeNames{"again/a", "sub/a"}));
    EXPECT_EQ(m_failures, (TreeNames{"again/up" + loop, "self" + loop, "sub/up" + loop}));
}

TEST_F(FileTreeTest, NamesDirectoriesThatCannotBeRead) {
    Make("t/a");
    Read("t/a");
    EXPECT_EQ(m_failures, TreeNames{": cannot read the directory: Not a directory"});
    EXPECT_EQ(m_files, TreeNames{});
}

TEST_F(FileTreeTest, LeavesOutTheDirectoryOfTheOutputsBelowTheTree) {
    Make("t/a");
    Make("t/sub/out/b");
    TreeSelection selection;
    selection.output = FindDirectory(m_directory / "t/sub/out");
    Read("t/", selection);
    EXPECT_EQ(m_files, TreeNames{"a"});
    Read("t/sub/out/", selection);
    EXPECT_EQ(m_files, TreeNames{"b"});
    EXPECT_EQ(FindDirectory(m_directory / "t/a"), std::nullopt);
    EXPECT_EQ(FindDirectory(m_directory / "t/missing"), std::nullopt);
}

TEST_F(FileTreeTest, SelectsFilesByPatterns) {
    for (const char* name :
         {"t/a.wav", "t/b.flac", "t/old/a.wav", "t/old/c.aiff", "t/sub/old/d.wav", "t/sub/a.wav"}) {
        Make(name);
    }
    fs::create_symlink("a.wav", m_directory / "t/link.wav");
    struct Row {
        TreeNames include;
        TreeNames exclude;
        TreeNames files;
    };
    for (const Row& row :
         {Row{{"*.wav"}, {}, {"a.wav", "old/a.wav", "sub/a.wav", "sub/old/d.wav"}},
          Row{{"*.flac", "[c-d].*"}, {}, {"b.flac", "old/c.aiff", "sub/old/d.wav"}},
          Row{{"*/a.wav"}, {}, {"old/a.wav", "sub/a.wav"}}, Row{{"/a.wav"}, {}, {"a.wav"}},
          Row{{"sub/*.wav"}, {}, {"sub/a.wav"}}, Row{{}, {"old"}, {"a.wav", "b.flac", "sub/a.wav"}},
          Row{{}, {"/old"}, {"a.wav", "b.flac", "sub/a.wav", "sub/old/d.wav"}},
          Row{{}, {"a.wav/", "old/"}, {"a.wav", "b.flac", "sub/a.wav"}},
          Row{{}, {"sub/*"}, {"a.wav", "b.flac", "old/a.wav", "old/c.aiff"}},
          Row{{"*.wav"}, {"a.*"}, {"sub/old/d.wav"}}}) {
        SCOPED_TRACE(testing::PrintToString(row.include) + testing::PrintToString(row.exclude));
        Read("t/", Selection(row.include, row.exclude));
        EXPECT_EQ(m_files, row.files);
    }
    EXPECT_EQ(m_unused, TreeNames{"link link.wav"});
    Read("t/", Selection({}, {"link.*"}));
    EXPECT_EQ(m_unused, TreeNames{});
}

} // namespace kel::host
