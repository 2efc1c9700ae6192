#include "platform/BackgroundTasks.h"

#include <gtest/gtest.h>

#include "platform/UiThread.h"
#include "tests/support/WaitFor.h"

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
