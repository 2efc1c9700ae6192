// Saving, opening, picking: the list on this machine and the one of an account, and actions that wait for
// their turn.
#include <sys/resource.h>

#include <QClipboard>
#include <QTest>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <tuple>

#include "tests/app/ControllerTest.h"
#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

const std::string kAccountList = ".alice_Quillery.txt";

class SavedList : public ControllerTest {
  protected:
    void startSignedIn(const std::string &account, const std::string &local = "") {
        setAutoLogin("alice");
        putLocal(local);
        putRemote(kAccountList, account);
        start();
        openList();
    }
    // What another process asks for; the answer's status comes into `answers`.
    void request(const char *what) {
        delegate->performRequest(
            what, [this](const SingleInstance::Answer &answer) { answers.push_back(answer.status); });
    }
    std::vector<int> answers;
};

// ---- Saving ----

TEST_F(SavedList, ASavedTextIsOnTopAnnouncedAndOnTheDisk) {
    start();
    fs::remove(localPath());  // the very first save, with no file there
    save("a");
    EXPECT_EQ(local(), "a") << "a new list begins without a terminator";
    EXPECT_EQ(items(), (Items{"a", ""}));
    EXPECT_EQ(notifications.texts, QStringList{"Success!|You have successully save (\"a\")"});
    notifications.onDeliver = [&](const QString &) { copy("copied since"); };
    save("b\nwith two lines");
    EXPECT_EQ(local(), "b\nwith two lines" + kEnd + "a");
    openList();
    EXPECT_TRUE(i().List_View->isVisible());
    EXPECT_EQ(items(), (Items{"b\nwith two lines", "a"}));
    alerts.expect({{"Success!", "You have successully save:(\"copied since\")"}});
    Q_EMIT notifications.activated({});
}

TEST_F(SavedList, AnEmptyClipboardAndADuplicateAreRefused) {
    putLocal("a" + kEnd + "b" + kEnd + kEnd + "below" + kEnd);
    start();
    const auto before = local();
    alerts.expect({kEmptyClipboard, kEmptyClipboard});
    save("");
    QGuiApplication::clipboard()->clear();
    i().Saveing_menu_item->trigger();
    for (const char *there : {"a", "b"}) {
        alerts.expect({kExists});
        save(there);
        EXPECT_EQ(list().stringValue(), there) << "the scan leaves what it found selected";
    }
    EXPECT_EQ(local(), before);
    EXPECT_TRUE(notifications.texts.isEmpty());
    save("below");  // the scan ends at the empty item above it
    EXPECT_EQ(local(), "below" + kEnd + *before);
    save("A");  // another letter case is another text
    EXPECT_EQ(items()[0], "A");
}

TEST_F(SavedList, SignedInTextsGoToTheServer) {
    setAutoLogin("alice");
    putLocal("mine");
    start();
    save("x");
    EXPECT_EQ(remote(kAccountList), "x" + kEnd) << "no list there yet";
    EXPECT_TRUE(delegate->UploadDidFinish);
    notifications.onDeliver = [&](const QString &) { copy("copied since"); };
    save("y");
    EXPECT_EQ(remote(kAccountList), "y" + kEnd + "x" + kEnd);
    EXPECT_EQ(local(), "mine");
    openList();
    EXPECT_EQ(items(), (Items{"y", "x", ""}));
    for (const auto &unreadable : {std::optional("not \xFF text"s), std::optional<std::string>()}) {
        putRemote(kAccountList, unreadable);
        openList();
        EXPECT_EQ(items(), (Items{"y", "x", ""})) << "shown as it was";
    }
    enter([&] { delegate->Sync_local_with_cloud(); });
    EXPECT_EQ(remote(kAccountList), "mine");
}

