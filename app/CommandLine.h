#pragma once

#include <QStringList>
#include <optional>

// What the user has asked for on the command line.
struct CommandLine {
    enum class Task {
        kRun,   // be the program, or show the one that runs
        kSave,  // the others: through the program that runs
        kList,
        kQuit,
        kVersion,  // these two only print
        kHelp,
    };
    Task task = Task::kRun;
    // Why it makes no sense, in words; empty if it does.
    QString problem;

    // `arguments` begin with the program's name. What the toolkit takes for itself (-platform and the like)
    // is left to it.
    static CommandLine parse(const QStringList &arguments);
    static QString help();
};

// How the program ends.
enum ExitStatus : int {
    kDone = 0,
    kRefused = 1,  // the program that runs refused or failed, or this one could not start
    kWrongUsage = 2,
    kNoneRuns = 3,  // nobody to pass a command on to
};
