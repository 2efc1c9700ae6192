#include <gmock/gmock.h>
#include <QTest>
#include <QTimer>
#include <algorithm>

#include "platform/UserFolders.h"
#include "support/ScriptedFtpServer.h"
#include "tests/app/ControllerTest.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string kBobby = "bobby1" + kEnd;
const std::string kTexts = "one" + kEnd + "two" + kEnd + "three" + kEnd;

// Titles and messages of alerts, in order.
using Said = std::vector<std::pair<const char *, const char *>>;

const Said kNoFriends = {{"Alert!", "You have no firends in the list"}};
const Said kAdded = {{"Success!", "You have successfully added \"dave99\" to your friends list"}};
const Said kRemoved = {{"Alert!", "Are you sure you want to remove \"bobby1\""},
                       {"Alert!", "You have successfully removed\"bobby1\""}};
const Said kCleaned = {{"Sure?", "Are you sure,you want to clean your list?"},
                       {"Success!", "You've successfully cleaned your list."}};
const Said kNotRemoved = {{"Error!", "Server/Internet connection error.\nUnable to save text."}};
const Said kShared = {{"Success!", "You have successfull share \"one\" with \"bobby1\""}};
const Said kWrongContact = {{"Error!", "Wrong contact username."}};
const Said kOffline = {{"Error!", "Please check your connection."}};
const Said kRegistered = {{"Success!", "You have successfully been registred as Quillery member."}};
const Said kNotRegistered = {
    {"Faild!", "You haven't been registred as Quillery member,duo to Error or internet connection problem."}};
const Said kChanged = {{"Success!", "You've successfully changed your password!"}};
const Said kNotChanged = {{"Faild!", "Your password hasn't been changed duo to network/server error."}};

// The controller and a server that misbehaves.
class ServerFaults : public ControllerTest {
  protected:
    // Something the user does that asks the server for files.
    struct Operation {
        std::string name;
        std::string steps;  // R: a file is read, W: one is written
        void (ServerFaults::*run)();
        std::vector<Said> said;     // where only so many of the steps are served: none, one …
        std::string file;           // what is rewritten, if so
        std::string before, after;  // the result until it is done, and then
    };

    void startWith(bool isSignedIn) {
        std::filesystem::remove_all(rescued);
        std::filesystem::create_directories(rescued);
        server = std::make_unique<ScriptedFtpServer>();
        configuration.storageHost = "127.0.0.1";
        configuration.storagePort = server->port();
        for (const char *user : {"alice1", "bobby1", "dave99"}) {
            put(std::string(user) + "_Username.txt", user);
            put(std::string(user) + "_Password.txt", "secret");
        }
        put("alice1_Contacts.txt", kBobby);
        put(".alice1_Quillery.txt", kTexts);
        put(".bobby1_Quillery.txt", "x" + kEnd);
        put("bobby1_shared.txt", "y" + kEnd);
        putLocal("");
        setAutoLogin(QStringLiteral("alice1"));
        if (!isSignedIn) set("kAutoLogin", QStringLiteral("No"));
        start();
    }
    // The `index`th of these is refused.
    static Fault refused(const char *verb, int index) {
        return {.at = verb, .reply = "550 No.", .skip = index, .times = 1};
    }

    void put(const std::string &name, const std::string &text) const {
        server->setFile("htdocs/" + name, text);
    }
    std::string stored(const std::string &name) const {
        return server->file("htdocs/" + name).value_or("(none)");
    }
    void expect(const Said &said) {
        for (const auto &[title, message] : said)
            alerts.expect(QString::fromUtf8(title), QString::fromUtf8(message));
    }