TEST_F(SavedList, ATextThatCannotBeWrittenIsToldKeptAndSavedTheNextTime) {
    const std::string old = std::string(1000, 'o') + kEnd;
    const QString where = QString::fromStdString(localPath().string());
    const fs::path folder = localPath().parent_path();
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_IGN);
    const auto setLimit = [&](rlim_t bytes) {
        const rlimit changed{.rlim_cur = bytes, .rlim_max = limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &changed);
    };
    struct Row {
        const char *why;
        std::function<void()> make, mend;
        bool isReadable = true;  // what is there
        bool keepsOld = false;
    };
    const Row rows[] = {
        {"File too large", [&] { setLimit(500); }, [&] { setLimit(limit.rlim_cur); }, true, true},
        {"the folder * could not be made: Not a directory",
         [&] {
             fs::remove_all(folder);
             std::ofstream(folder) << "a file";
         },
         [&] { fs::remove(folder); }},
        {"Too many levels of symbolic links",
         [&] {
             fs::remove(localPath());
             fs::create_symlink(".Quillery.txt", localPath());
         },
         [&] { fs::remove(localPath()); }, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.why);
        putLocal(old);
        fs::remove_all(rescued);
        answers.clear();
        start();
        row.make();
        const QString why = QString(row.why).replace("*", QString::fromStdString(folder.string()));
        if (!row.isReadable) {
            alerts.expect({{"Error!", "The list in " + where + " could not be read: " + why}});
            openList();
        }
        alerts.expect({{"Error!", "The text \"lost?\" could not be saved to " + where + ": " + why}});
        copy("lost?");
        request("save");
        EXPECT_TRUE(waitFor([&] { return alerts.outstanding() == 0 && !answers.empty(); }));
        EXPECT_EQ(copies().size(), 1U);
        EXPECT_TRUE(copies().front().starts_with("lost?" + kEnd));
        EXPECT_EQ(local(), row.keepsOld ? std::optional(old) : std::nullopt);
        row.mend();
        request("save");
        EXPECT_TRUE(waitFor([&] { return answers.size() == 2; }));
        EXPECT_EQ(local(), row.keepsOld ? "lost?" + kEnd + old : "lost?") << "trying again is no duplicate";
        EXPECT_EQ(answers, (std::vector<int>{1, 0}));
    }
}

TEST_F(SavedList, AListThatIsNoTextIsSetAsideAndTold) {
    const std::string broken = "precious \xFF bytes";
    putLocal(broken);
    start();
    EXPECT_TRUE(items().empty());
    alerts.expect(
        {{"Error!", QStringLiteral("The list in %1 is no text, and was not changed. It is now kept as *")
                        .arg(QString::fromStdString(localPath().string()))}});
    save("new");
    EXPECT_EQ(local(), "new");
    Items kept;
    for (const auto &file : fs::directory_iterator(localPath().parent_path()))
        if (file.path() != localPath() && file.path().extension() != ".lock")
            kept.push_back(contentOf(file.path()));
    EXPECT_EQ(kept, Items{broken});
}

