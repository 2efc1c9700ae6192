// The controller and a server that fails, stalls or is slow at any step of what the user does.
#include <sys/resource.h>

#include <QTest>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <csignal>
#include <latch>

#include "tests/app/ControllerTest.h"

using namespace std::chrono_literals;

namespace {

const std::string kBobby = "bobby1" + kEnd;
const std::string kTexts = "one" + kEnd + "two" + kEnd + "three" + kEnd;
const std::string kList = ".alice1_Quillery.txt";
const Alert kNoServer{"Error!", "Please check your connection."};
const Alert kLostConnection{"Error!", "There is an internet connection error"};
const Alert kNotChanged{"Faild!", "Your password hasn't been changed duo to network/server error."};

// What a user does that asks the server for files.
struct Operation {
    std::string name;
    std::string steps;  // R: a file is read, W: one is written
    std::function<void()> run;
    std::function<std::string()> result;
    std::string before, after;  // the result until it is done, and then
    // The alerts where the server goes away before the first step, the second … and where it stays.
    std::vector<Said> said;
    // The reads that the user waits for and may give up: what the program waits for then, and its alerts.
    std::vector<std::pair<const char *, Said>> waits;
};

class ServerFaults : public ControllerTest {
  protected:
    ServerFaults() : ControllerTest(100ms) {}

    void startWith(bool isSignedIn) {
        useScriptedServer();
        std::filesystem::remove_all(rescued);
        for (const char *user : {"alice1", "bobby1", "dave99"}) putAccount(user);
        putRemote("alice1_Contacts.txt", kBobby);
        putRemote(kList, kTexts);
        putRemote(".bobby1_Quillery.txt", "x" + kEnd);
        putRemote("bobby1_shared.txt", "y" + kEnd);
        putLocal("");
        setAutoLogin("alice1");
        if (!isSignedIn) set("kAutoLogin", "No");
        start();
        server->forgetCommands();
    }
    // The one after so many is refused.
    static Fault refused(const char *verb, int skip) {
        return {.at = verb, .reply = "550 No.", .skip = skip, .times = 1};
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
        list().selectItemAtIndex(0);
        i().Contacts_item->trigger();
        settle();
        pickFriend();
    }
    void putIntoSharedFile() {
        delegate->Contact_Username = "bobby1";
        list().selectItemAtIndex(0);
        enter([this] { delegate->Share_action(); });
    }
    void removeItem() {
        delegate->RemoveMode_enabled = true;
        list().insertItemWithObjectValue("two", 0);
        pick(0);
    }

    std::string fileOfList() const { return remote(kList).value_or("(none)"); }

