#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <vector>

#include "hotkey/BackEnd.h"
#include "hotkey/PortalDesktop.h"
#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"
#include "support/WaitFor.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint16_t kKeyCodeC = 8, kKeyCodeV = 9, kKeyCodeF5 = 96;
constexpr std::uint64_t kCommandShift = kVkCommandFlag | kVkShiftFlag;

/// A program with hot keys, which has a bus connection of its own.
class Program {
  public:
    Program() {
        center.setRegistrationLostHandler([this](const auto &hotKey, const std::string &reason) {
            losses.push_back((hotKey->hotKeyRef() ? "kept: " : "") + reason);
        });
        center.setRegistrationRegainedHandler([this](const auto &) { losses.emplace_back("again"); });
    }
    std::shared_ptr<VkHotKey> add(std::uint16_t keyCode = kKeyCodeC, std::uint64_t flags = kCommandShift) {
        return center.registerHotKeyWithKeyCode(keyCode, flags,
                                                [this](const VkKeyEvent &event) { fired.push_back(event); });
    }
    std::vector<std::uint16_t> firedKeyCodes() const {
        std::vector<std::uint16_t> codes;
        for (const VkKeyEvent &event : fired) codes.push_back(event.keyCode);
        return codes;
    }

    VkHotKeyCenter center{hotkey::openBackEndOfSession};
    std::vector<VkKeyEvent> fired;
    std::vector<std::string> losses;
};

class PortalHotKey : public testing::Test {
  protected:
    static void SetUpTestSuite() { shared = std::make_unique<PortalDesktop>(); }
    static void TearDownTestSuite() { shared.reset(); }
    void SetUp() override {
        desktop.restart();
        hotkey::setLogSink([this](std::string_view line) { log.emplace_back(line); });
    }
    void TearDown() override { hotkey::setLogSink(nullptr); }

    void type(const AskedShortcut &shortcut) { desktop.press(shortcut), desktop.release(shortcut); }
    bool firesOnce(const AskedShortcut &shortcut) {
        const std::size_t before = program.fired.size();
        type(shortcut);
        return waitFor([&] { return program.fired.size() > before; }) && program.fired.size() == before + 1;
    }
    bool loses() {
        return waitFor([&] { return !program.losses.empty(); });
    }

    inline static std::unique_ptr<PortalDesktop> shared;
    PortalDesktop &desktop = *shared;
    std::vector<std::string> log;
    Program program;
};

TEST_F(PortalHotKey, FiresOnceForEachPressWhenItIsReleased) {
    program.center.setPurpose("Save the clipboard");
    ASSERT_EQ(QProcess::execute("setxkbmap", {"ru,us"}), 0);
    ASSERT_TRUE(program.add()) << program.center.lastFailure().value_or("");
    const auto first = desktop.asked(1);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->trigger, "LOGO+SHIFT+c") << "the keyboard's Latin side";
    EXPECT_EQ(first->description, "Save the clipboard");
    program.center.setPurpose({});
    ASSERT_TRUE(program.add(kKeyCodeF5, kVkControlFlag | kVkOptionFlag));
    const auto second = desktop.asked(2);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->trigger, "CTRL+ALT+F5");
    EXPECT_THAT(second->description.toStdString(), HasSubstr("CTRL+ALT+F5"));

    desktop.press(*first);
    EXPECT_TRUE(firesOnce(*second)) << "the first is still held";
    desktop.release(*first);
    desktop.release(*first);
    type(*second);
    ASSERT_TRUE(waitFor([&] { return program.fired.size() >= 3; }));
    EXPECT_THAT(program.firedKeyCodes(), ElementsAre(kKeyCodeF5, kKeyCodeC, kKeyCodeF5));
    EXPECT_EQ(program.fired[1].modifierFlags, kCommandShift);
    EXPECT_EQ(program.fired[1].timestamp.count(), 77);

    EXPECT_FALSE(program.add(kKeyCodeC, kCommandShift | 0x800000)) << "the same keys";
    EXPECT_FALSE(program.add(kKeyCodeV, kVkCapsLockFlag));
    EXPECT_THAT(*program.center.lastFailure(), HasSubstr("Caps Lock"));
    EXPECT_FALSE(program.add(200));
    EXPECT_THAT(program.losses, IsEmpty());
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(PortalHotKey, IsGivenBackAtOnceAndCanBeTakenAgain) {
    const auto hotKey = program.add();
    ASSERT_TRUE(hotKey && desktop.asked(1));
    program.center.unregisterHotKey(hotKey);
    EXPECT_TRUE(waitFor([&] { return desktop.openSessions() == 0; }));
    ASSERT_TRUE(program.center.registerHotKey(hotKey));
    program.center.unregisterHotKey(hotKey);  // before the portal has answered
    ASSERT_TRUE(program.center.registerHotKey(hotKey));
    const auto asked = desktop.asked(2);
    ASSERT_TRUE(asked);
    EXPECT_TRUE(firesOnce(*asked));
    EXPECT_TRUE(waitFor([&] { return desktop.openSessions() == 1; }));
    EXPECT_THAT(program.losses, IsEmpty());
}