TEST_F(SavedList, TextsOfEveryKindComeBackByteForByteAfterARestart) {
    std::string lines;
    for (int k = 0; k < 100'000; ++k) lines += std::to_string(k) + (k % 3 ? "\n" : "\t\n");
    const std::string marks =
        "\xEF\xBB\xBF nul\0 \x01 \xF0\x9F\x98\x80\xF0\x9F\x8F\xBD e\xCC\x81 \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \r\n"s;
    std::string large;
    while (large.size() < 5'000'000) large += marks;
    const Items texts{marks, lines, large};
    start();
    for (const auto &text : texts) save(text);
    start();
    openList();
    ASSERT_EQ(items().size(), 4U);
    for (std::size_t k = 0; k < texts.size(); ++k) {
        copy("in between");
        pick(static_cast<int>(2 - k));
        EXPECT_TRUE(clipboard() == texts[k]) << "text " << k;
    }
}

// ---- Picking ----

TEST_F(SavedList, APickCopiesTheWholeTextAndShowsIt) {
    putLocal("a\tb\nc" + kEnd);
    start();
    openList();
    pick(0);
    EXPECT_EQ(clipboard(), "a\tb\nc");
    EXPECT_EQ(i().QuickView_label->toPlainText(), "a\tb\nc");
    EXPECT_TRUE(i().QuickView_popover->isVisible());
    ASSERT_TRUE(QTest::qWaitForWindowActive(i().Quillery_window.get()));
    QTest::keyClick(i().Quillery_window.get(), Qt::Key_Escape);
    EXPECT_FALSE(i().QuickView_popover->isVisible());
    EXPECT_TRUE(i().Quillery_window->isVisible());
    alerts.expect({kEmptySpace});
    pick(1);
    EXPECT_EQ(clipboard(), "a\tb\nc");
}

TEST_F(SavedList, RemovingOnThisMachine) {
    putLocal("abc" + kEnd + "bc" + kEnd + "x" + kEnd + "oldest");
    start();
    openList();
    i().RemoveItem_button->toggle();  // as an assistive program does
    EXPECT_TRUE(delegate->RemoveMode_enabled);
    pick(1);
    EXPECT_EQ(items(), (Items{"abc", "x", "oldest"}));
    EXPECT_EQ(local(), "ax" + kEnd + "oldest") << "the tail of the longer entry goes, too";
    pick(2);
    EXPECT_EQ(items(), (Items{"abc", "x"}));
    EXPECT_EQ(local(), "ax" + kEnd + "oldest") << "an entry without terminator stays in the file";
    fs::remove(localPath());
    pick(0);
    EXPECT_EQ(local(), "");
    putLocal(kEnd);
    openList();
    alerts.expect({{"Error!", "You cannot remove that item."}});
    pick(0);
    EXPECT_EQ(local(), kEnd);
}

TEST_F(SavedList, RemovingOnTheServer) {
    startSignedIn("a" + kEnd + "bc" + kEnd + "a" + kEnd, "bc" + kEnd);
    i().RemoveItem_button->click();
    pick(0);
    settle();
    EXPECT_EQ(remote(kAccountList), "bc" + kEnd) << "both occurrences";
    EXPECT_EQ(items(), (Items{"bc", "a", ""})) << "the picked one alone";
    EXPECT_EQ(local(), "bc" + kEnd);
}

TEST_F(SavedList, MakingAvailableOffline) {
    startSignedIn("b" + kEnd + "a" + kEnd, "xa" + kEnd);
    i().Read_local_button->click();
    pick(0);
    EXPECT_EQ(local(), "b" + kEnd + "xa" + kEnd);
    alerts.expect({kExists, kExists});
    pick(1);  // the tail of "xa"
    pick(2);  // the empty item, in a list with any terminator
    EXPECT_EQ(local(), "b" + kEnd + "xa" + kEnd);
    fs::remove(localPath());
    pick(0);
    EXPECT_FALSE(fs::exists(localPath()));
    putLocal("");
    pick(2);
    EXPECT_EQ(local(), kEnd);
    EXPECT_EQ(items(), (Items{"b", "a", ""}));
}

TEST_F(SavedList, SharingNeedsATextAndAFriend) {
    startSignedIn("a" + kEnd);
    putRemote("alice_Contacts.txt", "");
    i().Share_switch->click();
    alerts.expect({kEmptySpace, kNoFriends});
    pick(1);
    pick(0);
    EXPECT_EQ(shownView(), i().List_View);
}

TEST_F(SavedList, ModesExcludeOneAnotherAndShowWhatAPickWillDo) {
    startSignedIn("");
    const std::map<char, std::pair<QAbstractButton *, const char *>> modes = {
        {'r', {i().RemoveItem_button, "A pick removes the text from the list."}},
        {'s', {i().Share_switch, "A pick sends the text to a friend."}},
        {'o', {i().Read_local_button, "A pick copies the text into the list on this machine."}}};
    struct Step {
        char toggle, mode;
        const char *remove, *share, *offline, *placeholder;
    };
    const char *const offline = "Make available offline";
    const char *const toRemove = "Tab to remove item";
    const char *const toKeep = "Tab to make available offline";
    const char *const toCopy = "Tab to copy to clipboard";
    // From each mode to each.
    for (const Step &step : {Step{'r', 'r', "Done", "Share", offline, toRemove},
                             {'r', '-', "Remove item", "Share", offline, toCopy},
                             {'s', 's', "Remove Item", "Done", offline, toCopy},
                             {'s', '-', "Remove Item", "Share", offline, toCopy},
                             {'o', 'o', "Remove item", "Share", "Done", toKeep},
                             {'o', '-', "Remove item", "Share", offline, "Tab to copy to the clipboard"},
                             {'r', 'r', "Done", "Share", offline, toRemove},
                             {'s', 's', "Remove Item", "Done", offline, toRemove},
                             {'r', 'r', "Done", "Share", offline, toRemove},
                             {'o', 'o', "Remove item", "Share", "Done", toKeep},
                             {'r', 'r', "Done", "Share", offline, toRemove},
                             {'o', 'o', "Remove item", "Share", "Done", toKeep},
                             {'s', 's', "Remove Item", "Done", offline, toKeep},
                             {'o', 'o', "Remove item", "Share", "Done", toKeep}}) {
        SCOPED_TRACE(std::string({step.toggle, step.mode}));
        modes.at(step.toggle).first->click();
        EXPECT_EQ(
            std::tuple(delegate->RemoveMode_enabled, delegate->ShareMode_enabled, delegate->Read_Local_mode),
            std::tuple(step.mode == 'r', step.mode == 's', step.mode == 'o'));
        for (const auto &[letter, mode] : modes) EXPECT_EQ(mode.first->isChecked(), letter == step.mode);
        EXPECT_EQ(i().Remove_item_label->text(), step.remove);
        EXPECT_EQ(i().Share_label->text(), step.share);
        EXPECT_EQ(i().Make_available_offline_label->text(), step.offline);
        EXPECT_EQ(list().findChild<QLineEdit *>()->placeholderText(), step.placeholder);
        EXPECT_EQ(i().Mode_hint->text(),
                  step.mode == '-' ? "A pick puts the text on the clipboard." : modes.at(step.mode).second);
    }
}

// ---- The whole list ----

TEST_F(SavedList, CleaningEmptiesTheListsOfWhoIsSignedInAfterAQuestion) {
    Alert no = kSure;
    no.answer = 1;
    for (const bool isSignedIn : {true, false}) {
        startSignedIn("abc" + kEnd, "mine" + kEnd);
        putRemote("._Quillery.txt", "nobody's" + kEnd);
        if (!isSignedIn) i().Log_in_menu_item->trigger();
        const Items before = items();
        alerts.expect({no});
        i().Clear_list_button->click();
        EXPECT_EQ(alerts.defaultButton, 1);
        EXPECT_EQ(items(), before);
        alerts.expect({kSure, kCleaned, kEmptySpace});
        i().Clear_list_button->click();
        settle();
        EXPECT_EQ(items(), Items{""});
        EXPECT_EQ(local(), "");
        EXPECT_EQ(remote(kAccountList), isSignedIn ? "" : "abc" + kEnd);
        EXPECT_EQ(remote("._Quillery.txt"), "nobody's" + kEnd);
        pick(0);
    }
}

TEST_F(SavedList, AnAccountWithoutAListIsOfferedTheOneOfThisComputer) {
    putLocal("a" + kEnd + "b" + kEnd);
    putAccount("alice");
    setAutoLogin("alice");
    start();
    openList();
    settle();
    ASSERT_TRUE(i().keepLocalList_button->isVisible());
    alerts.expect({{"Sure?",
                    "Keep the 2 texts of this computer's list in your account? They stay on this computer "
                    "as well."}});
    i().keepLocalList_button->click();
    settle();
    EXPECT_EQ(remote(kAccountList), "a" + kEnd + "b" + kEnd);
    EXPECT_EQ(items(), (Items{"a", "b", ""}));
    i().Log_in_menu_item->trigger();
    EXPECT_FALSE(i().keepLocalList->isVisible());
}

// ---- Actions that wait for their turn ----

TEST_F(SavedList, ActionsDuringAnAlertRunAfterItOnceEachInOrder) {
    putLocal("a" + kEnd + "b" + kEnd);
    start();
    openList();
    copy("");
    Alert first = kEmptyClipboard;
    first.during = [&] {
        pick(0);
        i().RemoveItem_button->click();
        pick(1);
        delegate->Save_bar_item(VkKeyEvent());
        Q_EMIT notifications.activated({});
        copy("copied meanwhile");
        EXPECT_EQ(clipboard(), "copied meanwhile") << "no pick ran inside the alert";
        EXPECT_FALSE(delegate->RemoveMode_enabled);
    };
    // The first pick copied "a"; remove mode came on; the second pick removed "b"; the hot key found "a".
    alerts.expect({first, kExists, {"Success!", "You have successully save:(\"a\")"}});
    i().Saveing_menu_item->trigger();
    settle();
    EXPECT_EQ(items(), (Items{"a", ""}));
    EXPECT_EQ(local(), "a" + kEnd);
}

TEST_F(SavedList, TenClicksDuringAReadRunAfterItOnceEachInOrder) {
    startSignedIn("far" + kEnd);
    copy("");
    Alert stay = kQuit;
    stay.answer = 1;
    QTimer::singleShot(0, [&] {
        // The list is being read just now. Only the question whether to quit does not wait for that.
        alerts.expect({stay});
        i().Quit->trigger();
        EXPECT_EQ(alerts.outstanding(), 0U);
        for (int click = 0; click < 10; ++click) {
            alerts.expect({click % 2 == 0 ? kEmptyClipboard : kNoFriends});
            (click % 2 == 0 ? i().Saveing_menu_item : i().Remove_a_friend_item)->trigger();
        }
        delegate->performRequest("save", [&](const SingleInstance::Answer &answer) {
            EXPECT_EQ(alerts.outstanding(), 10U) << "before the first alert that would hold it up";
            answers.push_back(answer.status);
        });
        EXPECT_TRUE(gate.isBusy());
        EXPECT_EQ(alerts.outstanding(), 10U) << "none ran inside the read";
    });
    openList();
    EXPECT_EQ(answers, std::vector<int>{1});
}

TEST_F(SavedList, AnAlertOfABackgroundOperationWaitsForTheOneThatIsUp) {
    startSignedIn("a" + kEnd);
    putRemote(kAccountList, {});
    i().RemoveItem_button->click();
    pick(0);
    copy("");
    Alert first = kEmptyClipboard;
    first.during = [&] {
        EXPECT_TRUE(waitFor([&] { return items().size() == 1; }));
        // The removal has failed by now, and asks for its alert within a moment.
        waitFor([&] { return alerts.outstanding() == 0; }, 100);
        EXPECT_EQ(alerts.outstanding(), 1U);
    };
    alerts.expect({first, kUnsaved});
    i().Saveing_menu_item->trigger();
    settle();
    EXPECT_EQ(remote(kAccountList), std::nullopt) << "what could not be read is not written";
}

// Another program holds the list's lock until both have been asked for.
TEST_F(SavedList, ASecondSaveAndAPickWaitForTheFirstSave) {
    putLocal("a" + kEnd + "b" + kEnd);
    start();
    openList();
    i().RemoveItem_button->click();
    auto another = std::make_optional<FileLock>(localPath());
    copy("new");
    i().Saveing_menu_item->trigger();
    QTimer::singleShot(50, [&] {
        EXPECT_EQ(notifications.texts.size(), 1) << "the second is announced when the first is on the disk";
        EXPECT_EQ(items().size(), 4U);
        another.reset();
    });
    copy("newer");
    enter([&] {
        i().Saveing_menu_item->trigger();
        pick(2);  // "b", which is a row further down by then
    });
    settle();
    EXPECT_EQ(items(), (Items{"newer", "new", "a", ""}));
    EXPECT_EQ(local(), "newer" + kEnd + "new" + kEnd + "a" + kEnd);
}

// What a save was for is decided when it is asked for.
TEST_F(SavedList, ASaveBeforeALogOutIsTheUsersOwn) {
    startSignedIn("");
    copy("hers");
    enter([&] {
        delegate->Save_bar_item(VkKeyEvent());
        i().Log_in_menu_item->trigger();
    });
    settle();
    EXPECT_FALSE(delegate->isSigned_in);
    EXPECT_EQ(remote(kAccountList), "hers" + kEnd);
}

}  // namespace
