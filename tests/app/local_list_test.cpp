#include "app/LocalList.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

// These calls fail with such an error number, as on a file system that lacks them or has lost its server.
static int readError = 0;
static int lockError = 0;

extern "C" ssize_t read(int fd, void *buffer, size_t size) {
    errno = readError;
    return readError ? -1 : syscall(SYS_read, fd, buffer, size);
}

extern "C" int flock(int fd, int operation) {
    errno = lockError;
    return lockError ? -1 : static_cast<int>(syscall(SYS_flock, fd, operation));
}

class LocalListTest : public testing::Test {
  protected:
    void put(const std::string &bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    // Expects the text to be written, or that problem.
    LocalList::Change add(const std::string &problem) {
        LocalList::Change change = list.add(path, "new");
        EXPECT_EQ(change.problem, problem);
        EXPECT_EQ(change.isWritten, problem.empty());
        return change;
    }
    std::size_t filesBeside() const {  // but for the lock
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder.path()), {})) - 1;
    }

    TemporaryFolder folder;
    const fs::path path = folder.path() / ".Quillery.txt";
    FileManager files;
    LocalList list;
};

TEST_F(LocalListTest, WhatCannotBeReadNowIsNeitherSetAsideNorWritten) {
    const std::string problem = "the list there could not be read: ";
    put("good");
    for (const int error : {EIO, ESTALE, ENOMEM, EACCES, ETIMEDOUT}) {
        readError = error;
        const auto change = add(problem + std::strerror(error));
        readError = 0;
        EXPECT_FALSE(change.setAside);
        EXPECT_EQ(list.read(path).text ? *list.lastKnown() : "", "good");
    }
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = dup(0);
    close(next);
    const rlimit forTheLockAlone{.rlim_cur = static_cast<rlim_t>(next) + 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &forTheLockAlone);
    add(problem + std::strerror(EMFILE));
    setrlimit(RLIMIT_NOFILE, &limit);
    fs::resize_file(path, std::uintmax_t{1} << 42U);  // all holes
    add(problem + "it is too big for the memory");

    const std::vector<std::pair<std::string, std::function<void()>>> noFiles = {
        {"folder", [&] { fs::create_directory(path); }},
        {"pipe", [&] { mkfifo(path.c_str(), 0600); }},
        {"socket", [&] { mknod(path.c_str(), S_IFSOCK | 0600, 0); }},
        {"device", [&] { fs::create_symlink("/dev/zero", path); }},
    };
    for (const auto &[what, make] : noFiles) {
        fs::remove(path);
        make();
        add(problem + "it is a " + what + ", not a file");
        EXPECT_EQ(list.createIfMissing(path), "");
    }
    EXPECT_EQ(filesBeside(), 1U);
}

TEST_F(LocalListTest, WhatIsNoTextIsSetAsideAndTold) {
    put("known");
    add("");
    put("precious \xFF bytes");
    const auto change = add("");
    ASSERT_TRUE(change.setAside);
    EXPECT_EQ(*change.lastKnown, "new\n-CLIPBOARD'S END-\nknown");
    std::ifstream kept(*change.setAside, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "precious \xFF bytes");
    EXPECT_EQ(files.textAtPath(path).text, "new");
    put("\xFF again");
    EXPECT_NE(list.empty(path).setAside, change.setAside);
    EXPECT_EQ(files.textAtPath(path).text, "");
}

TEST_F(LocalListTest, OneProgramAfterTheOtherChangesIt) {
    const fs::path left = path.string() + ".new-Ab12yZ";
    std::ofstream(left) << "half a li";
    {
        const FileLock another(path);
        EXPECT_EQ(FileLock(path, std::chrono::milliseconds(20)).problem(),
                  "another program is changing it and does not come to an end");
    }
    add("");
    EXPECT_EQ(filesBeside(), 1U) << "what a killed program left stays";
    for (const int error : {ENOLCK, ENOSYS, EOPNOTSUPP, EPERM, EINVAL}) {
        lockError = error;
        add("");
        lockError = 0;
    }
    EXPECT_EQ(list.createIfMissing(path), "");
    EXPECT_NE(files.textAtPath(path).text, "") << "the empty list took the place of one that had just come";
}

TEST_F(LocalListTest, ADanglingLinkIsFollowedOrRefused) {
    const fs::path elsewhere = folder.path() / "disk";
    fs::create_symlink("disk/list", path);
    add("it is a link to " + (elsewhere / "list").string() + ", and the folder " + elsewhere.string() +
        " is not there");
    fs::create_directory(elsewhere);
    EXPECT_EQ(list.createIfMissing(path), "");
    fs::remove(elsewhere / "list");
    add("");
    EXPECT_EQ(files.textAtPath(elsewhere / "list").text, "new");
    EXPECT_TRUE(fs::is_symlink(path));
}
