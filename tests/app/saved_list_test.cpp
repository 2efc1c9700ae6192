#include <QClipboard>
#include <QLineEdit>
#include <QTest>
#include <filesystem>
#include <fstream>
#include <map>
#include <tuple>

#include "tests/app/ControllerTest.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {
const QString kError = QStringLiteral("Error!");
const QString kExists = QStringLiteral("Text does exist in the list.");
const QString kEmptySpace = QStringLiteral("Empty space");
}  // namespace

class SavedListTest : public ControllerTest {
  protected:
    SavedListTest() { setNotFirstUse(); }
    void openList() {
        delegate->interface.Clipboard_saves_menu_item->trigger();
        EXPECT_TRUE(delegate->interface.Quillery_window->isVisible());
        EXPECT_EQ(delegate->interface.Quillery_Box->contentView(), delegate->interface.List_View);
    }
    ListControl &list() { return *delegate->interface.Clipboard_saved_string_combobox; }
};

// ---- Saving ----

TEST_F(SavedListTest, ASavedTextIsOnTopAnnouncedAndOnTheDisk) {
    start();
    fs::remove(localPath());  // the very first save, with no file there
    save("a");
    EXPECT_EQ(local(), "a") << "a new list begins without a terminator";
    EXPECT_EQ(items(), (Items{"a", ""}));
    EXPECT_EQ(notifications.texts, QStringList{QStringLiteral("Success!|You have successully save (\"a\")")});
    save("b\nwith two lines");
    EXPECT_EQ(local(), "b\nwith two lines" + kEnd + "a");
    EXPECT_EQ(fs::status(localPath()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    openList();
    EXPECT_EQ(items(), (Items{"b\nwith two lines", "a"}));

    copy("something newer");
    alerts.expect(QStringLiteral("Success!"),
                  QStringLiteral("You have successully save:(\"something newer\")"));
    Q_EMIT notifications.activated({});
}

TEST_F(SavedListTest, AnEmptyClipboardAndADuplicateAreRefused) {
    putLocal("a" + kEnd + "b" + kEnd + kEnd + "below" + kEnd);
    start();
    const auto before = local();
    alerts.expect(kError, QStringLiteral("Your clipboard is empty."));
    save("");
    QGuiApplication::clipboard()->clear();
    alerts.expect(kError, QStringLiteral("Your clipboard is empty."));
    delegate->interface.Saveing_menu_item->trigger();
    for (const char *there : {"a", "b"}) {
        alerts.expect(kError, kExists);
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

TEST_F(SavedListTest, SignedInTextsGoToTheServer) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("mine");
    start();
    save("x");
    EXPECT_EQ(remote(".alice_Quillery.txt"), "x" + kEnd) << "no list there yet";
    EXPECT_TRUE(delegate->UploadDidFinish);
    save("y");
    EXPECT_EQ(remote(".alice_Quillery.txt"), "y" + kEnd + "x" + kEnd);
    EXPECT_EQ(local(), "mine");
    openList();
    EXPECT_EQ(items(), (Items{"y", "x", ""}));
    enter([&] { delegate->Sync_local_with_cloud(); });
    EXPECT_EQ(remote(".alice_Quillery.txt"), "mine");
}

TEST_F(SavedListTest, WhatIsCopiedRightAfterTheAnnouncementReplacesNothing) {
    for (const bool isSignedIn : {false, true}) {
        setAutoLogin(QStringLiteral("alice"));
        if (!isSignedIn) set("kAutoLogin", QStringLiteral("No"));
        start();
        notifications.onDeliver = [&](const QString &) { copy("copied since"); };
        save("announced");
        notifications.onDeliver = [&](const QString &) { QGuiApplication::clipboard()->clear(); };
        save("second");
        EXPECT_EQ(isSignedIn ? remote(".alice_Quillery.txt") : local(), "second" + kEnd + "announced" + kEnd);
    }
}

TEST_F(SavedListTest, AListThatCannotBeReadIsSetAsideAndNeverOverwritten) {
    const std::string broken = "precious \xFF bytes";
    putLocal(broken);
    start();
    EXPECT_TRUE(items().empty());
    alerts.expect(kError,
                  QStringLiteral("The list in %1 is no text, and was not changed. It is now kept as *")
                      .arg(QString::fromStdString(localPath().string())));
    save("new");
    EXPECT_EQ(local(), "new");
    std::vector<std::string> kept;
    for (const auto &file : fs::directory_iterator(localPath().parent_path())) {
        if (file.path() == localPath() || file.path().extension() == ".lock") continue;
        std::ifstream in(file.path(), std::ios::binary);
        kept.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    EXPECT_EQ(kept, Items{broken});
}

TEST_F(SavedListTest, AWriteThatFailsIsSaid) {
    start();
    fs::remove_all(localPath().parent_path());
    std::ofstream(localPath().parent_path()) << "a file where the folder should be";
    const QString where = QString::fromStdString(localPath().string());
    alerts.expect(
        kError,
        QStringLiteral(
            "The text \"lost?\" could not be saved to %1: the folder %2 could not be made: Not a directory")
            .arg(where, QString::fromStdString(localPath().parent_path().string())));
    copy("lost?");
    std::vector<int> answers;
    const auto answer = [&](const SingleInstance::Answer &given) { answers.push_back(given.status); };
    delegate->performRequest("save", answer);
    EXPECT_TRUE(waitFor([&] { return alerts.outstanding() == 0 && !answers.empty(); }));
    fs::remove(localPath().parent_path());
    delegate->performRequest("save", answer);
    EXPECT_TRUE(waitFor([&] { return answers.size() == 2; }));
    EXPECT_EQ(local(), "lost?") << "trying again is no duplicate";
    EXPECT_EQ(answers, (std::vector<int>{1, 0}));
}

// ---- Loading ----

TEST_F(SavedListTest, OpeningShowsWhatTheFileHolds) {
    start();
    putLocal("one" + kEnd + "two" + kEnd);
    openList();
    EXPECT_EQ(items(), (Items{"one", "two", ""}));
    fs::remove(localPath());
    openList();
    EXPECT_TRUE(items().empty());
}

TEST_F(SavedListTest, AMissingRemoteListLeavesTheControlAsItWas) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("");
    putRemote(".alice_Quillery.txt", "far" + kEnd);
    start();
    fs::remove(htdocs / ".alice_Quillery.txt");
    openList();
    EXPECT_EQ(items(), (Items{"far", ""}));
    putRemote(".alice_Quillery.txt", "not \xFF text");
    openList();
    EXPECT_EQ(items(), (Items{"far", ""}));
}

// ---- Picking ----

TEST_F(SavedListTest, APickCopiesTheWholeTextAndShowsIt) {
    putLocal("a\tb\nc" + kEnd);
    start();
    openList();
    pick(0);
    EXPECT_EQ(clipboard(), "a\tb\nc");
    EXPECT_EQ(delegate->interface.QuickView_label->toPlainText(), QStringLiteral("a\tb\nc"));
    EXPECT_TRUE(delegate->interface.QuickView_popover->isVisible());
    ASSERT_TRUE(QTest::qWaitForWindowActive(delegate->interface.Quillery_window.get()));
    QTest::keyClick(delegate->interface.Quillery_window.get(), Qt::Key_Escape);
    EXPECT_FALSE(delegate->interface.QuickView_popover->isVisible());
    EXPECT_TRUE(delegate->interface.Quillery_window->isVisible());
    alerts.expect(kError, kEmptySpace);
    pick(1);
    EXPECT_EQ(clipboard(), "a\tb\nc");
}

TEST_F(SavedListTest, TextsOfEveryKindComeBackByteForByteAfterARestart) {
    std::string lines;
    for (int i = 0; i < 100'000; ++i) lines += std::to_string(i) + (i % 3 ? "\n" : "\t\n");
    const std::string marks =
        "\xEF\xBB\xBF nul\0 \x01 \xF0\x9F\x98\x80\xF0\x9F\x8F\xBD e\xCC\x81 \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \r\n"s;
    std::string large;
    while (large.size() < 5'000'000) large += marks;
    const std::vector<std::string> texts{marks, lines, large};
    start();
    for (const auto &text : texts) save(text);
    start();
    openList();
    ASSERT_EQ(items().size(), 4U);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        copy("in between");
        pick(static_cast<int>(2 - i));
        EXPECT_TRUE(clipboard() == texts[i]) << "text " << i;
    }
}

TEST_F(SavedListTest, RemovingOnThisMachine) {
    putLocal("abc" + kEnd + "bc" + kEnd + "x" + kEnd + "oldest");
    start();
    openList();
    delegate->interface.RemoveItem_button->toggle();  // as an assistive program does
    EXPECT_TRUE(delegate->RemoveMode_enabled);
    EXPECT_EQ(delegate->interface.Remove_item_label->text(), QStringLiteral("Done"));
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
    alerts.expect(kError, QStringLiteral("You cannot remove that item."));
    pick(0);
    EXPECT_EQ(local(), kEnd);
}

TEST_F(SavedListTest, RemovingOnTheServer) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("bc" + kEnd);
    putRemote(".alice_Quillery.txt", "a" + kEnd + "bc" + kEnd + "a" + kEnd);
    start();
    openList();
    delegate->interface.RemoveItem_button->click();
    pick(0);
    settle();
    EXPECT_EQ(remote(".alice_Quillery.txt"), "bc" + kEnd) << "both occurrences";
    EXPECT_EQ(items(), (Items{"bc", "a", ""})) << "the picked one alone";
    EXPECT_EQ(local(), "bc" + kEnd);
    fs::remove(htdocs / ".alice_Quillery.txt");
    alerts.expect(kError, QStringLiteral("Server/Internet connection error.\nUnable to save text."));
    pick(0);
    settle();
    EXPECT_FALSE(fs::exists(htdocs / ".alice_Quillery.txt")) << "what could not be read is not written";
    EXPECT_EQ(items(), (Items{"a", ""}));
}

TEST_F(SavedListTest, SharingNeedsATextAndAFriend) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("");
    putRemote(".alice_Quillery.txt", "a" + kEnd);
    start();
    openList();
    delegate->interface.Share_switch->click();
    alerts.expect(kError, kEmptySpace);
    pick(1);
    alerts.expect(QStringLiteral("Alert!"), QStringLiteral("You have no firends in the list"));
    pick(0);
    putRemote("alice_Contacts.txt", "");
    alerts.expect(QStringLiteral("Alert!"), QStringLiteral("You have no firends in the list"));
    pick(0);
    EXPECT_EQ(delegate->interface.Quillery_Box->contentView(), delegate->interface.List_View);
}

TEST_F(SavedListTest, MakingAvailableOffline) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("xa" + kEnd);
    putRemote(".alice_Quillery.txt", "b" + kEnd + "a" + kEnd);
    start();
    openList();
    delegate->interface.Read_local_button->click();
    pick(0);
    EXPECT_EQ(local(), "b" + kEnd + "xa" + kEnd);
    alerts.expect(kError, kExists);
    pick(1);  // the tail of "xa"
    alerts.expect(kError, kExists);
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

TEST_F(SavedListTest, ModesExcludeOneAnotherAndShowWhatAPickWillDo) {
    setAutoLogin(QStringLiteral("alice"));
    start();
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
        EXPECT_EQ(i().Remove_item_label->text(), QLatin1String(step.remove));
        EXPECT_EQ(i().Share_label->text(), QLatin1String(step.share));
        EXPECT_EQ(i().Make_available_offline_label->text(), QLatin1String(step.offline));
        EXPECT_EQ(list().findChild<QLineEdit *>()->placeholderText(), QLatin1String(step.placeholder));
        EXPECT_EQ(i().Mode_hint->text(),
                  QLatin1String(step.mode == '-' ? "A pick puts the text on the clipboard."
                                                 : modes.at(step.mode).second));
    }
}

TEST_F(SavedListTest, CleaningSignedOutLeavesTheServerAlone) {
    putLocal("mine" + kEnd);
    putRemote("._Quillery.txt", "abc" + kEnd);
    start();
    openList();
    alerts.expect(QStringLiteral("Sure?"), QStringLiteral("Are you sure,you want to clean your list?"));
    alerts.expect(QStringLiteral("Success!"), QStringLiteral("You've successfully cleaned your list."));
    i().Clear_list_button->click();
    settle();
    EXPECT_EQ(local(), "");
    EXPECT_EQ(items(), Items{""});
    EXPECT_EQ(remote("._Quillery.txt"), "abc" + kEnd) << "not even the list of nobody";
    alerts.expect(kError, kEmptySpace);
    pick(0);
}
