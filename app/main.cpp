#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QIcon>
#include <QSocketNotifier>
#include <array>
#include <csignal>

#include "app/AppDelegate.h"
#include "app/Shell.h"

namespace {

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

}  // namespace

int main(int argc, char **argv) {
    const mode_t usersMask = umask(077);  // whatever this program writes is for its user alone
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillery"));
    QApplication::setApplicationVersion(QStringLiteral(QUILLERY_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("quillery"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/quillery.png")));
    QApplication::setQuitOnLastWindowClosed(false);  // it lives in the status bar

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Keeps the texts that you copy, and puts any of them back."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(application);

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

    AppDelegate delegate(
        Shell{ui, gate, background, waiting, alerts, pasteboard, defaults, notifications, workspace,
              Configuration::load(), QDir::homePath().toStdString(),
              [&](const std::stop_token &stop) { return storage.ensureRunning(storageIsAt, stop); }});
    endOnSignals(delegate);
    QMetaObject::invokeMethod(
        &delegate, [&] { gate.enter([&] { delegate.applicationDidFinishLaunching(); }); },
        Qt::QueuedConnection);
    return QApplication::exec();
}