    // Each time as somebody else.
    void signUp() {
        const QString user = QStringLiteral("carol%1").arg(++signUps);
        i().Open_sign_up_view->trigger();
        for (QLineEdit *field : {i().Sign_up_Fullname, i().Sign_up_username}) field->setText(user);
        for (QLineEdit *field : {i().Sign_up_password, i().Sign_up_re_password})
            field->setText(QStringLiteral("secret"));
        i().Sign_up_email->setText(QStringLiteral("c@d.e"));
        i().Sign_up_done->click();
        settle();
    }
    std::string signedUp(const char *kind = "Password") const {
        return stored("carol" + std::to_string(signUps) + "_" + kind + ".txt");
    }
    void signIn() {
        i().Open_sign_in_window->trigger();
        i().Sign_in_username->setText(QStringLiteral("alice1"));
        i().Sign_in_password->setText(QStringLiteral("secret"));
        i().Sign_in_done->click();
    }
    void changePassword() {
        i().changePasswordItem->trigger();
        i().Change_old_password->setText(QStringLiteral("secret"));
        for (QLineEdit *field : {i().Change_new_password, i().Change_retype_password})
            field->setText(QStringLiteral("better"));
        i().Change_done_button->click();
    }
    void addFriend() {
        delegate->Contact_index_number = 0;
        i().Add_contact_textfield->setText(QStringLiteral("dave99"));
        i().Add_contact_done_button->click();
        settle();
    }
    void pickFriend() {
        i().Contacts_table->setCurrentIndex(i().Contacts_table->model()->index(0, 0));
        QTest::keyClick(i().Contacts_table, Qt::Key_Return);
    }
    void removeFriend() {
        i().Remove_a_friend_item->trigger();
        if (!delegate->Contacts_array.empty()) pickFriend();
    }
    void pickToShare() {
        delegate->ShareMode_enabled = true;
        pick(0);
    }
    void share() {
        delegate->Contacts_array = {"bobby1", ""};
        i().Clipboard_saved_string_combobox->selectItemAtIndex(0);
        i().Contacts_table->reloadData();
        i().showContactsToPick();
        i().Quillery_window->show();
        pickFriend();
    }
    void putIntoSharedFile() {
        delegate->Contact_Username = "bobby1";
        i().Clipboard_saved_string_combobox->selectItemAtIndex(0);
        enter([this] { delegate->Share_action(); });
    }
    void removeItem() {
        delegate->RemoveMode_enabled = true;
        i().Clipboard_saved_string_combobox->insertItemWithObjectValue("two", 0);
        pick(0);
    }

    void cleanList() { i().Clear_list_button->click(); }

    static std::vector<Operation> operations() {
        std::vector<Operation> all;
        const auto add = [&all](const char *name, const char *steps, void (ServerFaults::*run)(),
                                const std::vector<Said> &said, const char *file, const std::string &before,
                                const std::string &after) {
            all.push_back({name, steps, run, said, file, before, after});
        };
        using This = ServerFaults;
        const Said no;
        const Said &failed = kNotRegistered;
        const Said noConnection = {{"Error!", "There is an internet connection error"}};
        add("sign-up", "RWWWW", &This::signUp, {failed, failed, failed, failed, failed, kRegistered}, "",
            "(none)", "secret");
        add("sign-in", "RRW", &This::signIn, {kOffline, kOffline, kOffline, no}, "", "|alice1", "alice1|");
        add("pick to share", "RR", &This::pickToShare, {kNoFriends, no, no}, "", "0", "2");
        add("password change", "RW", &This::changePassword, {no, kNotChanged, kChanged},
            "alice1_Password.txt", "secret", "better");
        add("adding a friend", "RRRW", &This::addFriend, {no, noConnection, kAdded, kAdded, kAdded},
            "alice1_Contacts.txt", kBobby, "dave99" + kEnd + kBobby);
        add("removing a friend", "RRW", &This::removeFriend, {kNoFriends, kRemoved, kRemoved, kRemoved},
            "alice1_Contacts.txt", kBobby, "");
        add("sharing", "RW", &This::share, {kWrongContact, no, kShared}, ".bobby1_Quillery.txt", "x" + kEnd,
            "Shared from(alice1)one" + kEnd + "x" + kEnd);
        add("the shared file", "RRW", &This::putIntoSharedFile, {no, no, no, no}, "bobby1_shared.txt",
            "y" + kEnd, "(alice1)one" + kEnd + "y" + kEnd);
        add("removing an item", "RW", &This::removeItem, {kNotRemoved, kNotRemoved, no},
            ".alice1_Quillery.txt", kTexts, "one" + kEnd + "three" + kEnd);
        add("cleaning", "W", &This::cleanList, {kCleaned, kCleaned}, ".alice1_Quillery.txt", kTexts, "");
        return all;
    }
    // With a server for itself, and nobody signed in where that is what it is about.
    void startFor(const Operation &operation) { startWith(!operation.name.starts_with("sign-")); }
    // Does it, and gives the result.
    std::string resultOf(const Operation &operation, const Faults &faults, const Said &said) {
        server->setFaults(faults);
        expect(said);
        (this->*operation.run)();
        settle();
        EXPECT_EQ(alerts.outstanding(), 0U);
        if (operation.name == "sign-up") return signedUp();
        if (operation.name == "sign-in")
            return delegate->Username.value_or("") + "|" + i().Sign_in_username->text().toStdString();
        if (operation.file.empty()) return std::to_string(delegate->Contacts_array.size());
        return stored(operation.file);
    }

