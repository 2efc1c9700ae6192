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

const std::string kTexts = "one" + kEnd + "two" + kEnd + "three" + kEnd;
const std::string kList = ".alice1_Quillery.txt";
const Alert kNoServer{"Error!", "Please check your connection."};

// What a user does that asks the server for files, in the words of a scenario.
struct Operation {
    QString steps;  // R: a file is read, W: one is written
    QString actions, seen;
    std::string before, after;  // what is seen until it is done, and then
    // The alerts where the server goes away before the first step, the second … and where it stays.
    QList<Said> said;
    QStringList waits;  // what the user waits for and may give up, a text for each read
};

class ServerFaults : public ControllerTest {
  protected:
    ServerFaults() : ControllerTest(100ms) {}

    void startWith(bool isSignedIn) {
        useScriptedServer();
        std::filesystem::remove_all(rescued);
        for (const char *user : {"alice1", "bobby1", "dave99"}) putAccount(user);
        putRemote("alice1_Contacts.txt", "bobby1" + kEnd);
        putRemote(kList, kTexts);
        putRemote(".bobby1_Quillery.txt", "x" + kEnd);
        putLocal("");
        setAutoLogin("alice1");
        if (!isSignedIn) set("kAutoLogin", "No");
        start();
        server->forgetCommands();
    }
    static Fault refusedRead(int skip) {
        return {.at = "RETR", .reply = "550 No.", .skip = skip, .times = 1};
    }

    std::vector<Operation> operations() {
        const char *const friends = "Reading your friends from the storage server…";
        const char *const account = "Asking the storage server for the account…";
        const Said no, failed{kNotRegistered}, added{friendAdded("dave99")},
            notChanged{{"Faild!", "Your password hasn't been changed duo to network/server error."}},
            removed{{"Alert!", "Are you sure you want to remove \"bobby1\""},
                    {"Alert!", "You have successfully removed\"bobby1\""}},
            cleaned{{"Sure?", "Are you sure,you want to clean your list?"},
                    {"Success!", "You've successfully cleaned your list."}};
        std::vector<Operation> all;
        const auto add = [&](const char *steps, const char *actions, const char *seen, const char *before,
                             const char *after, const QList<Said> &said, const QStringList &waits = {}) {
            all.push_back({steps, actions, seen, before, after, said, waits});
        };
        add("RWWWW", "sign-up carol1 secret", "remote carol1_Password.txt", "(none)", "secret",
            {failed, failed, failed, failed, failed, {kRegistered}},
            {"Looking whether the user name is free…"});
        add("RRW", "sign-in alice1 secret", "signed-in", "no", "yes",
            {{kNoServer}, {kNoServer}, {kNoServer}, no}, {account, account});
        add("RW", "change-password secret better", "remote alice1_Password.txt", "secret", "better",
            {no, notChanged, {kPasswordChanged}}, {"Asking the storage server for the old password…"});
        add("RRRW", "add-friend dave99", "remote alice1_Contacts.txt", "bobby1|", "dave99|bobby1|",
            {no, {{"Error!", "There is an internet connection error"}}, added, added, added}, {friends});
        add("RRW", "menu Remove_a_friend_item; pick-friend 0", "remote alice1_Contacts.txt", "bobby1|", "-",
            {{kNoFriends}, removed, removed, removed}, {friends});
        add("RRRW", "click Share_switch; pick 0; pick-friend 0", "remote .bobby1_Quillery.txt", "x|",
            "Shared from(alice1)one|x|", {{kNoFriends}, no, {kWrongFriend}, no, {shared("one", "bobby1")}},
            {friends});
        add("RW", "click RemoveItem_button; pick 1", "remote .alice1_Quillery.txt", "one|two|three|",
            "one|three|", {{kUnsaved}, {kUnsaved}, no});
        add("W", "click Clear_list_button", "remote .alice1_Quillery.txt", "one|two|three|", "-",
            {cleaned, cleaned});
        // Read twice: what the second finds is shown.
        add("R", "open", "list", "one|two|three|", "(none)", {no, no},
            {"Reading your list from the storage server…"});
        return all;
    }
    // Starts anew, does it, and gives the result.
    std::string resultOf(const Operation &operation, const Faults &faults, const Said &said) {
        startWith(!operation.actions.startsWith("sign-"));
        server->setFaults(faults);
        alerts.expect(said);
        for (const QString &action : operation.actions.split("; ")) act(action);
        settle();
        EXPECT_EQ(alerts.outstanding(), 0U);
        return see(operation.seen).toStdString();
    }
};

