#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FTPManager/FTPListing.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

constexpr sys_seconds kNow = sys_days(2026y / 11 / 23) + 10h;

std::optional<FTPResource> entryOf(const std::string &line, sys_seconds now = kNow) {
    return fm::parseListingLine(line + "\r\n", now).entry;
}

TEST(ListingLine, OfAUnixServer) {
    const sys_seconds date = sys_days(2026y / 11 / 22) + 9h + 5min;
    using enum FTPResourceType;
    const std::vector<std::pair<std::string, FTPResource>> lines = {
        {"-rw-r--r--    1 1000     users        1234 Nov 22 09:05 two  blanks and 12:00 .txt",
         {"two  blanks and 12:00 .txt", kFile, 1234, date, 0644, "1000", "users"}},
        {"drwxr-sr-t+ 12 anna staff 4096 Nov 22 09:05  blank before",
         {" blank before", kFolder, 4096, date, 03755, "anna", "staff"}},
        {"lrwxrwxrwx 1 a b 6 Nov 22 09:05  -> target",
         {" -> target", kSymbolicLink, 6, date, 0777, "a", "b", ""}},
        {"lrwxrwxrwx 1 a b 6 Nov 22 09:05 x -> y -> target",
         {"x -> y", kSymbolicLink, 6, date, 0777, "a", "b", "target"}},
        {"lrwxrwxrwx 1 a b 0 Nov 22 09:05 x -> target",
         {"x", kSymbolicLink, 0, date, 0777, "a", "b", "target"}},
        {"-rwSr-xr-T. 1 a 7 22 nov 09:05 no group", {"no group", kFile, 7, date, 05654, "a"}},
        {"crw-rw---- 1 root tty 4, 64 Nov 22 09:05 ttyS0", {"ttyS0", kOther, 0, date, 0660, "root", "tty"}},
        {"-rw-r--r-- 1 Jan 5 18446744073709551615 2026-11-22 09:05:30.5 +0000 \xC3\xBC",
         {"\xC3\xBC", kFile, 18446744073709551615u, date, 0644, "Jan", "5"}},
        {"-rw-r--r-- a b 1 Feb 29  2024 .hidden",
         {".hidden", kFile, 1, sys_days(2024y / 2 / 29), 0644, "a", "b"}},
    };
    for (const auto &[line, entry] : lines) EXPECT_TRUE(entryOf(line) == entry) << line;
}

TEST(ListingLine, OfADosServer) {
    using enum FTPResourceType;
    const sys_seconds noon = sys_days(2026y / 3 / 4) + 12h + 7min;
    EXPECT_EQ(entryOf("03-04-26  12:07PM       <DIR>          my folder"),
              (FTPResource{.name = "my folder", .type = kFolder, .modificationDate = noon}));
    EXPECT_EQ(entryOf("03-04-1999  12:07AM                 42  x y"),
              (FTPResource{.name = " x y", .size = 42, .modificationDate = sys_days(1999y / 3 / 4) + 7min}));
    EXPECT_EQ(entryOf("2026-03-04  12:07       5 z"),
              (FTPResource{.name = "z", .size = 5, .modificationDate = noon}));
}

TEST(ListingLine, WithoutAYearMeansTheLastTwelveMonths) {
    const auto dateOf = [](const std::string &date, sys_seconds now) {
        return entryOf("-rw-r--r-- 1 a b 1 " + date + " n", now)->modificationDate;
    };
    EXPECT_EQ(dateOf("Nov 24 09:00", kNow), sys_days(2026y / 11 / 24) + 9h) << "a clock that is ahead";
    EXPECT_EQ(dateOf("Nov 25 09:00", kNow), sys_days(2025y / 11 / 25) + 9h);
    EXPECT_EQ(dateOf("Jan  1 00:30", sys_days(2026y / 12 / 31) + 23h), sys_days(2027y / 1 / 1) + 30min);
    EXPECT_EQ(dateOf("Feb 29 12:00", sys_days(2026y / 1 / 1)), sys_days(2024y / 2 / 29) + 12h);
}

TEST(Listing, GivesTheEntriesOfWholeLinesOrNothing) {
    const std::string file = "-rw-r--r-- 1 a b 1 Jan 02  2020 ";
    const auto namesOf = [](const std::string &listing) -> std::optional<std::vector<std::string>> {
        const auto entries = fm::parseListing(listing, kNow);
        if (!entries) return std::nullopt;
        std::vector<std::string> names;
        for (const FTPResource &entry : *entries) names.push_back(entry.name);
        return names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(namesOf(""), Names());
    const std::string whole =
        "total 8\r\ndrwxr-xr-x 2 a b 64 Jan 02  2020 .\r\ndrwxr-xr-x 2 a b 64 Jan 02  2020 ..\r\n" + file +
        "x\n\n" + file + "y\r\n";
    EXPECT_EQ(namesOf(whole), (Names{"x", "y"}));
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        const auto names = namesOf(whole.substr(0, cut));
        ASSERT_TRUE(names);
        EXPECT_EQ(*names, Names(names->size() > 1    ? Names{"x", "y"}
                                : names->size() == 1 ? Names{"x"}
                                                     : Names()))
            << cut;
    }
    for (const std::string bad :
         {"550 No such folder.", "-rw-r--r-- 1 a b 1 Jan 32  2020 x", "-rw-r--r-- 1 a b Jan 02  2020 x",
          "-rw-r--r-- 1 a b 99999999999999999999 Jan 02  2020 x", "-rw-r--r-- 1 a b 1 Jan 02  2020 ",
          "?rw-r--r-- 1 a b 1 Jan 02  2020 x", "02-30-26  12:07PM 5 x", "03-04-26  13:07PM 5 x",
          "03-04-26  12:07PM 5", "total of nothing"})
        EXPECT_EQ(namesOf(file + "x\r\n" + bad + "\r\n" + file + "y\r\n"), std::nullopt) << bad;
}

}  // namespace
