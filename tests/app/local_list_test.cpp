// The list on this machine and the copies of lists, with disks and file systems that fail.
#include "app/LocalList.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>

#include "app/ClipList.h"
#include "app/RescuedLists.h"
#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

// These calls fail with such an error number where one is set, as on a file system that lacks them, is full
// or has lost its server. Those that make a change safe are written down.
static std::map<std::string, int> errorOf;
static std::string calls;

template <class... Arguments>
static long call(const char *name, long number, Arguments... arguments) {
    if (std::strcmp(name, "fsync") == 0 || std::strcmp(name, "rename") == 0) (calls += name) += ' ';
    const auto error = errorOf.find(name);
    if (error == errorOf.end()) return syscall(number, arguments...);
    errno = error->second;
    return -1;
}

extern "C" {
ssize_t read(int fd, void *buffer, size_t size) {
    return call("read", SYS_read, fd, buffer, size);
}
ssize_t write(int fd, const void *bytes, size_t size) {
    return call("write", SYS_write, fd, bytes, size);
}
int fsync(int fd) {
    return static_cast<int>(call("fsync", SYS_fsync, fd));
}
int close(int fd) {
    const long closed = syscall(SYS_close, fd);
    return static_cast<int>(errorOf.contains("close") ? call("close", SYS_close, -1) : closed);
}
int flock(int fd, int what) noexcept {
    return static_cast<int>(call("flock", SYS_flock, fd, what));
}
int rename(const char *from, const char *to) noexcept {
    return static_cast<int>(call("rename", SYS_rename, from, to));
}
}