TEST_F(ServerFaults, AServerThatGoesAwayAtAnyStepLeavesEverythingAsItWasAndUsable) {
    for (const Operation &operation : operations()) {
        const QString &steps = operation.steps;
        for (int served = 0; served <= steps.size(); ++served) {
            SCOPED_TRACE(operation.actions.toStdString() + " " + std::to_string(served));
            const auto countOf = [&](char step) { return static_cast<int>(steps.left(served).count(step)); };
            const Faults gone = {{.at = "RETR", .hangsUp = true, .skip = countOf('R')},
                                 {.at = "STOR", .hangsUp = true, .skip = countOf('W')}};
            EXPECT_EQ(resultOf(operation, gone, operation.said[served]),
                      served < steps.size() ? operation.before : operation.after);
            EXPECT_EQ(i().Share_switch->isEnabled(), delegate->isSigned_in);
            const bool takesAway =
                operation.seen.startsWith("remote") && operation.after.size() < operation.before.size();
            if (takesAway && served + 1 == steps.size()) {
                const QString old =
                    QString::fromStdString(operation.before).replace("|", QString::fromStdString(kEnd));
                EXPECT_EQ(copies(), Items{old.toStdString()}) << "the server may hold a part of it";
            }
        }
    }
}

TEST_F(ServerFaults, AFileThatCouldNotBeReadWholeIsNotRewritten) {
    for (const Operation &operation : operations()) {
        const int last = static_cast<int>(operation.steps.indexOf("RW"));
        if (last < 0 || operation.actions.startsWith("sign-")) continue;
        for (const Fault &fault :
             {refusedRead(last), Fault{.at = "data", .hangsUp = true, .skip = last, .times = 3}}) {
            SCOPED_TRACE(operation.actions.toStdString() + " " + fault.at);
            const bool adds = operation.actions == "add-friend dave99";  // to a list that is begun anew
            EXPECT_EQ(resultOf(operation, {fault}, operation.said[last]),
                      adds ? "dave99|" : operation.before);
        }
    }
}

TEST_F(ServerFaults, AStallingReadIsWaitedForVisiblyAndCanBeGivenUp) {
    QStringList waitedFor;
    QObject::connect(&waiting, &Waiting::slow, [&](const QString &whatFor) {
        if (whatFor.startsWith("Checking the connection")) return;  // by the start, on a slow machine
        QTimer::singleShot(0, [&, whatFor] {
            EXPECT_TRUE(i().waitingWindow->isVisible());
            waitedFor << whatFor;
            QTest::keyClick(i().waitingWindow.get(), Qt::Key_Escape);
        });
    });
    for (const Operation &operation : operations()) {
        for (int read = 0; read < operation.waits.size(); ++read) {
            SCOPED_TRACE(operation.actions.toStdString() + " " + std::to_string(read));
            waitedFor.clear();
            const bool signsUp = operation.actions.startsWith("sign-up");
            const Fault stall{.at = "RETR", .stalls = true, .skip = read, .times = 1};
            EXPECT_EQ(resultOf(operation, {stall}, signsUp ? Said() : operation.said[read]),
                      operation.before);
            EXPECT_EQ(waitedFor.join("+").toStdString(), operation.waits[read].toStdString())
                << "giving up once is enough";
            EXPECT_FALSE(i().waitingWindow->isVisible());
            EXPECT_TRUE(i().Sign_up_done->isEnabled() && i().Sign_in_done->isEnabled());
        }
    }
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
    EXPECT_EQ(remote(kList), kTexts);
    QTimer::singleShot(0, [&] { allAsked.count_down(); });
    openList();
    EXPECT_EQ(items(), (Items{"newer", "new", "three", ""}));
    settle();
    EXPECT_EQ(remote(kList), "newer" + kEnd + "new" + kEnd + "three" + kEnd);
}

