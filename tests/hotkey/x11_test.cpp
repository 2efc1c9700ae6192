#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QProcess>
#include <csignal>
#include <map>
#include <vector>

#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"
#include "hotkey/X11BackEnd.h"
#include "hotkey/X11Desktop.h"

namespace {

constexpr std::uint16_t kKeyCodeC = 8, kKeyCodeV = 9, kKeyCodeA = 0, kKeyCodeF19 = 80;
constexpr std::uint64_t kCommandShift = kVkCommandFlag | kVkShiftFlag;
constexpr std::uint16_t kCommandShiftState = XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT;

class X11HotKey : public testing::Test {
  protected:
    void SetUp() override { other.focusOwnWindow(); }

    std::shared_ptr<VkHotKey> add(std::uint16_t keyCode = kKeyCodeC, std::uint64_t flags = kCommandShift) {
        return center.registerHotKeyWithKeyCode(
            keyCode, flags, [this](const VkKeyEvent &e) { fired[e.keyCode].push_back(e); });
    }

    /// How often the hot key has fired, after everything that the X server has reported so far is dealt with:
    /// the reply to a registration comes after all earlier events, and what they cause is in the event loop
    /// then.
    std::size_t count(std::uint16_t keyCode = kKeyCodeC) {
        const auto barrier = add(kKeyCodeF19, 0);
        EXPECT_TRUE(barrier) << center.lastFailure().value_or("");
        center.unregisterHotKey(barrier);
        QCoreApplication::processEvents();
        return fired[keyCode].size();
    }
    bool waitForCount(std::size_t wanted, std::uint16_t keyCode = kKeyCodeC) {
        return waitUntil([&] { return fired[keyCode].size() >= wanted; }) && count(keyCode) == wanted;
    }
    void type(std::uint8_t key = kC, std::uint8_t super = kSuper) {
        other.press({super, kShift, key});
        other.release({key, kShift, super});
    }

