#include "platform/Waiting.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QTimer>
#include <thread>

#include "platform/ActionGate.h"
#include "platform/BackgroundTasks.h"
#include "platform/UiThread.h"
#include "tests/support/WaitFor.h"

using namespace std::chrono_literals;

TEST(ActionGate, LaterActionsWaitForTheRunningOneInOrder) {
    ActionGate gate;
    std::string log;
    gate.enter([&] {
        log += "1(";
        for (char c = '2'; c < '6'; ++c) gate.enter([&log, c] { log += c; });
        EXPECT_TRUE(gate.isBusy());
        log += ")";
    });
    EXPECT_EQ(log, "1()2345");
    EXPECT_FALSE(gate.isBusy());
}

TEST(Waiting, TurnsTheEventLoopAndGivesTheValue) {
    UiThread ui;
    Waiting waiting(ui);
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(5);
    const int value = waiting.run(QString(), [](std::stop_token) {
        std::this_thread::sleep_for(200ms);
        return 42;
    });
    EXPECT_EQ(value, 42);
    EXPECT_GT(ticks, 10);
}

TEST(Waiting, SaysWhatItWaitsForAndCanBeCancelled) {
    UiThread ui;
    Waiting waiting(ui);
    QString said;
    bool over = false;
    QElapsedTimer clock;
    qint64 saidAfter = 0;
    QObject::connect(&waiting, &Waiting::slow, [&](const QString &what) {
        said = what;
        saidAfter = clock.elapsed();
        waiting.cancel();
    });
    QObject::connect(&waiting, &Waiting::finished, [&] { over = true; });
    clock.start();
    const bool stopped = waiting.run(QStringLiteral("for a mute server"), [](std::stop_token stop) {
        while (!stop.stop_requested()) std::this_thread::sleep_for(1ms);
        return true;
    });
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(over);
    EXPECT_EQ(said, QStringLiteral("for a mute server"));
    EXPECT_GE(saidAfter, 900);
    EXPECT_LT(clock.elapsed(), 5000);
}

TEST(BackgroundTasks, HandOverStepsInOrderAndAreWaitedFor) {
    UiThread ui;
    std::string log;
    {
        BackgroundTasks background(ui);
        for (int i = 0; i < 20; ++i) {
            background.performSelectorInBackground([&] {
                const std::size_t before = ui.run([&] { return log.size(); });
                ui.run([&] { log += before <= log.size() ? "x" : "?"; });
            });
        }
        EXPECT_GT(background.running(), 0);
        background.waitForAll();
        EXPECT_EQ(background.running(), 0);
        EXPECT_EQ(log, std::string(20, 'x'));
        background.performSelectorInBackground([&] { ui.run([&] { log = "the last"; }); });
    }
    EXPECT_EQ(log, "the last");
}

// A handed-over step that turns a loop of its own must not keep the steps behind it from that loop.
TEST(UiThread, StepsRunInsideNestedLoops) {
    UiThread ui;
    bool second = false;
    bool seen = false;
    ui.post([&] { seen = waitFor([&] { return second; }, 2000); });
    ui.post([&] { second = true; });
    EXPECT_TRUE(waitFor([&] { return seen; }, 3000));
}
