#include "platform/Text.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(Text, TellsUtf8FromOtherBytes) {
    for (const std::string &good :
         {""s, "plain ascii, long enough for whole words"s, "\0"s, "\xC3\xA4"s, "\xE2\x82\xAC"s,
          "\xF0\x9F\x98\x80"s, "\xEF\xBB\xBF"s, "\xF4\x8F\xBF\xBF"s, "12345678\xC3\xA4"s}) {
        EXPECT_TRUE(isValidUtf8(good)) << testing::PrintToString(good);
    }
    for (const std::string &bad :
         {"\x80"s, "\xC3"s, "\xC0\x80"s, "\xE0\x80\x80"s, "\xED\xA0\x80"s, "\xF0\x80\x80\x80"s,
          "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "12345678\xFF"s, "1234567\xE2\x82"s}) {
        EXPECT_FALSE(isValidUtf8(bad)) << testing::PrintToString(bad);
    }
}

TEST(Text, ComesBackFromQStringByteForByte) {
    for (const std::string &text : {"\xEF\xBB\xBF"
                                    "begins with a mark"s,
                                    "a\0b"s, "\xF0\x9F\x98\x80 e\xCC\x81 \xD7\xA9\xD7\x9C"s, "\r\n\t"s}) {
        EXPECT_EQ(toUtf8(toQString(text)), text);
    }
}

TEST(Text, OneLineStandsForAnyText) {
    EXPECT_EQ(oneLine("plain  with blanks "), QStringLiteral("plain  with blanks "));
    EXPECT_EQ(oneLine("\n\n  first words\nsecond line\tend"), QStringLiteral("first words second line end"));
    EXPECT_EQ(oneLine("a\0b"s), QString::fromUtf8("a\xE2\x90\x80"
                                                  "b"));
    EXPECT_EQ(oneLine(std::string(5'000'000, 'x')).size(), 201);
    EXPECT_TRUE(oneLine(std::string(5'000'000, 'x')).endsWith(QChar(0x2026)));
    // Never half a character, wherever the cut falls.
    std::string emoji;
    for (int i = 0; i < 500; ++i) emoji += "\xF0\x9F\x98\x80";
    for (const std::size_t limit : {3U, 4U, 5U}) {
        EXPECT_FALSE(oneLine(emoji, limit).contains(QChar::ReplacementCharacter));
        EXPECT_FALSE(oneLine("x" + emoji, limit).chopped(1).back().isHighSurrogate());
    }
}
