#include <QProcess>
#include <csignal>
#include <cstdio>
#include <random>

#include <QProcess>
#include <QTest>

#include "app/ClipList.h"
#include "tests/app/ControllerTest.h"

// A program that saves one text after another is killed at any instant. Whatever it had announced by then is
// in the list, but for the one text that was in flight.
class KillTest : public ControllerTest {
  protected:
    KillTest() { setNotFirstUse(); }

    // Text number n, of varying length.
    static std::string text(int n) {
        return std::to_string(n) + " " + std::string(static_cast<std::size_t>(n % 7) * 500, 'x');
    }
};

// The program that is killed: this very one, told by the environment to save from a given number on.
TEST_F(KillTest, DISABLED_Saver) {
    const int first = qEnvironmentVariableIntValue("SAVER_FIRST");
    home = qEnvironmentVariable("SAVER_HOME").toStdString();
    start();
    notifications.onDeliver = [](const QString &announced) {
        std::printf("announced %s\n", qPrintable(announced.section(u'"', 1, 1).section(u' ', 0, 0)));
        std::fflush(stdout);
    };
    for (int n = first;; ++n) {
        copy(text(n));
        delegate->interface.Saveing_menu_item->trigger();
    }
}

TEST_F(KillTest, AThousandSavesKilledAtAnyInstantLoseNothing) {
    constexpr int kSaves = 1000;
    const std::filesystem::path savers =
        home.parent_path() / "saver";  // out of reach of the savers' own setting up
    const std::filesystem::path list = savers / "Documents" / ".Quillery.txt";
    std::mt19937 random(4711);
    int announced = 0;  // the highest number so far
    int kills = 0;
    while (announced < kSaves) {
        QProcess saver;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SAVER_FIRST"), QString::number(announced + 1));
        environment.insert(QStringLiteral("SAVER_HOME"), QString::fromStdString(savers.string()));
        saver.setProcessEnvironment(environment);
        saver.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--gtest_also_run_disabled_tests"),
                     QStringLiteral("--gtest_filter=KillTest.DISABLED_Saver")});
        // From the first announcement on, any instant within some fifty saves' time.
        QByteArray output;
        ASSERT_TRUE(
            waitFor([&] { return (output += saver.readAllStandardOutput()).contains("announced"); }, 60'000));
        const int target = static_cast<int>(random() % 100);
        while (output.count("announced") < target && saver.state() == QProcess::Running) {
            saver.waitForReadyRead(10);
            output += saver.readAllStandardOutput();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 15'000));
        ASSERT_EQ(kill(static_cast<pid_t>(saver.processId()), SIGKILL), 0);
        saver.waitForFinished();
        ++kills;
        output += saver.readAllStandardOutput();
        for (const QByteArray &line : output.split('\n')) {
            if (line.startsWith("announced ")) announced = std::max(announced, line.mid(10).toInt());
        }

        const auto kept = FileManager().textAtPath(list).text;
        ASSERT_TRUE(kept);
        const auto pieces = ClipList::componentsSeparatedByTerminator(*kept);
        // Newest first, none missing: from the newest kept down to the first.
        const int newest = static_cast<int>(pieces.size()) - 1;
        ASSERT_GE(newest, announced - 1) << "after kill " << kills;
        for (int n = newest; n >= 1; --n) {
            ASSERT_EQ(pieces[static_cast<std::size_t>(newest - n)], text(n)) << "after kill " << kills;
        }
        announced = newest;  // what is in the list counts, announced or not
    }
    std::printf("%d saves, killed %d times\n", announced, kills);
}