    X11Desktop other;
    VkHotKeyCenter center{[] { return hotkey::openX11BackEnd(); }};
    std::map<std::uint16_t, std::vector<VkKeyEvent>> fired;
};

TEST_F(X11HotKey, FiresOnceWhenTheKeyIsReleasedInAnyOrder) {
    ASSERT_TRUE(add());
    other.movePointer(123, 45);
    other.press({kSuper, kShift, kC});
    EXPECT_EQ(count(), 0u);
    other.release({kC});
    ASSERT_TRUE(waitForCount(1));
    const VkKeyEvent event = fired[kKeyCodeC].front();
    EXPECT_EQ(event.location, QPoint(123, 45));
    EXPECT_EQ(event.modifierFlags, kCommandShift);
    EXPECT_GT(event.timestamp.count(), 0);
    other.release({kShift, kSuper});

    other.press({kSuper, kShift, kC});
    other.release({kSuper, kShift});
    EXPECT_EQ(count(), 1u);
    other.release({kC});
    ASSERT_TRUE(waitForCount(2));
    EXPECT_EQ(fired[kKeyCodeC].back().modifierFlags, 0u);

    other.press({kSuper, kShift, kC, kControl});  // more modifiers while it is held
    other.release({kC, kControl, kShift, kSuper});
    EXPECT_TRUE(waitForCount(3));
    EXPECT_EQ(other.pressesSeen(kC), 0);

    other.press(
        {kSuper, kC, kShift});  // the wrong order and the wrong modifiers are another program's affair
    other.release({kC, kShift, kSuper});
    other.press({kSuper, kShift, kAlt, kC});
    other.release({kC, kAlt, kShift, kSuper});
    EXPECT_EQ(count(), 3u);
    EXPECT_EQ(other.pressesSeen(kC), 2);
}

TEST_F(X11HotKey, IgnoresEveryMixOfLockKeysUnlessItAsksForCapsLock) {
    other.putOnModifier(3, {78});  // the Scroll Lock key
    ASSERT_TRUE(add() && add(kKeyCodeV, kCommandShift | kVkCapsLockFlag));
    for (std::size_t mix = 0; mix < 8; ++mix) {
        other.lockModifiers(mix & 4 ? kScrollLockMask : 0);
        if (mix & 1) other.tap(kCapsLock);
        if (mix & 2) other.tap(kNumLock);
        const int state = (mix & 1 ? XCB_MOD_MASK_LOCK : 0) | (mix & 2 ? XCB_MOD_MASK_2 : 0) |
                          (mix & 4 ? kScrollLockMask : 0);
        ASSERT_EQ(other.modifierState(), state);
        type(kC), type(kV);
        EXPECT_TRUE(waitForCount(mix + 1)) << "mix " << mix;
        EXPECT_EQ(fired[kKeyCodeC].back().modifierFlags, kCommandShift | (mix & 1 ? kVkCapsLockFlag : 0));
        EXPECT_EQ(count(kKeyCodeV), (mix + 1) / 2) << "mix " << mix;
    }
    EXPECT_FALSE(add(kKeyCodeC, kCommandShift | kVkCapsLockFlag)) << "contained in the one without Caps Lock";
}

TEST_F(X11HotKey, FailsWholeWhenAnotherProgramHoldsOneMix) {
    const std::uint16_t numLocked = kCommandShiftState | XCB_MOD_MASK_2;
    ASSERT_TRUE(other.grab(numLocked, kC));
    EXPECT_FALSE(add());
    EXPECT_THAT(*center.lastFailure(), testing::HasSubstr("another program"));
    X11Desktop third;
    for (const int mix : {0, 2, 2 | 16}) {
        EXPECT_TRUE(third.grab(static_cast<std::uint16_t>(kCommandShiftState | mix), kC)) << mix;
        third.ungrab(static_cast<std::uint16_t>(kCommandShiftState | mix), kC);
    }
    other.ungrab(numLocked, kC);
    EXPECT_TRUE(add());
    EXPECT_FALSE(third.grab(kCommandShiftState, kC));
    EXPECT_FALSE(add(63)) << "no X key has the code of the Fn key";
    EXPECT_FALSE(add(200));
}

TEST_F(X11HotKey, LeavesTheKeysToOthersOnceUnregistered) {
    const auto hotKey = add();
    ASSERT_TRUE(hotKey);
    other.press({kSuper, kShift, kC});
    EXPECT_EQ(count(), 0u);
    center.unregisterHotKey(hotKey);
    other.release({kC, kShift, kSuper});
    type();
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(other.pressesSeen(kC), 1);
    EXPECT_TRUE(other.grab(kCommandShiftState, kC));
}

TEST_F(X11HotKey, FiresEachOfSeveralHeldAtOnceEvenIfAReleaseIsReportedToNobody) {
    ASSERT_TRUE(add(kKeyCodeC) && add(kKeyCodeV));
    for (std::size_t round = 1; round <= 2; ++round) {
        other.press({kSuper, kShift, kC, kV});
        other.release({kC});  // ends the grab, so that the other release goes to the focused window
        ASSERT_TRUE(waitForCount(round, kKeyCodeC));
        EXPECT_EQ(count(kKeyCodeV), round - 1);
        other.release({kV, kShift, kSuper});
        EXPECT_TRUE(waitForCount(round, kKeyCodeV));
        EXPECT_EQ(count(kKeyCodeC), round);
    }
}

TEST_F(X11HotKey, GoesOnFiringWhileAnActionRunsAnEventLoop) {
    ASSERT_TRUE(add(kKeyCodeV));
    bool inTime = false;
    ASSERT_TRUE(center.registerHotKeyWithKeyCode(kKeyCodeA, kCommandShift, [&](const VkKeyEvent &) {
        inTime = waitForCount(1, kKeyCodeV);
        fired[kKeyCodeA].emplace_back();
    }));
    type(kA), type(kV);  // reported together
    EXPECT_TRUE(waitForCount(1, kKeyCodeA));
    EXPECT_TRUE(inTime);
}

TEST_F(X11HotKey, FollowsTheKeyboard) {
    ASSERT_TRUE(add());
    other.putOnModifier(3, {kSuper});
    const auto firesAfterAWhile = [&](std::size_t wanted, std::uint8_t super = kSuper) {
        return waitUntil([&] {
            type(kC, super);
            return count() == wanted;
        });
    };
    ASSERT_TRUE(firesAfterAWhile(1));
    EXPECT_TRUE(other.grab(kCommandShiftState, kC)) << "the old combination is kept";
    other.ungrab(kCommandShiftState, kC);

    const auto setKeyboard = [](const QStringList &arguments) {
        EXPECT_EQ(QProcess::execute("setxkbmap", arguments), 0);
    };
    setKeyboard({"us,ru"});
    other.lockGroup(1);  // the place stays, whatever character it gives
    EXPECT_TRUE(firesAfterAWhile(2));
    setKeyboard({"us", "-option", "altwin:swap_alt_win"});
    EXPECT_TRUE(firesAfterAWhile(3, kAlt));
    type();
    EXPECT_EQ(count(), 3u) << "Super is where Alt was";
    setKeyboard({"us", "-option", ""});
    EXPECT_TRUE(firesAfterAWhile(4));
}

TEST_F(X11HotKey, TakesACombinationAgainThatAKeyboardHadTakenAway) {
    hotkey::setLogSink([](std::string_view) {});
    const auto hotKey = add();
    ASSERT_TRUE(hotKey);
    std::vector<std::string> losses;
    center.setRegistrationLostHandler([&](const std::shared_ptr<VkHotKey> &lost, const std::string &reason) {
        EXPECT_EQ(lost, hotKey);
        losses.push_back(reason);
    });
    center.setRegistrationRegainedHandler([&](const auto &) { losses.emplace_back("again"); });
    other.putOnModifier(3, {kSuper, kRightSuper, kVirtualSuper});
    ASSERT_TRUE(other.grab(XCB_MOD_MASK_3 | XCB_MOD_MASK_SHIFT, kC));
    type();
    EXPECT_EQ(count(), 0u);
    other.putOnModifier(4, {kSuper, kRightSuper, kVirtualSuper});
    ASSERT_TRUE(waitUntil([&] {
        type();
        return count() == 1u;
    }));
    EXPECT_THAT(losses, testing::IsEmpty()) << "what is away for a moment only is not worth a word";

    other.putOnModifier(3, {kSuper, kRightSuper, kVirtualSuper});
    ASSERT_TRUE(waitUntil([&] { return !losses.empty(); }));
    EXPECT_THAT(losses, testing::ElementsAre(testing::HasSubstr("another program")));
    EXPECT_EQ(center.lastFailure(), losses.front());
    EXPECT_TRUE(hotKey->hotKeyRef());
    other.ungrab(XCB_MOD_MASK_3 | XCB_MOD_MASK_SHIFT, kC);
    other.putOnModifier(4, {kSuper, kRightSuper, kVirtualSuper});
    EXPECT_TRUE(waitUntil([&] {
        type();
        return count() == 2u;
    }));
    EXPECT_EQ(losses.back(), "again");
    EXPECT_EQ(center.lastFailure(), std::nullopt);
    hotkey::setLogSink(nullptr);
}

TEST_F(X11HotKey, OutlivesTheServer) {
    OtherXServer server;
    std::vector<std::string> lines;
    hotkey::setLogSink([&](std::string_view line) { lines.emplace_back(line); });

    VkHotKeyCenter remote([&] { return hotkey::openX11BackEnd(server.display); });
    const auto add = [&](std::uint16_t keyCode) {
        return remote.registerHotKeyWithKeyCode(keyCode, kCommandShift,
                                                [](const VkKeyEvent &) { ADD_FAILURE(); });
    };
    const auto hotKey = add(kKeyCodeC);
    ASSERT_TRUE(hotKey);
    X11Desktop hands(server.display);
    hands.press({kSuper, kShift, kC});
    server.process.kill();
    EXPECT_TRUE(waitUntil([&] { return !lines.empty(); }));
    EXPECT_FALSE(hotKey->hotKeyRef());
    EXPECT_FALSE(add(kKeyCodeV));
    EXPECT_THAT(*remote.lastFailure(), testing::HasSubstr("cannot connect")) << "it looks for a server again";
    remote.unregisterHotKey(hotKey);
    EXPECT_EQ(lines.size(), 1u);
    hotkey::setLogSink(nullptr);
    server.process.waitForFinished();
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
