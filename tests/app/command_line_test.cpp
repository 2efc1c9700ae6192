#include "app/CommandLine.h"

#include <gtest/gtest.h>

namespace {

using Task = CommandLine::Task;

CommandLine parse(const QStringList &arguments) {
    return CommandLine::parse(QStringList{QStringLiteral("quillery")} + arguments);
}

TEST(CommandLineTest, KnowsItsCommands) {
    const std::pair<QStringList, Task> cases[] = {
        {{}, Task::kRun},
        {{u"--save"_qs}, Task::kSave},
        {{u"--list"_qs}, Task::kList},
        {{u"--quit"_qs}, Task::kQuit},
        {{u"--version"_qs}, Task::kVersion},
        {{u"-h"_qs}, Task::kHelp},
        {{u"--save"_qs, u"--save"_qs}, Task::kSave},
        {{u"-platform"_qs, u"xcb"_qs}, Task::kRun},  // for the toolkit
    };
    for (const auto &[arguments, task] : cases) {
        const CommandLine line = parse(arguments);
        EXPECT_EQ(line.task, task) << arguments.join(u' ').toStdString();
        EXPECT_TRUE(line.problem.isEmpty());
    }
}

TEST(CommandLineTest, RefusesWhatItDoesNotKnow) {
    for (const QStringList &arguments :
         {QStringList{u"--sav"_qs}, QStringList{u"--save"_qs, u"--quit"_qs},
          QStringList{u"--save"_qs, u"--now"_qs}, QStringList{u"--"_qs}, QStringList{u"text"_qs},
          QStringList{u"--save"_qs, u"text"_qs}, QStringList{u"--help"_qs, u"-x"_qs}})
        EXPECT_FALSE(parse(arguments).problem.isEmpty()) << arguments.join(u' ').toStdString();
}

}  // namespace
