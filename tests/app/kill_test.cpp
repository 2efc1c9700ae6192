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

    // Out of reach of the savers' own setting up.
    const std::filesystem::path savers =
        qEnvironmentVariable("SAVER_HOME", QString::fromStdString(home.parent_path() / "saver"))
            .toStdString();
    const std::filesystem::path list = savers / "Documents" / ".Quillery.txt";
    const int firstNumber = qEnvironmentVariableIntValue("SAVER_FIRST");
};

// A program that is killed: this very one, told by the environment to save from a given number on.
class Saver {
  public:
    Saver(const char *way, const std::filesystem::path &home, int first) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SAVER_FIRST"), QString::number(first));
        environment.insert(QStringLiteral("SAVER_HOME"), QString::fromStdString(home.string()));
        process_.setProcessEnvironment(environment);
        process_.start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--gtest_also_run_disabled_tests"),
                        QStringLiteral("--gtest_filter=KillTest.DISABLED_%1").arg(QLatin1String(way))});
    }
    // How many texts it has announced.
    int announced() {
        output_ += process_.readAllStandardOutput();
        return static_cast<int>(output_.count("announced"));
    }
    void kill() {
        ::kill(static_cast<pid_t>(process_.processId()), SIGKILL);
        process_.waitForFinished();
    }

  private:
    QProcess process_;
    QByteArray output_;
};

TEST_F(KillTest, DISABLED_Program) {
    home = savers;
    start();
    notifications.onDeliver = [](const QString &announced) {
        announce(announced.section(u'"', 1, 1).section(u' ', 0, 0).toInt());
    };
    for (int n = firstNumber;; ++n) {
        copy(text(n));
        delegate->interface.Saveing_menu_item->trigger();
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
        Saver program("Program", savers, first);
        Saver other("List", savers, first + kRange);
        const int target = 1 + static_cast<int>(random() % 30);
        std::size_t size = 0;
        ASSERT_TRUE(waitFor(
            [&] {
                const auto whole = FileManager().textAtPath(list).text.value_or("");
                EXPECT_TRUE(whole.ends_with(oldest) && whole.size() >= size) << "empty or cut";
                size = whole.size();
                return program.announced() >= target && other.announced() >= target;
            },
            60'000));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 15'000));
        program.kill();
        other.kill();
        const auto whole = FileManager().textAtPath(list).text.value_or("");
        std::vector<std::string> kept[2];  // of either, newest first
        for (const auto piece : ClipList::componentsSeparatedByTerminator(whole)) {
            const int saver = std::atoi(piece.substr(0, 8).data()) / kRange - first / kRange;
            if (saver == 0 || saver == 1) kept[saver].emplace_back(piece);
        }
        EXPECT_GE(static_cast<int>(kept[0].size()), program.announced() - 1);
        EXPECT_GE(static_cast<int>(kept[1].size()), other.announced());
        for (int saver = 0; saver < 2; ++saver)
            for (int n = first + saver * kRange; !kept[saver].empty(); kept[saver].pop_back())
                ASSERT_TRUE(kept[saver].back() == text(n++)) << "lost or twice: " << n - 1;
    }
    const auto beside = std::distance(std::filesystem::directory_iterator(list.parent_path()), {});
    EXPECT_LE(beside, 4) << "the list, its lock, and what the last two left";
}
