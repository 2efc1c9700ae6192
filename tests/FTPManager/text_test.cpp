#include "FTPManager/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Utf8, IsToldFromOtherBytes) {
    // Behind eight plain letters as well, since those are looked at in one go.
    for (const std::string before : {"", "a", "abcdefgh"}) {
        for (const std::string good :
             {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
              "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
            EXPECT_TRUE(fm::isValidUtf8(before + good + "z")) << testing::PrintToString(good);
        for (const std::string bad :
             {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
              "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",
              "\xE2\x28\xA1", "\xF0\x9F\x28\x80"}) {
            EXPECT_FALSE(fm::isValidUtf8(before + bad)) << testing::PrintToString(bad);
            EXPECT_FALSE(fm::isValidUtf8(before + bad + "zzzzzzzz")) << testing::PrintToString(bad);
        }
    }
    EXPECT_TRUE(fm::isValidUtf8(std::string_view("\0\0", 2)));
}

}  // namespace
