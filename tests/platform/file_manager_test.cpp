#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

namespace fs = std::filesystem;
using namespace std::string_literals;

class FileManagerTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(folder); }
    void TearDown() override { fs::remove_all(folder); }

    void put(const std::string &bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    int filesIn(const fs::path &where) {
        return static_cast<int>(std::distance(fs::directory_iterator(where), fs::directory_iterator()));
    }

    const fs::path folder = fs::temp_directory_path() / ("quillery-files-" + std::to_string(getpid()));
    const fs::path path = folder / ".Quillery.txt";
    FileManager files;
};

TEST_F(FileManagerTest, TellsMissingFromEmptyFromUnreadable) {
    EXPECT_EQ(files.textAtPath(path).state, FileText::State::kMissing);
    EXPECT_FALSE(files.textAtPath(path).text);
    put("");
    EXPECT_EQ(files.textAtPath(path).text, "");
    put("a\0\xC3\xA4\n"s);
    EXPECT_EQ(files.textAtPath(path).text, "a\0\xC3\xA4\n"s);
    put("\xFF\xFE broken");
    EXPECT_EQ(files.textAtPath(path).state, FileText::State::kNotText);
    EXPECT_FALSE(files.textAtPath(path).text);
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(files.textAtPath(path).state, FileText::State::kUnreadable);
    EXPECT_FALSE(files.textAtPath(path).problem.empty());
}

TEST_F(FileManagerTest, WritesPrivatelyInOneStepAndMakesTheFolder) {
    const fs::path deep = folder / "Documents" / ".Quillery.txt";
    ASSERT_EQ(files.createFileAtPath(deep, "one"), "");
    ASSERT_EQ(files.createFileAtPath(deep, "two"), "");
    EXPECT_EQ(files.textAtPath(deep).text, "two");
    struct stat status = {};
    ASSERT_EQ(stat(deep.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(filesIn(deep.parent_path()), 1) << "a temporary file was left behind";

    // A list that lives elsewhere stays there.
    fs::rename(deep, folder / "elsewhere");
    fs::create_symlink(folder / "elsewhere", deep);
    ASSERT_EQ(files.createFileAtPath(deep, "three"), "");
    EXPECT_TRUE(fs::is_symlink(deep));
    EXPECT_EQ(files.textAtPath(folder / "elsewhere").text, "three");
}

TEST_F(FileManagerTest, AFailedWriteSaysWhyAndLeavesTheOldFile) {
    put("old");
    fs::create_directory(folder / ".Quillery.txt.new");  // where the new bytes would go first
    EXPECT_NE(files.createFileAtPath(path, "new"), "");
    EXPECT_EQ(files.textAtPath(path).text, "old");
    EXPECT_NE(files.createFileAtPath(path / "below a file" / "x", "new"), "");
    // A disk that is full from the first byte on.
    EXPECT_NE(files.createFileAtPath("/proc/self/no-such-place/list", "new"), "");
}

TEST_F(FileManagerTest, WhatAKilledProgramLeftIsTakenOver) {
    std::ofstream(folder / ".Quillery.txt.new") << "half a li";
    ASSERT_EQ(files.createFileAtPath(path, "whole"), "");
    EXPECT_EQ(files.textAtPath(path).text, "whole");
    EXPECT_EQ(filesIn(folder), 1);
}

TEST_F(FileManagerTest, SetsAsideUnderADatedNameThatIsFree) {
    put("first");
    const auto one = files.setAside(path);
    put("second");
    const auto two = files.setAside(path);
    ASSERT_TRUE(one && two);
    EXPECT_NE(*one, *two);
    EXPECT_EQ(files.textAtPath(*one).text, "first");
    EXPECT_EQ(files.textAtPath(*two).text, "second");
    EXPECT_FALSE(files.fileExistsAtPath(path));
    EXPECT_FALSE(files.setAside(path));
}
