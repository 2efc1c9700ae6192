#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QProcess>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>

#include "hotkey/VkHotKey.h"
#include "hotkey/VkHotKeyUtilities.h"
#include "hotkey/X11Desktop.h"

namespace {

constexpr std::uint16_t kKeyA = 0, kKeyS = 1, kKeyZ = 6, kKeyC = 8, kKeyV = 9, kKeyY = 16, kKey1 = 18;
constexpr std::uint16_t kKeyBracket = 33, kKeySemicolon = 41, kKeyGrave = 50, kKeyPoint = 65,
                        kKeyNumLock = 71;
constexpr std::uint16_t kKeyPadEnter = 76, kKeyPad1 = 83, kKeyInsert = 114;

std::string name(std::uint16_t keyCode, std::uint64_t modifiers = 0) {
    return VkStringFromKeyCode(keyCode, modifiers);
}

void setLayout(const QStringList &arguments) {
    ASSERT_EQ(QProcess::execute("setxkbmap", arguments), 0);
}

// The first: ThreadSanitizer overlooks the locks of a thread that has started a program by QProcess.
TEST(KeyNames, MayBeAskedForOftenAndOnAnyThread) {
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    name(kKeyV);
    const auto before = openFiles();
    const auto askOften = [] {
        for (int i = 0; i < 200; ++i) EXPECT_EQ(name(kKeyV), "v");
    };
    std::thread other(askOften);
    askOften();
    other.join();
    EXPECT_EQ(openFiles(), before);
}

TEST(KeyNames, BeginWithTheModifiersInTheirOrder) {
    setLayout({"us"});
    EXPECT_EQ(name(kKeyV, 0x1C0000), "⌃⌥⌘v");
    EXPECT_EQ(name(kKeyC, ~std::uint64_t{0}), "⌃⌥⇧⌘c");
    EXPECT_EQ(name(kKeyC, kVkCapsLockFlag | 0x800000), "c");
    EXPECT_EQ(name(55, kVkCommandFlag), "⌘");
    for (const std::uint16_t modifierKey : {55, 56, 58, 59}) EXPECT_EQ(name(modifierKey), "");
    EXPECT_EQ(name(60, kVkShiftFlag), "⇧⇧");
    EXPECT_EQ(name(63), "⌘");
    EXPECT_EQ(name(122), "F1");
    EXPECT_EQ(name(36, kVkShiftFlag), "⇧↩");
    for (const std::uint16_t nothing : {kKeyPadEnter, kKeyInsert, kKeyNumLock})
        EXPECT_EQ(name(nothing, kVkOptionFlag), "⌥") << nothing;
    for (const int missing : {52, 127, 200, 0xffff}) EXPECT_EQ(name(static_cast<std::uint16_t>(missing)), "");
}

TEST(KeyNames, AreTheCharactersOfTheLayoutInForce) {
    setLayout({"de"});
    EXPECT_EQ(name(kKeyZ) + name(kKeyY) + name(kKeySemicolon, kVkShiftFlag), "yz⇧ö");
    EXPECT_EQ(name(kKeyGrave, kVkControlFlag), "⌃") << "a dead key";
    EXPECT_EQ(name(kKeyPad1) + name(kKeyPoint), "1,");
    setLayout({"fr"});
    EXPECT_EQ(name(kKeyA) + name(kKey1) + name(kKeyBracket), "q&");
    setLayout({"us", "dvorak"});
    EXPECT_EQ(name(kKeyS) + name(kKeyC), "oj");
    setLayout({"ru"});
    EXPECT_EQ(name(kKeyC, kVkCommandFlag), "⌘с");

    setLayout({"us,ru", "-variant", ","});
    X11Desktop desktop;
    EXPECT_EQ(name(kKeyC), "c");
    desktop.lockGroup(1);
    EXPECT_EQ(name(kKeyC), "с");
    EXPECT_EQ(name(kKeyPad1), "1");
    desktop.lockGroup(0);
    desktop.lockModifiers(XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2);
    desktop.press({kShift});
    EXPECT_EQ(name(kKeyC) + name(kKeyPad1), "c1") << "whatever is held or locked just now";
}

TEST(KeyNames, DoWithoutAnXServer) {
    setLayout({"us"});
    const std::string display = std::getenv("DISPLAY");
    unsetenv("DISPLAY");
    setenv("XKB_DEFAULT_LAYOUT", "fr", true);
    EXPECT_EQ(name(kKeyA, kVkShiftFlag), "⇧q");
    setenv("DISPLAY", display.c_str(), true);
    EXPECT_EQ(name(kKeyA), "a");

    QProcess server;
    server.start("Xvfb", {"-displayfd", "1", "-screen", "0", "64x64x24", "-nolisten", "tcp"});
    ASSERT_TRUE(waitUntil([&] { return server.canReadLine(); }));
    setenv("DISPLAY", (":" + server.readLine().trimmed()).constData(), true);
    EXPECT_EQ(name(kKeyA), "a");
    server.kill();
    server.waitForFinished();
    EXPECT_EQ(name(kKeyA), "q");

    setenv("DISPLAY", "nowhere", true);
    setenv("XKB_DEFAULT_LAYOUT", "no such layout", true);
    EXPECT_EQ(name(kKeyA, kVkShiftFlag), "⇧");
    EXPECT_EQ(name(36), "↩");
    setenv("DISPLAY", display.c_str(), true);
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
