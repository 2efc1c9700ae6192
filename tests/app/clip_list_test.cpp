#include "app/ClipList.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {

const std::string kEnd = "\n-CLIPBOARD'S END-\n";

std::vector<std::string> items(const std::string &text) {
    const auto views = ClipList::componentsSeparatedByTerminator(text);
    return {views.begin(), views.end()};
}

using Items = std::vector<std::string>;

}  // namespace

TEST(ClipList, SplitsAtEveryTerminatorAndKeepsEveryPiece) {
    EXPECT_EQ(kEnd.size(), 19U);
    EXPECT_EQ(items(""), Items{""});
    EXPECT_EQ(items("b" + kEnd + "a" + kEnd), (Items{"b", "a", ""}));
    EXPECT_EQ(items("b" + kEnd + "a"), (Items{"b", "a"}));
    EXPECT_EQ(items(kEnd + kEnd), (Items{"", "", ""}));
    EXPECT_EQ(items("  line one\n\nline two\r\n" + kEnd), (Items{"  line one\n\nline two\r\n", ""}));
    EXPECT_EQ(items("a\0b"s + kEnd + "-CLIPBOARD'S END-"), (Items{"a\0b"s, "-CLIPBOARD'S END-"}));
    EXPECT_EQ(items("x" + kEnd + "y" + kEnd), (Items{"x", "y", ""}))
        << "an entry with a terminator in it reads as two";
    EXPECT_EQ(items("a\n-CLIPBOARD\xE2\x80\x99S END-\n").size(), 1U) << "the apostrophe is the straight one";
}

TEST(ClipList, NewEntriesGoInFront) {
    EXPECT_EQ(ClipList::withEntryInFront("b", "a" + kEnd), "b" + kEnd + "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFront("a", ""), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFront("a", std::nullopt), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", std::nullopt), "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("b", "a"), "b" + kEnd + "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", ""), "a" + kEnd);
}

TEST(ClipList, RemovalIsOfPlainSubstrings) {
    EXPECT_EQ(ClipList::withoutEntry("bc" + kEnd + "x" + kEnd + "bc" + kEnd, "bc"), "x" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("abc" + kEnd + "x" + kEnd, "bc"), "ax" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("b" + kEnd + "a", "a"), "b" + kEnd + "a")
        << "an entry without terminator stays";
    EXPECT_EQ(ClipList::withoutEntry("", "a"), "");
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, "bc"));
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, ""));
    EXPECT_FALSE(ClipList::containsEntry("bc", "bc"));
}
