#include "platform/Pasteboard.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QClipboard>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QTimer>
#include <csignal>
#include <cstdio>

#include "platform/UiThread.h"
#include "platform/Waiting.h"
#include "platform/WaylandSelection.h"
#include "platform/XSelectionReader.h"
#include "tests/support/WaitFor.h"

using namespace std::literals;

class PasteboardTest : public testing::Test {
  protected:
    // Another program that owns the clipboard and offers `bytes` as UTF-8.
    void copyInAnotherProgram(const std::string &bytes) {
        TearDown();
        owner.start("xclip", {"-quiet", "-selection", "clipboard"});
        owner.write(bytes.data(), static_cast<qint64>(bytes.size()));
        owner.closeWriteChannel();
        ASSERT_TRUE(waitFor([&] {
            return !QGuiApplication::clipboard()->ownsClipboard() && pasteboard.stringForType().text == bytes;
        }));
    }
    void TearDown() override {
        owner.kill();
        owner.waitForFinished();
    }

    UiThread ui;
    Waiting waiting{ui};
    DesktopPasteboard pasteboard{ui, waiting};
    QProcess owner;
};

TEST_F(PasteboardTest, TextsOfEveryKindGoBothWaysByteForByte) {
    std::string everything = "\xEF\xBB\xBFtab\t nul\0 cr\r\n \xF0\x9F\x98\x80 e\xCC\x81 \xD7\xA9\xD7\x9C"s;
    std::string large;
    while (large.size() < 5'000'000) large += everything;
    for (const std::string &text : {everything, large}) {
        ASSERT_TRUE(pasteboard.setString(text));
        EXPECT_TRUE(pasteboard.stringForType().text == text);
        // What another program gets, over the wire.
        const auto wire = waiting.run(QString(), [](std::stop_token) { return readXSelection({5s}); });
        EXPECT_TRUE(wire.text == text);
        copyInAnotherProgram(text);
        const auto fromThread =
            waiting.run(QString(), [this](std::stop_token) { return pasteboard.stringForType(); });
        EXPECT_TRUE(fromThread.text == text) << "read in the background";
        // From a new owner each time: one need not survive that a reader goes away amid its answer.
        const auto stateWithin = [&](std::chrono::seconds time, std::size_t bytes) {
            copyInAnotherProgram(text);
            return readXSelection({5s, time, bytes}).state;
        };
        EXPECT_EQ(stateWithin(60s, text.size() - 1), PasteboardText::State::kTooLarge);
        EXPECT_EQ(stateWithin(0s, text.size()), PasteboardText::State::kNoAnswer);
    }
}

TEST_F(PasteboardTest, TellsAnEmptyClipboardFromOneWithoutText) {
    QGuiApplication::clipboard()->clear();
    EXPECT_EQ(pasteboard.stringForType().state, PasteboardText::State::kNoText);
    QGuiApplication::clipboard()->setImage(QImage(4, 4, QImage::Format_RGB32));
    EXPECT_EQ(pasteboard.stringForType().state, PasteboardText::State::kNoText);
    QGuiApplication::clipboard()->setText(QStringLiteral(""));
    EXPECT_EQ(pasteboard.stringForType().text, "");
}

TEST_F(PasteboardTest, AnOwnerThatHangsIsGivenUpWhileTheInterfaceLives) {
    copyInAnotherProgram("text");
    ASSERT_EQ(kill(static_cast<pid_t>(owner.processId()), SIGSTOP), 0);
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(10);
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(pasteboard.stringForType().state, PasteboardText::State::kNoAnswer);
    EXPECT_LT(clock.elapsed(), 4000);
    EXPECT_GT(ticks, 20);
    kill(static_cast<pid_t>(owner.processId()), SIGCONT);
}

// How the owner of the clipboard gives its text on a Wayland desktop.
TEST(WaylandPipe, IsReadToItsEndWithinTheLimits) {
    using State = PasteboardText::State;
    struct Case {
        const char *name, *writer;  // a shell command
        PasteboardLimits limits;
        State state;
        std::string text = "";
        bool isStopped = false;
    };
    const Case cases[] = {
        {"a text", "printf 'gr\\303\\274\\0e\\n'", {5s, 60s, 7}, State::kText, "gr\xC3\xBC\0e\n"s},
        {"bytes that are not UTF-8", "printf 'a\\377z'", {5s}, State::kText, "a\xEF\xBF\xBDz"},
        {"one byte too many", "printf 1234567", {5s, 60s, 6}, State::kTooLarge},
        {"no end to the bytes", "while echo more; do :; done", {5s, 5s, 100'000}, State::kTooLarge},
        {"no end in time", "while echo more; do :; done", {5s, 100ms}, State::kNoAnswer},
        {"silence after the text", "printf text; exec sleep 0.5", {100ms}, State::kNoAnswer},
        {"the program ends", "printf text; exec sleep 0.5", {60s}, State::kNoAnswer, "", true},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.name);
        FILE *writer = popen(one.writer, "r");
        std::stop_source stop;
        if (one.isStopped) stop.request_stop();
        const auto found = readPipe(dup(fileno(writer)), one.limits, stop.get_token());
        EXPECT_EQ(found.state, one.state);
        EXPECT_EQ(found.text, one.text);
        pclose(writer);
    }
}