TEST_F(PortalHotKey, DoesNotWaitForTheUserAndTellsARefusal) {
    desktop.answerWith(PortalDesktop::kNotYet);
    const auto hotKey = program.add();
    ASSERT_TRUE(hotKey && desktop.asked(1));
    EXPECT_TRUE(hotKey->hotKeyRef());
    EXPECT_THAT(program.losses, IsEmpty());
    desktop.answerOpenQuestions(PortalDesktop::kNo);
    ASSERT_TRUE(loses());
    EXPECT_THAT(program.losses, ElementsAre(HasSubstr("refused when the desktop asked")));
    EXPECT_EQ(program.center.lastFailure(), program.losses.front());
    EXPECT_FALSE(hotKey->hotKeyRef());
    EXPECT_FALSE(program.center.hasRegisteredHotKeyWithKeyCode(kKeyCodeC, kCommandShift));
    EXPECT_TRUE(waitFor([&] { return desktop.openSessions() == 0; }));

    for (const auto &[answer, words] : {std::pair{PortalDesktop::kFailure, "could not set the hot key up"},
                                        std::pair{PortalDesktop::kNothingChosen, "left out"}}) {
        program.losses.clear();
        desktop.answerWith(answer);
        ASSERT_TRUE(program.add());
        ASSERT_TRUE(loses());
        EXPECT_THAT(program.losses, ElementsAre(HasSubstr(words)));
    }
}

TEST_F(PortalHotKey, IsLostWhenTheDesktopEndsItsSession) {
    const auto lost = program.add(), other = program.add(kKeyCodeV);
    ASSERT_TRUE(lost && other);
    const auto asked = desktop.asked(2);
    ASSERT_TRUE(asked);
    const bool isOfOther = asked->trigger.endsWith('v');
    desktop.closeSession(*asked);
    ASSERT_TRUE(loses());
    EXPECT_THAT(program.losses, ElementsAre(HasSubstr("the desktop has ended the hot key")));
    EXPECT_FALSE((isOfOther ? other : lost)->hotKeyRef());
    EXPECT_TRUE((isOfOther ? lost : other)->hotKeyRef());
}

TEST_F(PortalHotKey, IsNotFiredByAnotherProgramsKeys) {
    Program second;
    ASSERT_TRUE(program.add());
    const auto ours = desktop.asked(1);
    ASSERT_TRUE(second.add());
    const auto others = desktop.asked(2);
    ASSERT_TRUE(program.add(kKeyCodeF5));
    const auto last = desktop.asked(3);
    ASSERT_TRUE(ours && others && last);
    EXPECT_EQ(ours->id, others->id);
    type(*others), type(*last);  // signals come in order, so what follows the last is all there is
    EXPECT_TRUE(waitFor([&] { return program.fired.size() + second.fired.size() >= 2; }));
    EXPECT_THAT(program.firedKeyCodes(), ElementsAre(kKeyCodeF5));
    EXPECT_THAT(second.firedKeyCodes(), ElementsAre(kKeyCodeC));
}

TEST_F(PortalHotKey, WorksOnWhenThePortalIsStartedAgain) {
    const auto hotKey = program.add();
    const auto before = desktop.asked(1);
    ASSERT_TRUE(hotKey && before);
    desktop.press(*before);
    desktop.endPortal();
    ASSERT_TRUE(waitFor([&] { return !log.empty(); }));
    EXPECT_FALSE(program.add(kKeyCodeV));
    EXPECT_THAT(*program.center.lastFailure(), HasSubstr("no portal"));

    desktop.startPortal();
    const auto again = desktop.asked(2);
    ASSERT_TRUE(again);
    EXPECT_NE(again->session, before->session);
    EXPECT_TRUE(firesOnce(*again));
    EXPECT_TRUE(hotKey->hotKeyRef());
    ASSERT_TRUE(program.add(kKeyCodeV));
    const auto other = desktop.asked(3);
    ASSERT_TRUE(other);
    EXPECT_TRUE(firesOnce(*other));
    EXPECT_THAT(program.losses, IsEmpty());

    desktop.endPortal();
    desktop.startPortal(false);  // one that cannot do it any more
    ASSERT_TRUE(waitFor([&] { return program.losses.size() == 2; }));
    EXPECT_THAT(program.losses, testing::Each(HasSubstr("has no global shortcuts")));
}

