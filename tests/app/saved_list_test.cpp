// Saving, opening, picking: the list on this machine and the one of an account.
#include <sys/resource.h>

#include <QClipboard>
#include <csignal>

#include "tests/app/ControllerTest.h"

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
};

TEST_F(SavedList, OnThisMachine) {
    play(R"(
        start
        lose local
        save a                   -> local=a; list=a|; told=Success!|You have successully save ("a")
        save b\nwith two lines   -> local=b\nwith two lines|a; list=b\nwith two lines|a|
        open                     -> list=b\nwith two lines|a; view=List_View; List_place=On this computer
        pick 0                   -> clipboard=b\nwith two lines; shown QuickView_popover=yes
        local a|b||below|
        open                     -> list=a|b||below|
        ! Error!: Your clipboard is empty.
        save -
        ! Error!: Text does exist in the list.
        save a                   -> picked=a
        save below               -> local=below|a|b||below|; list=below|a|b||below|
        ! Error!: Empty space
        pick 3                   -> clipboard=below
        toggle RemoveItem_button -> mode=remove
        local |
        open
        ! Error!: You cannot remove that item.
        pick 0                   -> local=|
        ! Sure?: Are you sure,you want to clean your list? => 1
        click Clear_list_button  -> local=|; default=1
        ! Sure?: Are you sure,you want to clean your list?
        ! Success!: You've successfully cleaned your list.
        click Clear_list_button  -> local=-; list=-
    )");
}

TEST_F(SavedList, InAnAccount) {
    play(R"(
        account alice
        local mine
        start
        sign-in alice secret
        save x                    -> remote .alice_Quillery.txt=x|; local=mine
        open                      -> list=x|; List_place=In your account on this computer
        lose .alice_Quillery.txt
        open                      -> list=x|; shown keepLocalList=yes
        local a|b|
        ! Sure?: Keep the 2 texts of this computer's list in your account? They stay on this computer as well.
        click keepLocalList_button -> remote .alice_Quillery.txt=a|b|; list=a|b|; shown keepLocalList=no
        remote .alice_Quillery.txt a|bc|a|
        local bc|
        open
        click RemoveItem_button
        pick 0                    -> remote .alice_Quillery.txt=bc|; list=bc|a|; local=bc|
        remote .alice_Quillery.txt b|a|
        local xa|
        open
        click Read_local_button
        pick 0                    -> local=b|xa|; list=b|a|
        ! Error!: Text does exist in the list.
        pick 1                    -> local=b|xa|
        ! Sure?: Are you sure,you want to clean your list?
        ! Success!: You've successfully cleaned your list.
        click Clear_list_button   -> local=-; list=-; remote .alice_Quillery.txt=-
    )");
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

TEST_F(SavedList, ATextThatCannotBeWrittenIsToldKeptAndSavedTheNextTime) {
    const std::string old = std::string(1000, 'o') + kEnd;
    const QString where = QString::fromStdString(localPath().string());
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
        bool isReadable;  // what is there
    };
    for (const Row &row : {
             Row{"File too large", [&] { setLimit(500); }, [&] { setLimit(limit.rlim_cur); }, true},
             Row{"Too many levels of symbolic links",
                 [&] {
                     fs::remove(localPath());
                     fs::create_symlink(".Quillery.txt", localPath());
                 },
                 [&] { fs::remove(localPath()); }, false},
         }) {
        SCOPED_TRACE(row.why);
        putLocal(old);
        fs::remove_all(rescued);
        answers.clear();
        start();
        row.make();
        if (!row.isReadable) {
            alerts.expect({{"Error!", "The list in " + where + " could not be read: " + row.why}});
            openList();
        }
        alerts.expect({{"Error!", "The text \"lost?\" could not be saved to " + where + ": " + row.why}});
        copy("lost?");
        act("request save");
        EXPECT_TRUE(waitFor([&] { return alerts.outstanding() == 0 && !answers.empty(); }));
        ASSERT_EQ(copies().size(), 1U);
        EXPECT_TRUE(copies().front().starts_with("lost?" + kEnd));
        EXPECT_EQ(local(), row.isReadable ? std::optional(old) : std::nullopt);
        row.mend();
        act("request save");
        EXPECT_TRUE(waitFor([&] { return answers.size() == 2; }));
        EXPECT_EQ(local(), row.isReadable ? "lost?" + kEnd + old : "lost?") << "trying again is no duplicate";
        EXPECT_EQ(see("answers"), "1The text could not be saved.+0");
    }
}

TEST_F(SavedList, AListThatIsNoTextIsSetAsideAndTold) {
    putLocal("precious \xFF bytes");
    start();
    const QString where = QString::fromStdString(localPath().string());
    alerts.expect(
        {{"Error!", "The list in " + where + " is no text, and was not changed. It is now kept as *"}});
    save("new");
    EXPECT_EQ(local(), "new");
}

TEST_F(SavedList, TextsOfEveryKindComeBackByteForByteAfterARestart) {
    const std::string marks =
        "\xEF\xBB\xBF nul\0 \x01 \xF0\x9F\x98\x80\xF0\x9F\x8F\xBD e\xCC\x81 \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \r\n"s;
    std::string large;
    while (large.size() < 5'000'000) large += marks;
    const Items texts{marks, large};
    start();
    for (const auto &text : texts) save(text);
    start();
    openList();
    for (std::size_t k = 0; k < texts.size(); ++k) {
        copy("in between");
        pick(static_cast<int>(1 - k));
        EXPECT_TRUE(clipboard() == texts[k]) << "text " << k;
    }
}

TEST_F(SavedList, ModesExcludeOneAnotherAndShowWhatAPickWillDo) {
    startSignedIn("");
    play(R"(
        click RemoveItem_button -> mode=remove; Mode_hint=A pick removes the text from the list.
        click Share_switch      -> mode=share; Mode_hint=A pick sends the text to a friend.; checked RemoveItem_button=no
        click Read_local_button -> mode=offline; Mode_hint=A pick copies the text into the list on this machine.
        click Share_switch      -> mode=share; checked Read_local_button=no; checked Share_switch=yes
        click RemoveItem_button -> mode=remove; checked Share_switch=no; checked RemoveItem_button=yes
        click Read_local_button -> mode=offline; checked RemoveItem_button=no; checked Read_local_button=yes
        click RemoveItem_button -> mode=remove; checked Read_local_button=no
        click RemoveItem_button -> mode=copy; Mode_hint=A pick puts the text on the clipboard.
    )");
}

// Another program holds the list's lock until all have been asked for, and puts a text of its own in front.
TEST_F(SavedList, SavesAndPicksWaitForTheFirstSaveAndEachOther) {
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
        putLocal("another's" + kEnd + "a" + kEnd + "b" + kEnd);
        another.reset();
    });
    copy("newer");
    enter([&] {
        i().Saveing_menu_item->trigger();
        pick(2);  // "b", which is a row further down by then
        pick(1);  // "a", likewise
    });
    settle();
    EXPECT_EQ(items(), (Items{"newer", "new", ""}));
    EXPECT_EQ(local(), "newer" + kEnd + "new" + kEnd + "another's" + kEnd);
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
    EXPECT_EQ(remote(kAccountList), "hers" + kEnd);
}

}  // namespace