TEST_F(ServerFaults, ClicksDuringASlowReadRunAfterItUnlessTheirControlIsOffByThen) {
    startWith(true);
    Alert stay = kQuit;
    stay.answer = 1;
    server->setFaults({{.at = "RETR", .meanwhile = [&] {
                            ui.run([&] {
                                if (!gate.isBusy() || !delegate->isSigned_in) return;
                                server->setFaults({});
                                alerts.expect({stay});
                                i().Quit->trigger();
                                EXPECT_EQ(alerts.outstanding(), 0U) << "this question alone does not wait";
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
        bool isAside = false;  // the old list had to make way, and is fetched from there if there are copies
        std::uint64_t mostBytes = kMostTextBytes;
    };
    for (const Row &row :
         {Row{cut, 2, both + kTexts, {}}, Row{refusedOnce, 2, both + kTexts, {}},
          Row{refusedRead(0), 1, both, {kTexts}, true}, Row{cut, 3, both, {kTexts}, true},
          Row{refusedOnce, 4, both, {}, true}, Row{cut, 4, "b" + kEnd + kTexts, {"a" + kEnd + kTexts}},
          Row{readOnly, 2, kTexts, {both + kTexts}}, Row{cut, 0, kTexts, {both}, false, kTexts.size() - 1}}) {
        SCOPED_TRACE(row.fault.at + row.list);
        configuration.transport.limits.mostTextBytes = row.mostBytes;
        startWith(true);
        if (!row.isAside) openList();  // otherwise nothing is known of it here
        Fault fault = row.fault;
        fault.times = row.times;
        server->setFaults({fault});
        for (const char *text : {"a", "b"}) save(text);
        EXPECT_EQ(remote(kList), row.list);
        EXPECT_EQ(i().notificationBanner->isVisible(), !copies().empty());
        const auto commands = server->commands();
        const auto renaming =
            std::ranges::find_if(commands, [](const auto &it) { return it.starts_with("RNTO"); });
        ASSERT_EQ(renaming != commands.end(), row.isAside);
        const bool isFetched = !row.isAside || !row.copies.empty();
        EXPECT_TRUE(!isFetched || copies() == row.copies);
        if (!row.isAside) continue;
        const std::string aside = renaming->substr(5);
        EXPECT_EQ(server->file(aside), isFetched ? std::nullopt : std::optional(kTexts));
        const auto saysWhere = [name = aside.substr(aside.find('.'))](const std::string &copy) {
            return copy.find(name) != std::string::npos;
        };
        EXPECT_EQ(std::ranges::any_of(copies(), saysWhere), !isFetched);
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
    const Items whole{"for the account" + kEnd + kTexts};
    EXPECT_TRUE(waitFor([&] { return copies() == whole; })) << "it would outlive a kill with its list";
    EXPECT_FALSE(RescuedLists(rescued, {}).adoptLeftovers()) << "a text on its way is its program's";
    isOver.count_down();
    settle();
    EXPECT_EQ(copies(), Items());
    EXPECT_EQ(remote(kList), "for the account" + kEnd + kTexts);
}

TEST_F(ServerFaults, QuittingWaitsForAnAccountThatIsBeingWritten) {
    startWith(true);
    std::latch isGivenTime{1};
    server->setFaults({{.at = "STOR", .meanwhile = [&] { isGivenTime.wait(); }}});
    changePassword("secret", "better", "better");
    alerts.expect({kQuit});
    QTimer::singleShot(0, [&] {
        i().Quit->trigger();
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
}

}  // namespace