    // The last of each one's alerts are those of the happy path.
    std::vector<Operation> operations() {
        const auto file = [this](const std::string &name) {
            return [this, name] { return remote(name).value_or("(none)"); };
        };
        const auto contacts = file("alice1_Contacts.txt"), list = file(kList);
        const auto whoIsSignedIn = [this] {
            return delegate->Username.value_or("") + "|" + i().Sign_in_username->text().toStdString();
        };
        const auto shownList = [this] {
            std::string all;
            for (const std::string &item : items()) all += item + ";";
            return all;
        };
        const auto numberOfFriends = [this] { return std::to_string(delegate->Contacts_array.size()); };
        const char *const friends = "Reading your friends from the storage server…";
        const char *const account = "Asking the storage server for the account…";
        const Said no, failed{kNotRegistered}, added{friendAdded("dave99")},
            removed{{"Alert!", "Are you sure you want to remove \"bobby1\""},
                    {"Alert!", "You have successfully removed\"bobby1\""}},
            cleaned{{"Sure?", "Are you sure,you want to clean your list?"},
                    {"Success!", "You've successfully cleaned your list."}};
        std::vector<Operation> all;
        using Waits = std::vector<std::pair<const char *, Said>>;
        const auto add = [&](const char *name, const char *steps, const std::function<void()> &run,
                             const std::function<std::string()> &result, const std::string &before,
                             const std::string &after, const std::vector<Said> &said,
                             const Waits &waits = {}) {
            all.push_back({name, steps, run, result, before, after, said, waits});
        };
        add("sign-up", "RWWWW", [this] { signUp("carol1"); }, file("carol1_Password.txt"), "(none)", "secret",
            {failed, failed, failed, failed, failed, {kRegistered}},
            {{"Looking whether the user name is free…", no}});
        add("sign-in", "RRW", [this] { signIn("alice1"); }, whoIsSignedIn, "|alice1", "alice1|",
            {{kNoServer}, {kNoServer}, {kNoServer}, no}, {{account, {kNoServer}}, {account, {kNoServer}}});
        add("pick to share", "RR", [this] { pickToShare(); }, numberOfFriends, "0", "2",
            {{kNoFriends}, no, no}, {{friends, {kNoFriends}}, {friends, no}});
        add("password change", "RW", [this] { changePassword("secret", "better", "better"); },
            file("alice1_Password.txt"), "secret", "better", {no, {kNotChanged}, {kPasswordChanged}},
            {{"Asking the storage server for the old password…", no}});
        add("adding a friend", "RRRW", [this] { addFriend("dave99"); }, contacts, kBobby,
            "dave99" + kEnd + kBobby, {no, {kLostConnection}, added, added, added},
            {{friends, no}, {"Asking the storage server for this user…", {kNobody}}});
        add("removing a friend", "RRW", [this] { removeFriend(); }, contacts, kBobby, "",
            {{kNoFriends}, removed, removed, removed}, {{friends, {kNoFriends}}});
        add("sharing", "RW", [this] { share(); }, file(".bobby1_Quillery.txt"), "x" + kEnd,
            "Shared from(alice1)one" + kEnd + "x" + kEnd, {{kWrongFriend}, no, {shared("one", "bobby1")}});
        add("the shared file", "RRW", [this] { putIntoSharedFile(); }, file("bobby1_shared.txt"), "y" + kEnd,
            "(alice1)one" + kEnd + "y" + kEnd, {no, no, no, no});
        add("removing an item", "RW", [this] { removeItem(); }, list, kTexts, "one" + kEnd + "three" + kEnd,
            {{kUnsaved}, {kUnsaved}, no});
        add("cleaning", "W", [this] { i().Clear_list_button->click(); }, list, kTexts, "",
            {cleaned, cleaned});
        add("opening the list", "RR", [this] { openList(); }, shownList, "one;two;three;;", "one;two;three;;",
            {no, no, no}, {{"Reading your list from the storage server…", no}});
        return all;
    }
    // Starts anew, does it, and gives the result.
    std::string resultOf(const Operation &operation, const Faults &faults, const Said &said) {
        startWith(!operation.name.starts_with("sign-"));
        server->setFaults(faults);
        alerts.expect(said);
        operation.run();
        settle();
        EXPECT_EQ(alerts.outstanding(), 0U);
        return operation.result();
    }
};

TEST_F(ServerFaults, AServerThatGoesAwayAtAnyStepLeavesEverythingAsItWasAndUsable) {
    for (const Operation &operation : operations()) {
        const std::string &steps = operation.steps;
        for (std::size_t served = 0; served <= steps.size(); ++served) {
            SCOPED_TRACE(operation.name + " " + std::to_string(served));
            const auto countOf = [&](char step) {
                return static_cast<int>(std::ranges::count(steps.substr(0, served), step));
            };
            const Faults gone = {{.at = "RETR", .hangsUp = true, .skip = countOf('R')},
                                 {.at = "STOR", .hangsUp = true, .skip = countOf('W')}};
            const std::string result = resultOf(operation, gone, operation.said[served]);
            if (operation.name == "opening the list" && served == 1) {
                EXPECT_EQ(result, "") << "the second read counts";
                continue;
            }
            EXPECT_EQ(result, served < steps.size() ? operation.before : operation.after);
            EXPECT_EQ(i().Share_switch->isEnabled(), delegate->isSigned_in);
            const bool takesAway = operation.name.starts_with("removing") || operation.name == "cleaning";
            if (takesAway && served + 1 == steps.size()) {
                EXPECT_EQ(copies(), Items{operation.before}) << "the server may hold a part of it";
            }
        }
        if (delegate->isSigned_in) i().Log_in_menu_item->trigger();
        save(operation.name);
        openList();
        EXPECT_EQ(items().front(), operation.name) << "the local list works on";
    }
}

TEST_F(ServerFaults, AFileThatCouldNotBeReadWholeIsNotRewritten) {
    for (const Operation &operation : operations()) {
        const std::size_t write = operation.steps.find("RW") + 1;
        if (write == 0 || operation.name == "sign-up") continue;
        const bool adds = operation.name == "adding a friend";  // whose list is begun anew
        const int last = static_cast<int>(write) - 1;
        for (const Fault &fault :
             {refused("RETR", last), Fault{.at = "data", .hangsUp = true, .skip = last, .times = 3}}) {
            SCOPED_TRACE(operation.name + " " + fault.at);
            const bool signsIn = operation.name == "sign-in";
            const auto &said = operation.said[static_cast<std::size_t>(last)];
            EXPECT_EQ(resultOf(operation, {fault}, signsIn ? Said() : said),
                      adds ? "dave99" + kEnd : operation.before);
            EXPECT_EQ(i().Sign_in_done->text(), signsIn ? "Wrong entries/Network error!" : "Sign in");
        }
    }
}

TEST_F(ServerFaults, AStallingReadIsWaitedForVisiblyAndCanBeGivenUp) {
    int turns = 0;
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&] { ++turns; });
    heartbeat.start(5);
    Items waitedFor;
    QObject::connect(&waiting, &Waiting::slow, [&](const QString &whatFor) {
        QTimer::singleShot(0, [&, whatFor] {
            EXPECT_TRUE(i().waitingWindow->isVisible());
            EXPECT_GT(turns, 5) << "the event loop turned all the time";
            waitedFor.push_back(whatFor.toStdString());
            QTest::keyClick(i().waitingWindow.get(), Qt::Key_Escape);
        });
    });
    for (const Operation &operation : operations()) {
        for (std::size_t read = 0; read < operation.waits.size(); ++read) {
            SCOPED_TRACE(operation.name + " " + std::to_string(read));
            turns = 0;
            waitedFor.clear();
            const Fault stall{.at = "RETR", .stalls = true, .skip = static_cast<int>(read), .times = 1};
            const auto &[whatFor, said] = operation.waits[read];
            const std::string result = resultOf(operation, {stall}, said);
            const bool isOpening = operation.name == "opening the list";
            EXPECT_EQ(result, operation.before);
            EXPECT_TRUE(!isOpening || i().List_View->isVisible());
            EXPECT_EQ(waitedFor, Items{whatFor}) << "giving up once is enough";
            EXPECT_FALSE(i().waitingWindow->isVisible());
            for (const std::string &command : server->commands())
                EXPECT_TRUE(!command.starts_with("STOR") || command == "STOR htdocs/.Check_internet");
            // What was typed stays, in a form that can be sent again.
            EXPECT_TRUE(operation.name != "sign-up" || i().Sign_up_email->text() == "a@b.c");
            for (const QPushButton *button :
                 {i().Sign_up_done, i().Sign_in_done, i().Add_contact_done_button})
                EXPECT_TRUE(button->isEnabled());
        }
    }
}

