// Saving, opening, picking: the list on this machine and the one of an account, and actions that wait for
// their turn.
#include <sys/resource.h>

#include <QClipboard>
#include <QTest>
#include <csignal>
#include <filesystem>
#include <fstream>

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
    QString see(const QString &what) override {
        if (what != "says") return ControllerTest::see(what);
        QString all;
        for (const auto &[toggle, label] :
             {std::pair(i().RemoveItem_button, i().Remove_item_label),
              std::pair(i().Share_switch, i().Share_label),
              std::pair(i().Read_local_button, i().Make_available_offline_label)})
            all += (toggle->isChecked() ? "*" : "") + label->text() + "|";
        return all + list().findChild<QLineEdit *>()->placeholderText();
    }
};

TEST_F(SavedList, OnThisMachine) {
    play(R"(
        start
        lose local
        save a                   -> local=a; list=a|; told=Success!|You have successully save ("a")
        save b\nwith two lines   -> local=b\nwith two lines|a; list=b\nwith two lines|a|
        open                     -> list=b\nwith two lines|a; view=List_View; List_place=On this computer
        pick 0                   -> clipboard=b\nwith two lines; shown QuickView_popover=yes
        ! Success!: You have successully save:("b\nwith two lines")
        click-notification
        local a|b||below|
        open                     -> list=a|b||below|
        ! Error!: Your clipboard is empty.
        save -
        ! Error!: Text does exist in the list.
        save a                   -> picked=a
        ! Error!: Text does exist in the list.
        save b                   -> picked=b; local=a|b||below|
        save below               -> local=below|a|b||below|
        save A                   -> list=A|below|a|b||below|
        ! Error!: Empty space
        pick 4                   -> clipboard=A
        local abc|bc|x|oldest
        open
        toggle RemoveItem_button -> mode=remove
        pick 1                   -> list=abc|x|oldest; local=ax|oldest
        pick 2                   -> list=abc|x; local=ax|oldest
        lose local
        pick 0                   -> local=-
        local |
        open
        ! Error!: You cannot remove that item.
        pick 0                   -> local=|
        toggle RemoveItem_button
        remote ._Quillery.txt nobody's|
        ! Sure?: Are you sure,you want to clean your list? => 1
        click Clear_list_button  -> local=|; default=1
        ! Sure?: Are you sure,you want to clean your list?
        ! Success!: You've successfully cleaned your list.
        click Clear_list_button  -> local=-; list=-; remote ._Quillery.txt=nobody's|
    )");
}

TEST_F(SavedList, InAnAccount) {
    play(R"(
        account alice
        local mine
        start
        sign-in alice secret
        save x                    -> remote .alice_Quillery.txt=x|; local=mine
        save y                    -> remote .alice_Quillery.txt=y|x|
        open                      -> list=y|x|; List_place=In your account on this computer
        spoil .alice_Quillery.txt
        open                      -> list=y|x|
        lose .alice_Quillery.txt
        open                      -> list=y|x|; shown keepLocalList=yes
        local a|b|
        ! Sure?: Keep the 2 texts of this computer's list in your account? They stay on this computer as well.
        click keepLocalList_button -> remote .alice_Quillery.txt=a|b|; list=a|b|; shown keepLocalList=no
        remote .alice_Quillery.txt a|bc|a|
        local bc|
        open
        click RemoveItem_button
        pick 0                    -> remote .alice_Quillery.txt=bc|; list=bc|a|; local=bc|
        lose .alice_Quillery.txt
        ! Error!: Server/Internet connection error.\nUnable to save text.
        pick 0                    -> remote .alice_Quillery.txt=(none); list=a|
        remote .alice_Quillery.txt b|a|
        local xa|
        open
        click Read_local_button
        pick 0                    -> local=b|xa|; list=b|a|
        ! Error!: Text does exist in the list.
        pick 1                    -> local=b|xa|
        ! Error!: Text does exist in the list.
        pick 2                    -> local=b|xa|
        lose local
        pick 0                    -> local=(none)
        local -
        pick 2                    -> local=|
        click Share_switch
        ! Error!: Empty space
        pick 2
        ! Alert!: You have no firends in the list
        pick 0
        remote alice_Contacts.txt -
        ! Alert!: You have no firends in the list
        pick 0                    -> view=List_View
        ! Sure?: Are you sure,you want to clean your list?
        ! Success!: You've successfully cleaned your list.
        click Clear_list_button   -> local=-; list=-; remote .alice_Quillery.txt=-
        local mine
    )");
    enter([&] { delegate->Sync_local_with_cloud(); });
    EXPECT_EQ(remote(kAccountList), "mine");
}

