#include "app/CommandLine.h"

#include <QCoreApplication>
#include <QMap>

CommandLine CommandLine::parse(const QStringList &arguments) {
    const QMap<QString, Task> tasks{
        {QStringLiteral("--save"), Task::kSave}, {QStringLiteral("--list"), Task::kList},
        {QStringLiteral("--quit"), Task::kQuit}, {QStringLiteral("--version"), Task::kVersion},
        {QStringLiteral("-v"), Task::kVersion},  {QStringLiteral("--help"), Task::kHelp},
        {QStringLiteral("-h"), Task::kHelp},
    };
    CommandLine line;
    const auto refuse = [&line](const QString &argument) {
        line.problem = QCoreApplication::translate("CommandLine", "Unknown argument %1.").arg(argument);
    };
    QString foreign;  // the last one that is for the toolkit
    for (int i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        const auto task = tasks.find(argument);
        if (task != tasks.end() && (line.task == Task::kRun || line.task == *task)) {
            line.task = *task;
        } else if (task != tasks.end()) {
            line.problem = QCoreApplication::translate("CommandLine", "One command at a time.");
        } else if (argument.startsWith(u"--") ||
                   (!argument.startsWith(u'-') && !arguments[i - 1].startsWith(u'-'))) {
            refuse(argument);
        } else {
            foreign = argument;
        }
    }
    if (line.task != Task::kRun && !foreign.isEmpty()) refuse(foreign);
    return line;
}

QString CommandLine::help() {
    return QCoreApplication::translate(
        "CommandLine",
        "Usage: quillery [command]\n"
        "Keeps the copied texts that you save, and puts any of them back.\n"
        "\n"
        "Without a command it starts, or shows the Quillery that runs already.\n"
        "The commands reach the one that runs for you on this display:\n"
        "  --save         save the clipboard, as the hot key does\n"
        "  --list         open the saved list\n"
        "  --quit         end the program, after what is still being saved\n"
        "\n"
        "  -h, --help     print this\n"
        "  -v, --version  print the version\n"
        "\n"
        "Exit status: 0 done, 1 refused or failed, 2 wrong usage, 3 no Quillery "
        "runs.\n");
}
