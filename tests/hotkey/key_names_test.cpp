// What a combination is called on the keyboard in force.

#include <gmock/gmock.h>

#include <QProcess>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>

#include "hotkey/VkHotKey.h"
#include "hotkey/VkHotKeyUtilities.h"
#include "hotkey/X11Desktop.h"

namespace {

constexpr std::uint16_t kA = 0, kS = 1, kZ = 6, kCKey = 8, kVKey = 9, kY = 16, k1 = 18, kBracket = 33;
constexpr std::uint16_t kReturn = 36, kSemicolon = 41, kGrave = 50, kPoint = 65, kPad1 = 83;

std::string name(std::uint16_t keyCode, std::uint64_t modifiers = 0) {
    return VkStringFromKeyCode(keyCode, modifiers);
}

// The first: ThreadSanitizer overlooks the locks of a thread that has started a program by QProcess.
TEST(AFirstKeyName, MayBeAskedForOftenAndOnAnyThread) {
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    name(kVKey);
    const auto before = openFiles();
    const auto askOften = [] {
        for (int i = 0; i < 200; ++i) EXPECT_EQ(name(kVKey), "v");
    };
    std::thread other(askOften);
    askOften();
    other.join();
    EXPECT_EQ(openFiles(), before);
}

TEST(KeyName, IsThatOfTheLayoutInForceBehindTheModifiers) {
    struct Row {
        QStringList layout;
        std::uint16_t keyCode;
        std::uint64_t modifiers;
        std::string name;
    };
    const QStringList us{"us"}, german{"de"}, french{"fr"}, dvorak{"us", "dvorak"}, russian{"ru"};
    for (const Row &row :
         std::vector<Row>{{us, kVKey, 0x1C0000, "⌃⌥⌘v"},
                          {us, kCKey, ~std::uint64_t{0}, "⌃⌥⇧⌘c"},
                          {us, kCKey, kVkCapsLockFlag | 0x800000, "c"},
                          {us, 55, kVkCommandFlag, "⌘"},
                          {us, 55, 0, ""},  // modifiers themselves
                          {us, 56, 0, ""},
                          {us, 58, 0, ""},
                          {us, 59, 0, ""},
                          {us, 60, kVkShiftFlag, "⇧⇧"},
                          {us, 63, 0, "⌘"},
                          {us, 122, 0, "F1"},
                          {us, kReturn, kVkShiftFlag, "⇧↩"},
                          {us, 76, kVkOptionFlag, "⌥"},  // keys without a name: Enter, Insert and Num Lock
                          {us, 114, kVkOptionFlag, "⌥"},
                          {us, 71, kVkOptionFlag, "⌥"},
                          {us, 52, 0, ""},
                          {us, 127, 0, ""},
                          {us, 200, 0, ""},
                          {us, 0xffff, 0, ""},
                          {german, kZ, 0, "y"},
                          {german, kY, 0, "z"},
                          {german, kSemicolon, kVkShiftFlag, "⇧ö"},
                          {german, kGrave, kVkControlFlag, "⌃"},  // a dead key
                          {german, kPad1, 0, "1"},
                          {german, kPoint, 0, ","},
                          {french, kA, 0, "q"},
                          {french, k1, 0, "&"},
                          {french, kBracket, 0, ""},
                          {dvorak, kS, 0, "o"},
                          {dvorak, kCKey, 0, "j"},
                          {russian, kCKey, kVkCommandFlag, "⌘с"}}) {
        static QStringList layout;
        if (std::exchange(layout, row.layout) != row.layout) {
            ASSERT_EQ(QProcess::execute("setxkbmap", row.layout), 0);
        }
        EXPECT_EQ(name(row.keyCode, row.modifiers), row.name) << row.layout[0].toStdString() << row.keyCode;
    }
    ASSERT_EQ(QProcess::execute("setxkbmap", {"us,ru", "-variant", ","}), 0);
    X11Desktop desktop;
    EXPECT_EQ(name(kCKey), "c");
    desktop.lockGroup(1);
    EXPECT_EQ(name(kCKey) + name(kPad1), "с1");
    desktop.lockGroup(0);
    desktop.lockModifiers(XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2);
    desktop.press({kShift});
    EXPECT_EQ(name(kCKey) + name(kPad1), "c1") << "whatever is held or locked just now";
}

TEST(KeyName, DoesWithoutAnXServer) {
    ASSERT_EQ(QProcess::execute("setxkbmap", {"us"}), 0);
    const std::string display = std::getenv("DISPLAY");
    setenv("XKB_DEFAULT_LAYOUT", "fr", true);
    EXPECT_EQ(name(kA), "a");
    unsetenv("DISPLAY");
    EXPECT_EQ(name(kA, kVkShiftFlag), "⇧q");

    OtherXServer server;
    setenv("DISPLAY", server.display.c_str(), true);
    EXPECT_EQ(name(kA), "a");
    server.process.kill();
    server.process.waitForFinished();
    EXPECT_EQ(name(kA), "q");

    setenv("DISPLAY", "nowhere", true);
    setenv("XKB_DEFAULT_LAYOUT", "no such layout", true);
    EXPECT_EQ(name(kA, kVkShiftFlag), "⇧");
    EXPECT_EQ(name(kReturn), "↩");
    setenv("DISPLAY", display.c_str(), true);
    unsetenv("XKB_DEFAULT_LAYOUT");
}

}  // namespace
