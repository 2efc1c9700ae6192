#include <QProcess>
#include <QTest>
#include <csignal>
#include <cstdio>
#include <random>

#include "app/ClipList.h"
#include "tests/app/ControllerTest.h"

// Programs that save one text after another to the same list are killed at any instant. Whatever they had
// announced by then is in the list, but for the one text that was in flight.
class KillTest : public ControllerTest {
  protected:
    // Text number n, of varying length.
    static std::string text(int n) {
        return std::to_string(n) + " " + std::string(static_cast<std::size_t>(n % 7) * 500, 'x');
    }
    static void announce(int n) {
        std::printf("announced %d\n", n);
        std::fflush(stdout);
    }
    // This very program, told by the environment to save from a given number on.
    void startSaver(QProcess &saver, const char *way, int first) const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("SAVER_FIRST", QString::number(first));
        environment.insert("SAVER_HOME", QString::fromStdString(savers.string()));
        saver.setProcessEnvironment(environment);
        saver.start(QCoreApplication::applicationFilePath(),
                    {"--gtest_also_run_disabled_tests",
                     QStringLiteral("--gtest_filter=KillTest.DISABLED_%1").arg(way)});
    }

    // Out of reach of the savers' own setting up.
    const std::filesystem::path savers =
        qEnvironmentVariable("SAVER_HOME", QString::fromStdString(home.parent_path() / "saver"))
            .toStdString();
    const std::filesystem::path list = savers / "Documents" / ".Quillery.txt";
    const int firstNumber = qEnvironmentVariableIntValue("SAVER_FIRST");
};

TEST_F(KillTest, DISABLED_Program) {
    home = savers;
    start();
    notifications.onDeliver = [](const QString &announced) {
        announce(announced.section('"', 1, 1).section(' ', 0, 0).toInt());
    };
    for (int n = firstNumber;; ++n) {
        copy(text(n));
        i().Saveing_menu_item->trigger();
    }
}

TEST_F(KillTest, DISABLED_List) {
    LocalList writer;
    for (int n = firstNumber;; ++n)
        if (writer.createIfMissing(list).empty() && writer.add(list, text(n)).isWritten) announce(n);
}

TEST_F(KillTest, TwoProgramsKilledAtAnyInstantLoseNothing) {
    constexpr int kKills = 16;
    constexpr int kRange = 10'000;
    const std::string oldest(300'000, 'o');
    ASSERT_TRUE(LocalList().add(list, oldest).isWritten);
    std::mt19937 random(4711);
    for (int first = kRange; first <= kKills * kRange; first += 2 * kRange) {
        QProcess programs[2];
        startSaver(programs[0], "Program", first);
        startSaver(programs[1], "List", first + kRange);
        std::size_t size = 0;
        QByteArray output[2];
        int announced[2] = {};
        const int target = 1 + static_cast<int>(random() % 12);
        const auto look = [&] {
            for (int k = 0; k < 2; ++k)
                announced[k] =
                    static_cast<int>((output[k] += programs[k].readAllStandardOutput()).count("announced"));
            return announced[0] >= target && announced[1] >= target;
        };
        ASSERT_TRUE(waitFor(
            [&] {
                const auto whole = FileManager().textAtPath(list).text.value_or("");
                EXPECT_TRUE(whole.ends_with(oldest) && whole.size() >= size) << "empty or cut";
                size = whole.size();
                return look();
            },
            60'000))
            << announced[0] << " and " << announced[1] << " instead of " << target << "\n"
            << programs[0].readAllStandardError().right(2000).toStdString();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 15'000));
        for (QProcess &saver : programs) {
            ::kill(static_cast<pid_t>(saver.processId()), SIGKILL);
            saver.waitForFinished();
        }
        look();
        const auto whole = FileManager().textAtPath(list).text.value_or("");
        Items kept[2];  // of either, newest first
        for (const auto piece : ClipList::componentsSeparatedByTerminator(whole)) {
            const int saver = std::atoi(piece.substr(0, 8).data()) / kRange - first / kRange;
            if (saver == 0 || saver == 1) kept[saver].emplace_back(piece);
        }
        for (int k = 0; k < 2; ++k) {
            EXPECT_GE(static_cast<int>(kept[k].size()), announced[k] - (k == 0 ? 1 : 0));
            for (int n = first + k * kRange; !kept[k].empty(); kept[k].pop_back())
                ASSERT_TRUE(kept[k].back() == text(n++)) << "lost or twice: " << n - 1;
        }
    }
    const auto beside = std::distance(std::filesystem::directory_iterator(list.parent_path()), {});
    EXPECT_LE(beside, 4) << "the list, its lock, and what the last two left";
}