    std::unique_ptr<ScriptedFtpServer> server;
    const std::filesystem::path rescued = stateFolder() / "quillery/rescued";
    int signUps = 0;
};

TEST_F(ServerFaults, AServerThatGoesAwayAtAnyStepLeavesEverythingAsItWasAndUsable) {
    for (const Operation &operation : operations()) {
        startFor(operation);
        const std::string &steps = operation.steps;
        for (std::size_t served = 0; served <= steps.size(); ++served) {
            SCOPED_TRACE(operation.name + " " + std::to_string(served));
            const auto countOf = [&](char step) {
                return static_cast<int>(std::ranges::count(steps.substr(0, served), step));
            };
            const Faults gone = {{.at = "RETR", .hangsUp = true, .skip = countOf('R')},
                                 {.at = "STOR", .hangsUp = true, .skip = countOf('W')}};
            EXPECT_EQ(resultOf(operation, gone, operation.said[served]),
                      served < steps.size() ? operation.before : operation.after);
            EXPECT_EQ(i().Share_switch->isEnabled(), delegate->isSigned_in);
        }
        if (!delegate->isSigned_in) continue;
        i().Log_in_menu_item->trigger();
        save(operation.name);
        EXPECT_EQ(items().front(), operation.name) << "the local list works on";
        i().Clipboard_saves_menu_item->trigger();
        EXPECT_EQ(items().front(), operation.name);
    }
}

TEST_F(ServerFaults, AFileThatCouldNotBeReadWholeIsNotRewritten) {
    for (const Operation &operation : operations()) {
        // A friend who is added is written without the friends who could not be read.
        if (operation.steps.find("RW") == std::string::npos || operation.file.empty() ||
            operation.name == "adding a friend")
            continue;
        const int last = static_cast<int>(operation.steps.find('W')) - 1;
        for (const Fault &fault :
             {refused("RETR", last), Fault{.at = "data", .hangsUp = true, .skip = last, .times = 3}}) {
            SCOPED_TRACE(operation.name + " " + fault.at);
            startFor(operation);
            EXPECT_EQ(resultOf(operation, {fault}, operation.said[static_cast<std::size_t>(last)]),
                      operation.before);
        }
    }
}

TEST_F(ServerFaults, WhoWritesLastWins) {
    for (const Operation &operation : operations()) {
        if (operation.file.empty()) continue;
        SCOPED_TRACE(operation.name);
        startFor(operation);
        const Fault other{.at = "STOR", .meanwhile = [&] { put(operation.file, "another's" + kEnd); }};
        EXPECT_EQ(resultOf(operation, {other}, operation.said.back()), operation.after);
    }
}

TEST_F(ServerFaults, TheLastUploadAloneDecidesASignUp) {
    startWith(false);
    const std::vector<const char *> kinds = {"Fullname", "Username", "Email", "Password"};
    for (int refusedOne = 0; refusedOne < 4; ++refusedOne) {
        SCOPED_TRACE(refusedOne);
        server->setFaults({refused("STOR", refusedOne)});
        expect(refusedOne < 3 ? kRegistered : kNotRegistered);
        signUp();
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(signedUp(kinds[static_cast<std::size_t>(k)]) == "(none)", k == refusedOne);
    }
}

TEST_F(ServerFaults, AFileThatCannotBeReadSignsNobodyIn) {
    startWith(false);
    for (int unreadable = 0; unreadable < 2; ++unreadable) {
        server->setFaults({refused("RETR", unreadable)});
        signIn();
        EXPECT_FALSE(delegate->isSigned_in);
        EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!"));
        i().Sign_in_done->click();
        EXPECT_TRUE(delegate->isSigned_in);
        i().Log_in_menu_item->trigger();
    }
}

TEST_F(ServerFaults, AListWhoseSecondReadFailsIsShownEmpty) {
    startWith(true);
    server->setFaults({refused("RETR", 1)});
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items());
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"one", "two", "three", ""}));
}