namespace {

const std::string kUnread = "the list there could not be read: ";

class LocalListTest : public testing::Test {
  protected:
    ~LocalListTest() override { errorOf.clear(); }
    void put(const std::string &bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    // Expects the text to be written, or that problem.
    LocalList::Change add(const std::string &problem = "") {
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
    LocalList list;
};

TEST_F(LocalListTest, AChangeIsOnTheDiskBeforeItTakesTheOldListsPlace) {
    EXPECT_EQ(list.createIfMissing(path), "");
    EXPECT_EQ(calls, "fsync fsync ");
    calls.clear();
    add();
    EXPECT_EQ(calls, "fsync rename fsync ") << "the list, and then the folder that names it";
    EXPECT_EQ(list.createIfMissing(path), "");
    EXPECT_NE(contentOf(path), "") << "the empty list took the place of one that had just come";
}

TEST_F(LocalListTest, AFailedChangeSaysWhyAndLeavesTheOldList) {
    const std::string locked = "its lock " + path.string() + ".lock could not be taken: ";
    struct Row {
        const char *call;
        int error;
        std::string problem;  // before the error's own words; nothing where the change goes on without
    };
    put("good");
    for (const Row &row :
         {Row{"write", ENOSPC, ""}, Row{"fsync", EIO, ""}, Row{"close", EDQUOT, ""}, Row{"rename", EROFS, ""},
          Row{"flock", EIO, locked}, Row{"read", EIO, kUnread}, Row{"read", ENOMEM, kUnread}}) {
        SCOPED_TRACE(row.call);
        errorOf = {{row.call, row.error}};
        const auto change = add(row.problem + std::strerror(row.error));
        errorOf.clear();
        EXPECT_FALSE(change.setAside);
        EXPECT_EQ(list.read(path).text ? *list.lastKnown() : "", "good");
        EXPECT_EQ(filesBeside(), 1U) << "a temporary file was left behind";
    }
    // File systems without it.
    for (const auto &[call, error] : {std::pair("fsync", EINVAL), {"flock", ENOLCK}, {"flock", EOPNOTSUPP}}) {
        errorOf = {{call, error}};
        add();
    }
}

TEST_F(LocalListTest, WhatCannotBeReadNowIsNeitherSetAsideNorWritten) {
    put("good");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = dup(0);
    close(next);
    const rlimit forTheLockAlone{.rlim_cur = static_cast<rlim_t>(next) + 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &forTheLockAlone);
    add(kUnread + std::strerror(EMFILE));
    setrlimit(RLIMIT_NOFILE, &limit);
    fs::resize_file(path, std::uintmax_t{1} << 42U);  // all holes
    add(kUnread + "it is too big for the memory");
    fs::remove(path);
    mkfifo(path.c_str(), 0600);
    add(kUnread + "it is a pipe, not a file");
    EXPECT_EQ(filesBeside(), 1U);
}

TEST_F(LocalListTest, WhatIsNoTextIsSetAsideAndTold) {
    put("known");
    add();
    put("precious \xFF bytes");
    const auto change = add();
    ASSERT_TRUE(change.setAside);
    EXPECT_EQ(*change.lastKnown, "new\n-CLIPBOARD'S END-\nknown");
    EXPECT_EQ(contentOf(*change.setAside), "precious \xFF bytes");
    EXPECT_EQ(contentOf(path), "new");
    put("\xFF again");
    EXPECT_NE(list.empty(path).setAside, change.setAside);
    EXPECT_EQ(contentOf(path), "");
}

TEST_F(LocalListTest, OneProgramAfterTheOtherChangesIt) {
    std::ofstream(path.string() + ".new-Ab12yZ") << "half a li";
    {
        const FileLock another(path);
        EXPECT_EQ(FileLock(path, std::chrono::milliseconds(20)).problem(),
                  "another program is changing it and does not come to an end");
    }
    add();
    EXPECT_EQ(filesBeside(), 1U) << "what a killed program left stays";
}

TEST_F(LocalListTest, ALinkIsFollowed) {
    fs::create_symlink("elsewhere", path);
    add();
    EXPECT_EQ(contentOf(folder.path() / "elsewhere"), "new");
    EXPECT_TRUE(fs::is_symlink(path));
}

// Whatever they had announced by then is in the list.
TEST_F(LocalListTest, TwoProgramsKilledAtAnyInstantLoseNothing) {
    const std::string oldest(300'000, 'o');
    put(oldest);
    for (int round = 0; round < 12; ++round) {
        const auto text = [round](int program, int n) {
            return std::to_string(round) + "ab"[program] + std::to_string(n) + std::string(n % 7 * 500U, 'x');
        };
        pid_t programs[2];
        int said[2][2];
        for (int k = 0; k < 2; ++k) {
            ASSERT_EQ(pipe(said[k]), 0);
            programs[k] = fork();
            if (programs[k] == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (int n = 0; programs[k] == 0; ++n)
                if (list.add(path, text(k, n)).isWritten && ::write(said[k][1], "!", 1) != 1) _exit(1);
            close(said[k][1]);
        }
        std::array<char, 1000> buffer;
        for (const auto &pipe : said) ASSERT_EQ(::read(pipe[0], buffer.data(), 1), 1);
        usleep(static_cast<useconds_t>(1000 * round));
        for (const pid_t program : programs) {
            kill(program, SIGKILL);
            waitpid(program, nullptr, 0);
        }
        const std::string whole = contentOf(path);
        EXPECT_TRUE(whole.ends_with(oldest)) << "empty or cut";
        const auto entries = ClipList::componentsSeparatedByTerminator(whole);
        for (int k = 0; k < 2; ++k) {
            const ssize_t announced = 1 + ::read(said[k][0], buffer.data(), buffer.size());
            close(said[k][0]);
            for (int n = 0; n < announced; ++n)
                EXPECT_EQ(std::ranges::count(entries, text(k, n)), 1) << "lost or twice";
        }
    }
}

TEST(RescuedLists, KeepTheLatest) {
    const TemporaryFolder folder;
    fs::path latest;
    RescuedLists lists(folder.path(), [&](const fs::path &copy, RescuedLists::Reason) { latest = copy; });
    const auto count = [&] { return std::distance(fs::directory_iterator(folder.path()), {}); };
    for (int i = 0; i < 25; ++i) lists.keepBytes(".a/b", std::to_string(i));
    EXPECT_EQ(count(), 20);
    EXPECT_EQ(contentOf(latest), "24");
    lists.keepBytes("large", std::string(RescuedLists::kMostBytes, 'x'));
    EXPECT_EQ(count(), 1) << "the others go, the latest stays";
}

}  // namespace