TEST_F(ServerFaults, TheLastUploadAloneDecidesASignUp) {
    const std::vector<std::string> kinds = {"Fullname", "Username", "Email", "Password"};
    for (int refusedOne = 0; refusedOne < 4; ++refusedOne) {
        SCOPED_TRACE(refusedOne);
        startWith(false);
        server->setFaults({refused("STOR", refusedOne)});
        alerts.expect({refusedOne < 3 ? kRegistered : kNotRegistered});
        signUp("carol1");
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_EQ(remote("carol1_" + kinds[k] + ".txt").has_value(), static_cast<int>(k) != refusedOne);
    }
}

TEST_F(ServerFaults, AFormThatIsBeingCheckedAndWrittenCannotBeChangedOrSentAgain) {
    startWith(false);
    // What the button says at each step, in the order of the steps.
    const auto check = [&](QLineEdit *field, QPushButton *button, const Alert &said,
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
        if (!said.title.isEmpty()) alerts.expect({said});
        run();
        settle();
        EXPECT_EQ(seen, expected);
        EXPECT_FALSE(isLocked());
        EXPECT_EQ(field->text(), "");
    };
    check(i().Sign_up_email, i().Sign_up_done, kRegistered, "Done;Wait...;Wait...;Wait...;Wait...;",
          [&] { signUp("carol1"); });
    check(i().Sign_in_username, i().Sign_in_done, {}, "Sign in;Sign in;Sign in;", [&] { signIn("alice1"); });
    check(i().Change_new_password, i().Change_done_button, kPasswordChanged, "Done;Done;",
          [&] { changePassword("secret", "better", "better"); });
    check(i().Add_contact_textfield, i().Add_contact_done_button, friendAdded("dave99"), "Add;Add;Add;Add;",
          [&] { addFriend("dave99"); });
}

TEST_F(ServerFaults, TwoClicksThatWaitForTheirTurnSendAFormOnce) {
    startWith(true);
    alerts.expect({kPasswordChanged});
    enter([&] {
        changePassword("secret", "better", "better");
        i().Change_done_button->click();
    });
    settle();
    EXPECT_EQ(std::ranges::count(server->commands(), "STOR htdocs/alice1_Password.txt"), 1);
}

