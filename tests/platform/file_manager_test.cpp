#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>

#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

class FileManagerTest : public testing::Test {
  protected:
    void put(const std::string &bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    int filesIn(const fs::path &where) {
        return static_cast<int>(std::distance(fs::directory_iterator(where), fs::directory_iterator()));
    }

    TemporaryFolder temporary;
    const fs::path folder = temporary.path();
    const fs::path path = folder / ".Quillery.txt";
    FileManager files;
};

TEST_F(FileManagerTest, TellsMissingFromEmptyFromNoText) {
    EXPECT_EQ(files.textAtPath(path).state, FileText::State::kMissing);
    EXPECT_FALSE(files.textAtPath(path).text);
    put("");
    EXPECT_EQ(files.textAtPath(path).text, "");
    put("\xFF\xFE broken");
    EXPECT_EQ(files.textAtPath(path).state, FileText::State::kNotText);
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
    EXPECT_NE(files.createFileAtPath(path / "below a file" / "x", "new"), "");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{.rlim_cur = 100, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_EQ(files.createFileAtPath(path, std::string(200, 'x')), "File too large");
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(files.textAtPath(path).text, "old");
    EXPECT_EQ(filesIn(folder), 1) << "a temporary file was left behind";
}