TEST_F(ServerFaults, AStallingReadIsWaitedForVisiblyAndCanBeGivenUp) {
    startWith(false);
    int turns = 0;
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&] { ++turns; });
    heartbeat.start(10);
    std::vector<std::string> waitedFor;
    QObject::connect(&waiting, &Waiting::slow, [&](const QString &whatFor) {
        QTimer::singleShot(0, [&, whatFor] {
            EXPECT_TRUE(i().waitingWindow->isVisible());
            EXPECT_GT(turns, 40) << "the event loop turned all the time";
            waitedFor.push_back(whatFor.toStdString());
            QTest::keyClick(i().waitingWindow.get(), Qt::Key_Escape);
        });
    });
    const std::string friends = "Reading your friends from the storage server…";
    const auto giveUp = [&](int read, const std::string &whatFor, const Said &said,
                            const std::function<void()> &run) {
        SCOPED_TRACE(whatFor);
        server->setFaults({{.at = "RETR", .stalls = true, .skip = read, .times = 1}});
        server->forgetCommands();
        turns = 0;
        waitedFor.clear();
        expect(said);
        run();
        settle();
        EXPECT_EQ(waitedFor, Items{whatFor});
        EXPECT_FALSE(i().waitingWindow->isVisible());
        for (const std::string &command : server->commands())
            EXPECT_TRUE(!command.starts_with("STOR") || command == "STOR htdocs/.Check_internet") << command;
    };
    giveUp(0, "Looking whether the user name is free…", {}, [&] { signUp(); });
    EXPECT_EQ(i().Sign_up_username->text(), QStringLiteral("carol1"));
    EXPECT_EQ(i().Sign_up_done->text(), QStringLiteral("Done"));
    giveUp(0, "Asking the storage server for the account…", kOffline, [&] { signIn(); });
    EXPECT_THAT(server->commands(), Not(Contains(HasSubstr("_Password")))) << "giving up once is enough";
    EXPECT_THAT(server->commands(), Not(Contains(StartsWith("STOR"))));
    EXPECT_EQ(i().Sign_in_password->text(), QStringLiteral("secret")) << "what was typed stays";
    signIn();
    ASSERT_TRUE(delegate->isSigned_in);
    giveUp(0, "Asking the storage server for the old password…", {}, [&] { changePassword(); });
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
    i().Clipboard_saves_menu_item->trigger();
    const auto open = [&] { i().Clipboard_saves_menu_item->trigger(); };
    giveUp(0, "Reading your list from the storage server…", {}, open);
    EXPECT_EQ(items().size(), 4U);
    EXPECT_TRUE(i().List_View->isVisible());
    giveUp(0, friends, kNoFriends, [&] { pickToShare(); });
    giveUp(1, friends, {}, [&] { pickToShare(); });
    EXPECT_TRUE(delegate->Contacts_array.empty());
    giveUp(0, friends, kNoFriends, [&] { removeFriend(); });
    giveUp(0, friends, {}, [&] { addFriend(); });
    giveUp(1, "Asking the storage server for this user…", {{"Error!", "There is no user with this username"}},
           [&] { addFriend(); });
    EXPECT_EQ(i().Add_contact_textfield->text(), QStringLiteral("dave99"));
    expect(kAdded);
    addFriend();
    EXPECT_EQ(stored("alice1_Contacts.txt"), "dave99" + kEnd + kBobby);
}

TEST_F(ServerFaults, AFormThatIsBeingCheckedAndWrittenCannotBeChangedOrSentAgain) {
    startWith(false);
    // What the button says at each step, in the order of the steps.
    const auto check = [&](QLineEdit *field, QPushButton *button, const Said &said,
                           const std::string &expected, const std::function<void()> &run) {
        SCOPED_TRACE(expected);
        const auto isLocked = [&] { return field->isReadOnly() && !button->isEnabled(); };
        std::string seen;
        const auto look = [&] {
            ui.run([&] {
                if (seen.empty()) button->click();
                seen += isLocked() ? button->text().toStdString() + ";" : "open;";
            });
        };
        server->setFaults({{.at = "RETR", .meanwhile = look}, {.at = "STOR", .meanwhile = look}});
        expect(said);
        run();
        settle();
        EXPECT_EQ(seen, expected);
        EXPECT_FALSE(isLocked());
        EXPECT_EQ(field->text(), QString());
    };
    check(i().Sign_up_email, i().Sign_up_done, kRegistered, "Done;Wait...;Wait...;Wait...;Wait...;",
          [&] { signUp(); });
    check(i().Sign_in_username, i().Sign_in_done, {}, "Sign in;Sign in;Sign in;", [&] { signIn(); });
    check(i().Change_new_password, i().Change_done_button, kChanged, "Done;Done;", [&] { changePassword(); });
    check(i().Add_contact_textfield, i().Add_contact_done_button, kAdded, "Add;Add;Add;Add;",
          [&] { addFriend(); });
}