TEST_F(PortalHotKey, TellsOfAPortalThatStaysAway) {
    ASSERT_TRUE(program.add() && desktop.asked(1));
    desktop.endPortal();
    ASSERT_TRUE(waitFor([&] { return !program.losses.empty(); }, 20'000));
    EXPECT_THAT(program.losses, ElementsAre("kept: the desktop portal has ended and not come back"));
    desktop.startPortal();
    const auto again = desktop.asked(2);
    ASSERT_TRUE(again);
    EXPECT_TRUE(firesOnce(*again));
    EXPECT_THAT(program.losses, ElementsAre(HasSubstr("not come back"), "again"));
}

TEST_F(PortalHotKey, HoldsNothingUpWhileThePortalDoesNotAnswer) {
    const auto old = program.add();
    ASSERT_TRUE(old && desktop.asked(1));
    const auto isPrompt = [](const auto &action) {
        QElapsedTimer timer;
        timer.start();
        action();
        return timer.elapsed() < 300;  // and not 100, for a busy machine
    };
    desktop.setHung(true);
    std::optional<Program> slow(std::in_place), hung(std::in_place);
    EXPECT_TRUE(isPrompt([&] { EXPECT_TRUE(slow->add(kKeyCodeV)); }));
    EXPECT_TRUE(isPrompt([&] { slow->center.unregisterHotKey(slow->add(kKeyCodeF5)); }));
    EXPECT_TRUE(isPrompt([&] { program.center.unregisterHotKey(old); }));
    desktop.setHung(false);
    const auto asked = desktop.asked(2);
    ASSERT_TRUE(asked);
    type(*asked);
    EXPECT_TRUE(waitFor([&] { return slow->firedKeyCodes() == std::vector{kKeyCodeV}; }));
    EXPECT_TRUE(waitFor([&] { return desktop.openSessions() == 1; }));

    desktop.setHung(true);
    EXPECT_TRUE(isPrompt([&] { EXPECT_TRUE(hung->add(kKeyCodeF5)); }));
    EXPECT_TRUE(waitFor([&] { return !log.empty(); }, 10'000));
    EXPECT_THAT(log,
                ElementsAre(AllOf(HasSubstr("only those in X11 windows"), HasSubstr("does not answer"))));
    Program other;
    qunsetenv("WAYLAND_DISPLAY");
    EXPECT_FALSE(other.add(kKeyCodeF5)) << "the X server has given it away";
    qputenv("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_TRUE(isPrompt([&] {
        slow.reset();
        hung.reset();
    }));
    desktop.setHung(false);
}

// The last: the process cannot go to another bus afterwards.
TEST_F(PortalHotKey, IsReplacedByTheXServerOrElseEachReasonIsGiven) {
    ASSERT_TRUE(program.add() && desktop.asked(1));
    const QByteArray display = qgetenv("DISPLAY");
    qunsetenv("DISPLAY");
    const auto reason = [] {
        Program another;
        EXPECT_FALSE(another.add());
        return *another.center.lastFailure();
    };
    desktop.endPortal();
    EXPECT_THAT(reason(), AllOf(HasSubstr("this desktop has no portal"), HasSubstr("no X server")));
    desktop.startPortal(false);
    EXPECT_THAT(reason(), AllOf(HasSubstr("no global shortcuts"), HasSubstr("no X server")));

    ASSERT_TRUE(loses());
    desktop.restart();
    ASSERT_TRUE(program.add() && desktop.asked(1));
    program.losses.clear();
    desktop.endBus();
    ASSERT_TRUE(loses());
    EXPECT_THAT(program.losses, ElementsAre(HasSubstr("session bus was lost")));
    EXPECT_FALSE(program.add());
    EXPECT_THAT(*program.center.lastFailure(), HasSubstr("session bus"));
    EXPECT_THAT(reason(), AllOf(HasSubstr("session bus cannot be reached"), HasSubstr("no X server")));

    log.clear();
    qputenv("DISPLAY", display);
    EXPECT_TRUE(Program().add());
    EXPECT_THAT(log, ElementsAre(HasSubstr("Wayland windows do not arrive")));
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
