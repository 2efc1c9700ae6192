#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QIcon>
#include <QSocketNotifier>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/Shell.h"
#include "platform/ColorScheme.h"
#include "platform/Display.h"
#include "platform/OutlineStyle.h"
#include "platform/SingleInstance.h"

namespace {

// How long the program that runs may take to answer: to a mere question, and to what needs a storage server
// that may be slow.
constexpr std::chrono::seconds kPatience{15};
constexpr std::chrono::seconds kWorkLimit{300};

std::array<int, 2> endRequests = {-1, -1};

void requestEnd(int) {
    const char one = 1;
    [[maybe_unused]] const auto written = write(endRequests[1], &one, 1);
}

// A session that ends, or a Ctrl-C, ends the program as "Quit" does, only without the question.
void endOnSignals(AppDelegate &delegate) {
    if (pipe2(endRequests.data(), O_CLOEXEC) != 0) return;
    auto *notifier = new QSocketNotifier(endRequests[0], QSocketNotifier::Read, &delegate);
    QObject::connect(notifier, &QSocketNotifier::activated, &delegate, [&delegate, notifier] {
        notifier->setEnabled(false);
        delegate.endSession();
    });
    struct sigaction action = {};
    action.sa_handler = requestEnd;
    action.sa_flags = SA_RESETHAND;  // a second one ends the program at once
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
}

// quillery-storage beside the program, or wherever the user's programs are.
std::filesystem::path storageProgram() {
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/quillery-storage");
    return QFile::exists(beside) ? beside.toStdString() : std::string("/usr/bin/quillery-storage");
}

// A display that goes away ends the process within the toolkit. What was announced as saved is finished
// first.
BackgroundTasks *unfinished = nullptr;

void finishWithoutDisplay() {
    if (!unfinished || unfinished->running() == 0) return;
    constexpr std::chrono::seconds kLimit{60};
    std::fprintf(stderr, "Quillery: the display is gone; finishing what is being saved.\n");
    unfinished->finishWithoutDisplay(kLimit);
}

void say(const std::string &problem) {
    std::fprintf(stderr, "quillery: %s\n", problem.c_str());
}

// A program that is started with its standard descriptors closed would be given their numbers for its files
// and sockets, and write its log lines there.
void openStandardDescriptors() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0) close(descriptor);
}

// A write past a limit of file size, or to a reader that has gone, is to fail, and be told, like any other.
void ignoreSignalsOfWrites() {
    for (const int signal : {SIGXFSZ, SIGPIPE}) std::signal(signal, SIG_IGN);
}

// Everything but being the program.
int runCommand(const CommandLine &line) {
    if (!line.problem.isEmpty()) {
        say(line.problem.toStdString() + "\n" + CommandLine::help().toStdString());
        return kWrongUsage;
    }
    std::string request;
    switch (line.task) {
        case CommandLine::Task::kHelp:
            std::fputs(qUtf8Printable(CommandLine::help()), stdout);
            return kDone;
        case CommandLine::Task::kVersion:
            std::puts("Quillery " QUILLERY_VERSION);
            return kDone;
        case CommandLine::Task::kSave:
            request = "save";
            break;
        case CommandLine::Task::kList:
            request = "list";
            break;
        case CommandLine::Task::kQuit:
            request = "quit";
            break;
        case CommandLine::Task::kRun:
            return kWrongUsage;
    }
    const auto answer = SingleInstance::send(request, kWorkLimit, line.task == CommandLine::Task::kQuit);
    if (!answer) {
        say("no Quillery runs for you on this display");
        return kNoneRuns;
    }
    if (answer->status != kDone) say(answer->words);
    return answer->status;
}

QIcon applicationIcon() {
    QIcon icon(QStringLiteral(":/images/quillery.png"));
    for (const int size : {16, 22, 24, 32, 48, 64})
        icon.addFile(QStringLiteral(":/status/quillery-%1.png").arg(size), QSize(size, size));
    return icon;
}

QStringList argumentsOf(int argc, char **argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

}  // namespace

int main(int argc, char **argv) {
    openStandardDescriptors();
    ignoreSignalsOfWrites();
    const mode_t usersMask = umask(077);  // whatever this program writes is for its user alone
    QApplication::setApplicationName(QStringLiteral("Quillery"));
    QApplication::setApplicationVersion(QStringLiteral(QUILLERY_VERSION));
    const CommandLine line = CommandLine::parse(argumentsOf(argc, argv));
    if (line.task != CommandLine::Task::kRun || !line.problem.isEmpty()) return runCommand(line);

    std::optional<DisplayCheck> display(std::in_place);
    if (!display->problem().empty()) {
        say(display->problem());
        return kRefused;
    }
    SingleInstance instance;
    // One that is just ending answers nobody any more, and soon leaves its place.
    const auto patience = std::chrono::steady_clock::now() + kPatience;
    while (instance.claim() == SingleInstance::Claim::kIsSecond) {
        if (const auto answer = SingleInstance::send("activate", kPatience)) {
            if (answer->status != kDone) say(answer->words);
            return answer->status;
        }
        if (std::chrono::steady_clock::now() > patience) {
            say("a Quillery runs for you on this display, but does not answer");
            return kRefused;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    QApplication application(argc, argv);
    display.reset();
    if (QApplication::arguments().size() > 1) {
        say("unknown argument " + QApplication::arguments().at(1).toStdString() + "\n" +
            CommandLine::help().toStdString());
        return kWrongUsage;
    }
    QApplication::setDesktopFileName(QStringLiteral("quillery"));
    QApplication::setWindowIcon(applicationIcon());
    QApplication::setQuitOnLastWindowClosed(false);  // it lives in the status bar

    QApplication::setStyle(new OutlineStyle);  // the application's from now on
    const ColorScheme colors;
    UiThread ui;
    ActionGate gate;
    BackgroundTasks background(ui);
    Waiting waiting(ui);
    MessageBoxAlerts alerts;
    DesktopPasteboard pasteboard(ui, waiting);
    UserDefaults defaults;
    DesktopNotifications notifications;
    DesktopWorkspace workspace(usersMask);
    PersonalStorage storage;
    const auto storageIsAt = storageProgram();
    const LoginItem loginItem(QApplication::applicationFilePath().toStdString());

    AppDelegate delegate(
        Shell{ui, gate, background, waiting, alerts, pasteboard, defaults, notifications, workspace,
              loginItem, Configuration::load(), QDir::homePath().toStdString(),
              [&](const std::stop_token &stop) { return storage.ensureRunning(storageIsAt, stop); }});
    endOnSignals(delegate);
    if (!QDBusConnection::sessionBus().isConnected()) {
        std::fprintf(stderr,
                     "Quillery: there is no session bus, so notifications are shown in a window of this "
                     "program's, and the status bar can only be an X11 tray.\n");
    }
    unfinished = &background;
    std::atexit(finishWithoutDisplay);
    if (!instance.listen([&](const std::string &request, const SingleInstance::Reply &reply) {
            delegate.performRequest(request, reply);
        })) {
        std::fprintf(stderr, "Quillery: commands of other processes cannot be taken.\n");
    }
    QMetaObject::invokeMethod(
        &delegate,
        [&] {
            gate.enter([&] {
                if (!defaults.problem().isEmpty())
                    alerts.run(QStringLiteral("Error!"), defaults.problem(), {QStringLiteral("OK")}, 0);
                delegate.applicationDidFinishLaunching();
            });
        },
        Qt::QueuedConnection);
    const int status = QApplication::exec();
    background.waitForAll();
    unfinished = nullptr;
    return status;
}
