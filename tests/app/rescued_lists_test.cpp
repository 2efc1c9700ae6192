#include "app/RescuedLists.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

TEST(RescuedLists, KeepTheLatestForTheirUserAlone) {
    const TemporaryFolder home;
    const fs::path folder = home.path() / "rescued";
    fs::path latest;
    RescuedLists lists(folder, [&](const fs::path &copy, RescuedLists::Reason) { latest = copy; });
    for (int i = 0; i < 25; ++i) lists.keepBytes(".a/b", std::to_string(i));
    const auto count = [&] {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    };
    EXPECT_EQ(count(), 20);
    EXPECT_EQ(FileManager().textAtPath(latest).text, "24");
    struct stat status {};
    ASSERT_EQ(stat(latest.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    lists.keepBytes("large", std::string(RescuedLists::kMostBytes, 'x'));
    EXPECT_EQ(count(), 1) << "the others go, the latest stays";
}
