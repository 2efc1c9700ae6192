#include "platform/Pasteboard.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QTimer>
#include <csignal>

#include "platform/UiThread.h"
#include "platform/Waiting.h"
#include "platform/XSelectionReader.h"
#include "tests/support/WaitFor.h"

using namespace std::string_literals;

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
        const auto wire =
            waiting.run(QString(), [](std::stop_token) { return readXSelection({std::chrono::seconds(5)}); });
        EXPECT_TRUE(wire.text == text);
        copyInAnotherProgram(text);
        const auto fromThread =
            waiting.run(QString(), [this](std::stop_token) { return pasteboard.stringForType(); });
        EXPECT_TRUE(fromThread.text == text) << "read in the background";
        // From a new owner each time: one need not survive that a reader goes away amid its answer.
        const auto stateWithin = [&](std::chrono::seconds time, std::size_t bytes) {
            copyInAnotherProgram(text);
            return readXSelection({std::chrono::seconds(5), time, bytes}).state;
        };
        EXPECT_EQ(stateWithin(std::chrono::seconds(60), text.size() - 1), PasteboardText::State::kTooLarge);
        EXPECT_EQ(stateWithin(std::chrono::seconds(0), text.size()), PasteboardText::State::kNoAnswer);
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
    std::stop_source stop;
    stop.request_stop();
    clock.restart();
    waiting.run(QString(), [&](std::stop_token) { return pasteboard.stringForType(stop.get_token()); });
    EXPECT_LT(clock.elapsed(), 1000) << "nor is it waited for once the program ends";
    kill(static_cast<pid_t>(owner.processId()), SIGCONT);
}