TEST_F(SavedList, WhatIsCopiedRightAfterTheAnnouncementReplacesNothing) {
    for (const bool isSignedIn : {false, true}) {
        startSignedIn("");
        if (!isSignedIn) i().Log_in_menu_item->trigger();
        notifications.onDeliver = [&](const QString &) { copy("copied since"); };
        save("announced");
        notifications.onDeliver = [&](const QString &) { QGuiApplication::clipboard()->clear(); };
        save("second");
        EXPECT_EQ(isSignedIn ? remote(kAccountList) : local(), "second" + kEnd + "announced" + kEnd);
    }
}

TEST_F(SavedList, ThePopoverShowsTheWholeTextAndEscapeClosesItAlone) {
    putLocal("a\tb\nc" + kEnd);
    start();
    openList();
    pick(0);
    EXPECT_EQ(clipboard(), "a\tb\nc");
    EXPECT_EQ(i().QuickView_label->toPlainText(), "a\tb\nc");
    ASSERT_TRUE(QTest::qWaitForWindowActive(i().Quillery_window.get()));
    QTest::keyClick(i().Quillery_window.get(), Qt::Key_Escape);
    EXPECT_FALSE(i().QuickView_popover->isVisible());
    EXPECT_TRUE(i().Quillery_window->isVisible());
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
        act("request save");
        EXPECT_TRUE(waitFor([&] { return alerts.outstanding() == 0 && !answers.empty(); }));
        ASSERT_EQ(copies().size(), 1U);
        EXPECT_TRUE(copies().front().starts_with("lost?" + kEnd));
        EXPECT_EQ(local(), row.keepsOld ? std::optional(old) : std::nullopt);
        row.mend();
        act("request save");
        EXPECT_TRUE(waitFor([&] { return answers.size() == 2; }));
        EXPECT_EQ(local(), row.keepsOld ? "lost?" + kEnd + old : "lost?") << "trying again is no duplicate";
        EXPECT_EQ(see("answers"), "1The text could not be saved.+0");
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

// From each mode to each: what the toggles and the line say, and which toggle is down.
TEST_F(SavedList, ModesExcludeOneAnotherAndShowWhatAPickWillDo) {
    startSignedIn("");
    play(R"(
        click RemoveItem_button -> mode=remove; says=*Done|Share|Make available offline|Tab to remove item
        settle                  -> Mode_hint=A pick removes the text from the list.
        click RemoveItem_button -> mode=copy; says=Remove item|Share|Make available offline|Tab to copy to clipboard
        settle                  -> Mode_hint=A pick puts the text on the clipboard.
        click Share_switch      -> mode=share; says=Remove Item|*Done|Make available offline|Tab to copy to clipboard
        settle                  -> Mode_hint=A pick sends the text to a friend.
        click Share_switch      -> mode=copy; says=Remove Item|Share|Make available offline|Tab to copy to clipboard
        click Read_local_button -> mode=offline; says=Remove item|Share|*Done|Tab to make available offline
        settle                  -> Mode_hint=A pick copies the text into the list on this machine.
        click Read_local_button -> mode=copy; says=Remove item|Share|Make available offline|Tab to copy to the clipboard
        click RemoveItem_button -> mode=remove; says=*Done|Share|Make available offline|Tab to remove item
        click Share_switch      -> mode=share; says=Remove Item|*Done|Make available offline|Tab to remove item
        click RemoveItem_button -> mode=remove; says=*Done|Share|Make available offline|Tab to remove item
        click Read_local_button -> mode=offline; says=Remove item|Share|*Done|Tab to make available offline
        click RemoveItem_button -> mode=remove; says=*Done|Share|Make available offline|Tab to remove item
        click Read_local_button -> mode=offline; says=Remove item|Share|*Done|Tab to make available offline
        click Share_switch      -> mode=share; says=Remove Item|*Done|Make available offline|Tab to make available offline
        click Read_local_button -> mode=offline; says=Remove item|Share|*Done|Tab to make available offline
    )");
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
            answers << QString::number(answer.status);
        });
        EXPECT_TRUE(gate.isBusy());
        EXPECT_EQ(alerts.outstanding(), 10U) << "none ran inside the read";
    });
    openList();
    EXPECT_EQ(see("answers"), "1");
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
