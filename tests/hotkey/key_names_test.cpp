// What a combination is called on the keyboard in force.

#include <gmock/gmock.h>

#include <QProcess>

#include "hotkey/VkHotKey.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

constexpr std::uint16_t kA = 0, kS = 1, kZ = 6, kCKey = 8, kVKey = 9, kY = 16, k1 = 18, kBracket = 33;
constexpr std::uint16_t kReturn = 36, kSemicolon = 41, kGrave = 50, kPoint = 65, kPad1 = 83;

std::string name(std::uint16_t keyCode, std::uint64_t modifiers = 0) {
    return VkStringFromKeyCode(keyCode, modifiers);
}

TEST(KeyName, IsThatOfTheLayoutInForceBehindTheModifiers) {
    struct Row {
        QStringList layout;
        std::vector<std::pair<int, std::uint64_t>> combinations;
        std::string names;
    };
    constexpr std::uint64_t shift = kVkShiftFlag, alt = kVkOptionFlag;
    for (const Row &row : std::vector<Row>{
             {{"us"},
              {{kVKey, 0x1C0000}, {kCKey, ~0ull}, {kCKey, kVkCapsLockFlag | 0x800000}},
              "⌃⌥⌘v|⌃⌥⇧⌘c|c"},
             {{"us"},
              {{55, 0}, {56, 0}, {58, 0}, {59, 0}, {55, kVkCommandFlag}, {60, shift}, {63, 0}},
              "||||⌘|⇧⇧|⌘"},
             {{"us"}, {{122, 0}, {kReturn, shift}, {76, alt}, {114, alt}, {71, alt}}, "F1|⇧↩|⌥|⌥|⌥"},
             {{"de"}, {{kZ, 0}, {kY, 0}, {kSemicolon, shift}, {kPad1, 0}, {kPoint, 0}}, "y|z|⇧ö|1|,"},
             {{"de"}, {{kGrave, kVkControlFlag}}, "⌃"},  // a dead key
             {{"fr"}, {{kA, 0}, {k1, 0}, {kBracket, 0}}, "q|&|"},
             {{"us", "dvorak"}, {{kS, 0}, {kCKey, 0}}, "o|j"},
             {{"ru"}, {{kCKey, kVkCommandFlag}}, "⌘с"}}) {
        ASSERT_EQ(QProcess::execute("setxkbmap", row.layout), 0);
        std::string names;
        for (const auto &[keyCode, modifiers] : row.combinations)
            names += "|" + name(static_cast<std::uint16_t>(keyCode), modifiers);
        EXPECT_EQ(names, "|" + row.names);
    }
}

}  // namespace