TEST_F(ServerFaults, QuittingWaitsForAnAccountThatIsBeingWritten) {
    startWith(true);
    server->setFaults({{.at = "STOR", .delay = 1500ms}});
    changePassword();
    EXPECT_EQ(stored("alice1_Password.txt"), "secret");
    alerts.expect("Alert!", "Are you sure you want to quit?");
    QTimer::singleShot(0, [&] {
        i().Quit->trigger();
        i().Clear_list_button->click();            // nothing starts any more
        i().waitingWindow->showFor({}, {}, true);  // as for another wait that is on the screen just now
        alerts.expect("Sure?",
                      "This is not finished, and will not be done if you quit now:\nChanging the password\n*",
                      1);
        i().waitingWindow->close();
        expect(kChanged);
    });
    QTimer limit;
    QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(1); });
    limit.start(10s);
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_EQ(stored("alice1_Password.txt"), "better");
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("better"));
}

TEST_F(ServerFaults, ChangesOfOneListAndLooksAtItTakeTurns) {
    startWith(true);
    i().Clipboard_saves_menu_item->trigger();
    server->setFaults({{.at = "RETR", .delay = 50ms}, {.at = "STOR", .delay = 100ms}});
    i().RemoveItem_button->click();
    pick(1);
    pick(0);
    for (const char *text : {"new", "newer"}) {
        copy(text);
        i().Saveing_menu_item->trigger();
    }
    EXPECT_EQ(notifications.texts.size(), 2) << "an announcement waits for no write";
    EXPECT_EQ(stored(".alice1_Quillery.txt"), kTexts);
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), (Items{"newer", "new", "three", ""}));
    settle();
    EXPECT_EQ(stored(".alice1_Quillery.txt"), "newer" + kEnd + "new" + kEnd + "three" + kEnd);
}

TEST_F(ServerFaults, AListThatCannotBeReadForAMomentIsNotLost) {
    const Fault cut{.at = "data", .hangsUp = true}, refusedOnce{.at = "RETR", .reply = "451 Try again."},
        readOnly{.at = "STOR", .reply = "553 No."};
    const std::string both = "b" + kEnd + "a" + kEnd;
    struct Row {
        Fault fault;
        int times;
        std::string list;
        Items copies;
        std::uint64_t mostBytes = kMostTextBytes;
    };
    for (const Row &row :
         {Row{cut, 2, both + kTexts, {}}, Row{refusedOnce, 2, both + kTexts, {}},
          Row{refused("RETR", 0), 1, both, {kTexts}}, Row{cut, 3, both, {kTexts}},
          Row{readOnly, 2, kTexts, {both + kTexts}}, Row{cut, 0, kTexts, {both}, kTexts.size() - 1}}) {
        SCOPED_TRACE(row.fault.at + row.list);
        configuration.transport.limits.mostTextBytes = row.mostBytes;
        startWith(true);
        i().Clipboard_saves_menu_item->trigger();
        Fault fault = row.fault;
        fault.times = row.times;
        server->setFaults({fault});
        for (const char *text : {"a", "b"}) save(text);
        EXPECT_EQ(stored(".alice1_Quillery.txt"), row.list);
        Items copies;
        for (const auto &file : std::filesystem::directory_iterator(rescued))
            copies.push_back(*FileManager().textAtPath(file.path()).text);
        EXPECT_EQ(copies, row.copies);
        EXPECT_EQ(i().notificationBanner->isVisible(), !copies.empty());
    }
}

TEST_F(ServerFaults, TheListOnThisMachineNeverWaitsForTheServer) {
    configuration.transport.limits.idleTimeout = 2s;
    startWith(true);
    server->setFaults({{.at = "STOR", .stalls = true}});
    copy("for the account");
    i().Saveing_menu_item->trigger();
    i().Log_in_menu_item->trigger();
    copy("for this machine");
    i().Saveing_menu_item->trigger();
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), (Items{"for this machine", ""}));
    EXPECT_GT(background.running(), 0) << "the account's save is not over";
    EXPECT_FALSE(RescuedLists(rescued, {}).adoptLeftovers()) << "a text on its way is its program's";
    const auto onItsWay = std::filesystem::directory_iterator(rescued)->path();
    EXPECT_EQ(FileManager().textAtPath(onItsWay).text, "for the account" + kEnd) << "and outlives a kill";
}

TEST_F(ServerFaults, QuittingDoesNotWaitForWhatIsOnlyRead) {
    startWith(true);
    server->setFaults({{.at = "SIZE", .stalls = true}});
    i().Contacts_item->trigger();
    ASSERT_TRUE(waitFor([&] { return server->waitUntilAt("SIZE"); }));
    delegate->performRequest("quit", [](const SingleInstance::Answer &) {});
    EXPECT_TRUE(waitFor([&] { return background.running() == 0; }, 3000));
}

}  // namespace