// The server answers the first only when all have been asked for.
TEST_F(ServerFaults, ChangesOfOneListAndLooksAtItTakeTurnsInTheOrderOfTheClicks) {
    startWith(true);
    openList();
    std::latch allAsked{1};
    std::atomic<int> reads = 0;
    const auto hold = [&] {
        if (++reads == 1) allAsked.wait();
    };
    server->setFaults({{.at = "RETR", .meanwhile = hold}});
    i().RemoveItem_button->click();
    pick(1);
    ASSERT_TRUE(waitFor([&] { return reads == 1; }));
    pick(0);
    for (const char *text : {"new", "newer"}) {
        copy(text);
        i().Saveing_menu_item->trigger();
    }
    EXPECT_EQ(notifications.texts.size(), 2) << "an announcement waits for no write";
    EXPECT_EQ(fileOfList(), kTexts);
    QTimer::singleShot(0, [&] { allAsked.count_down(); });
    openList();
    EXPECT_EQ(items(), (Items{"newer", "new", "three", ""}));
    settle();
    EXPECT_EQ(fileOfList(), "newer" + kEnd + "new" + kEnd + "three" + kEnd);
}

TEST_F(ServerFaults, ClicksDuringASlowReadRunAfterItUnlessTheirControlIsOffByThen) {
    startWith(true);
    server->setFaults({{.at = "RETR", .meanwhile = [&] {
                            ui.run([&] {
                                if (!gate.isBusy() || !delegate->isSigned_in) return;
                                server->setFaults({});
                                i().Share_switch->click();
                                i().Log_in_menu_item->trigger();
                                i().RemoveItem_button->click();
                                i().Change_password_button->click();
                                i().Share_switch->click();
                                i().Read_local_button->click();
                            });
                        }}});
    openList();
    EXPECT_FALSE(delegate->isSigned_in || delegate->ShareMode_enabled || delegate->Read_Local_mode);
    EXPECT_FALSE(i().Share_switch->isChecked() || i().Read_local_button->isChecked());
    EXPECT_TRUE(delegate->RemoveMode_enabled);
    EXPECT_EQ(shownView(), i().List_View);
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
        openList();
        Fault fault = row.fault;
        fault.times = row.times;
        server->setFaults({fault});
        for (const char *text : {"a", "b"}) save(text);
        EXPECT_EQ(fileOfList(), row.list);
        EXPECT_EQ(copies(), row.copies);
        EXPECT_EQ(i().notificationBanner->isVisible(), !row.copies.empty());
    }
}

TEST_F(ServerFaults, AnEntryStaysWhereItWasKeptMeanwhileIfItsListCannotBeCopied) {
    startWith(true);
    putRemote(kList, std::string(1000, 'o'));
    server->setFaults({{.at = "STOR", .reply = "553 No."}});
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit full{.rlim_cur = 500, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    save("new");
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(copies(), Items{"new" + kEnd});
}

TEST_F(ServerFaults, TheListOnThisMachineNeverWaitsForTheServer) {
    startWith(true);
    std::latch isOver{1};
    server->setFaults({{.at = "STOR", .meanwhile = [&] { isOver.wait(); }}});
    copy("for the account");
    i().Saveing_menu_item->trigger();
    i().Log_in_menu_item->trigger();
    copy("for this machine");
    i().Saveing_menu_item->trigger();
    openList();
    EXPECT_EQ(items(), (Items{"for this machine", ""}));
    EXPECT_GT(background.running(), 0) << "the account's save is not over";
    EXPECT_FALSE(RescuedLists(rescued, {}).adoptLeftovers()) << "a text on its way is its program's";
    EXPECT_EQ(copies(), Items{"for the account" + kEnd}) << "and outlives a kill";
    isOver.count_down();
    settle();
    EXPECT_EQ(copies(), Items());
    EXPECT_EQ(fileOfList(), "for the account" + kEnd + kTexts);
}

TEST_F(ServerFaults, QuittingWaitsForAnAccountThatIsBeingWritten) {
    startWith(true);
    std::latch isGivenTime{1};
    server->setFaults({{.at = "STOR", .meanwhile = [&] { isGivenTime.wait(); }}});
    changePassword("secret", "better", "better");
    alerts.expect({kQuit});
    QTimer::singleShot(0, [&] {
        i().Quit->trigger();
        i().Open_sign_in_window->trigger();
        EXPECT_FALSE(i().Quillery_window->isVisible()) << "nothing starts any more";
        i().waitingWindow->showFor({}, {}, true);  // as for another wait that is on the screen just now
        alerts.expect(
            {{"Sure?",
              "This is not finished, and will not be done if you quit now:\nChanging the password\n*", 1}});
        i().waitingWindow->close();
        alerts.expect({kPasswordChanged});
        EXPECT_EQ(remote("alice1_Password.txt"), "secret");
        QTimer::singleShot(Waiting::kPatience + 100ms, [&] {
            EXPECT_TRUE(i().waitingWindow->isVisible()) << "it says what it waits for";
            isGivenTime.count_down();
        });
    });
    QTimer::singleShot(10s, [] { QCoreApplication::exit(1); });
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_EQ(remote("alice1_Password.txt"), "better");
    EXPECT_EQ(stored("kPassword"), "better");
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
