// The pure types of the program: texts in, answer out.
#include <gtest/gtest.h>

#include "app/AccountForms.h"
#include "app/ClipList.h"
#include "app/CommandLine.h"
#include "app/Configuration.h"

namespace {

using namespace std::string_literals;
using Items = std::vector<std::string>;
using Values = QMap<QString, QString>;
using Text = std::optional<std::string>;

const std::string kEnd = "\n-CLIPBOARD'S END-\n";

TEST(Forms, AreAcceptableUnlessOneRuleIsBroken) {
    const QString smiles = QStringLiteral("\U0001F600\U0001F600\U0001F600");  // six code units
    const QString ue = QStringLiteral("\u00FC\u00FC\u00FC\u00FC\u00FC");      // ten bytes
    const std::pair<SignUpForm, bool> signUps[] = {
        {{"A", "alice1", "@.", "secret", "secret"}, true},
        {{" ", smiles, ".a@", "      ", "      "}, true},  // blanks are text
        {{"", "alice1", "@.", "secret", "secret"}, false},
        {{"A", "alice", "@.", "secret", "secret"}, false},
        {{"A", ue, "@.", "secret", "secret"}, false},
        {{"A", "secret", "@.", "secret", "secret"}, false},
        {{"A", "alice1", "", "secret", "secret"}, false},
        {{"A", "alice1", "a@b", "secret", "secret"}, false},
        {{"A", "alice1", "a.b", "secret", "secret"}, false},
        {{"A", "alice1", "@.", "secret", "Secret"}, false},
        {{"A", "alice1", "@.", "short", "short"}, false},
    };
    for (const auto &[form, isGood] : signUps)
        EXPECT_EQ(form.isAcceptable(), isGood) << &form - &signUps[0].first;
    struct {
        PasswordForm form;
        Text file;
        const char *user;
        bool isGood;
    } const changes[] = {
        {{"secret", "secret", "secret"}, "secret", "alice1", true},  // the new one may be the old one
        {{"secret", "secret", "secret"}, {}, "alice1", false},
        {{"secret", "secret", "secret"}, "other", "alice1", false},
        {{"secret", "secret", "secret"}, "secret", "secret", false},
        {{"", "secret", "secret"}, "", "alice1", false},
        {{"secret", "short", "short"}, "secret", "alice1", false},
        {{"secret", "secret1", "secret2"}, "secret", "alice1", false},
    };
    for (const auto &[form, file, user, isGood] : changes)
        EXPECT_EQ(form.isAcceptable(file, user), isGood) << form.newPassword.toStdString();
    struct {
        SignInForm form;
        Text user, password;
        bool isRight;
    } const signIns[] = {
        {{"alice1", "secret"}, "", "secret", true},  // what the user-name file holds does not matter
        {{"alice1", "secret"}, "alice1", "Secret", false},
        {{"alice1", "secret"}, "alice1", "secret ", false},
        {{"alice1", "secret"}, "alice1", "secret\n", false},
        {{"alice1", "secret"}, "alice1", "", false},
        {{"alice1", "secret"}, "alice1", {}, false},
        {{"alice1", "secret"}, {}, "secret", false},
        {{"", ""}, "", {}, false},  // nothing never equals
    };
    for (const auto &[form, user, password, isRight] : signIns)
        EXPECT_EQ(form.isRight(user, password), isRight) << password.value_or("none");
}

TEST(ClipList, SplitsAtEveryTerminatorAndKeepsEveryPiece) {
    const std::pair<std::string, Items> cases[] = {
        {"", {""}},
        {"b" + kEnd + "a" + kEnd, {"b", "a", ""}},
        {"b" + kEnd + "a", {"b", "a"}},
        {kEnd + kEnd, {"", "", ""}},
        {"  line one\n\nline two\r\n" + kEnd, {"  line one\n\nline two\r\n", ""}},
        {"a\0b"s + kEnd + "-CLIPBOARD'S END-", {"a\0b"s, "-CLIPBOARD'S END-"}},
        // The apostrophe is the straight one.
        {"a\n-CLIPBOARD\xE2\x80\x99S END-\n", {"a\n-CLIPBOARD\xE2\x80\x99S END-\n"}},
    };
    for (const auto &[text, pieces] : cases) {
        const auto views = ClipList::componentsSeparatedByTerminator(text);
        EXPECT_EQ(Items(views.begin(), views.end()), pieces) << text;
    }
}

TEST(ClipList, EntriesComeInFrontAndGoAsPlainSubstrings) {
    EXPECT_EQ(ClipList::withEntryInFront("b", "a" + kEnd), "b" + kEnd + "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFront("a", std::nullopt), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", std::nullopt), "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", ""), "a" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("bc" + kEnd + "x" + kEnd + "bc" + kEnd, "bc"), "x" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("abc" + kEnd + "x" + kEnd, "bc"), "ax" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("b" + kEnd + "a", "a"), "b" + kEnd + "a") << "it has no terminator";
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, "bc"));
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, ""));
    EXPECT_FALSE(ClipList::containsEntry("bc", "bc"));
}

TEST(CommandLine, KnowsItsCommandsAndRefusesAllElse) {
    using Task = CommandLine::Task;
    const std::pair<const char *, std::optional<Task>> cases[] = {
        {"", Task::kRun},
        {"--save", Task::kSave},
        {"--list", Task::kList},
        {"--quit", Task::kQuit},
        {"-h", Task::kHelp},
        {"--version", Task::kVersion},
        {"--save --save", Task::kSave},
        {"-platform xcb", Task::kRun},  // for the toolkit
        {"--sav", {}},
        {"--save --quit", {}},
        {"--save --now", {}},
        {"--", {}},
        {"text", {}},
        {"--save text", {}},
        {"--help -x", {}},
    };
    for (const auto &[words, task] : cases) {
        const CommandLine line =
            CommandLine::parse(QStringList{"quillery"} + QString(words).split(' ', Qt::SkipEmptyParts));
        EXPECT_EQ(line.problem.isEmpty(), task.has_value()) << words;
        EXPECT_EQ(line.task, task.value_or(line.task)) << words;
    }
}

TEST(Configuration, TakesTheEnvironmentBeforeTheFileAndReplacesBadValues) {
    struct {
        Values file, environment;
        Text host;
        int port = 21;
        TlsMode tls = TlsMode::kOff;
        int seconds = 60, problems = 0;
    } const cases[] = {
        {{}, {}, {}},
        {{{"storage/host", "  "}}, {}, {}},
        {{{"storage/host", "a.example"},
          {"storage/port", "2121"},
          {"storage/tls", "try"},
          {"storage/idle_timeout_seconds", "5"}},
         {{"QUILLERY_STORAGE_HOST", "b.example"}, {"QUILLERY_STORAGE_TLS", "required"}},
         "b.example",
         2121,
         TlsMode::kRequired,
         5},
        {{{"storage/tls", "try"}}, {}, {}, 21, TlsMode::kTry},
        // A misspelt wish for encryption must not send the password in clear.
        {{{"storage/tls", "Required"}}, {}, {}, 21, TlsMode::kRequired, 60, 1},
        {{{"storage/idle_timeout_seconds", "0"}}, {}, {}, 21, TlsMode::kOff, 60, 1},
        {{{"storage/port", "0"}}, {}, {}, 21, TlsMode::kOff, 60, 1},
        {{{"storage/port", "65535"}}, {}, {}, 65535},
        {{{"storage/port", "65536"}}, {}, {}, 21, TlsMode::kOff, 60, 1},
        {{{"storage/port", "21x"}}, {}, {}, 21, TlsMode::kOff, 60, 1},
        {{{"storage/port", ""}}, {}, {}, 21, TlsMode::kOff, 60, 1},
        {{{"storage/host", "[::1]"}}, {}, "[::1]"},
        {{{"storage/host", "ftp://host"}}, {}, "", 21, TlsMode::kOff, 60, 1},
        {{{"storage/host", "host:21"}}, {}, "", 21, TlsMode::kOff, 60, 1},
        {{{"storage/host", "user@host"}}, {}, "", 21, TlsMode::kOff, 60, 1},
        {{{"storage/host", "two words"}}, {}, "", 21, TlsMode::kOff, 60, 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(&row - cases);
        const Configuration c = Configuration::fromValues(row.file, row.environment);
        EXPECT_EQ(c.storageHost, row.host);
        EXPECT_EQ(c.storagePort, row.port);
        EXPECT_EQ(c.transport.tls, row.tls);
        EXPECT_EQ(c.transport.limits.idleTimeout, std::chrono::seconds(row.seconds));
        EXPECT_EQ(c.problems.size(), row.problems);
    }
    const Values links{{"links/web", "https://example.org"}, {"links/twitter", ""}};
    EXPECT_EQ(Configuration::fromValues(links, {}).links, (Values{{"web", "https://example.org"}}));
}

TEST(Settings, UnknownValuesAreSaid) {
    const Values good{
        {"kIsNotFirstUse", "YES"}, {"kHasPasscode", ""}, {"kAutoLogin", "No"}, {"kUsername", "x"}};
    EXPECT_TRUE(problemsOfSettings(good).isEmpty());
    const Values bad{{"kAutoLogin", "YES"}, {"kHasPasscode", "Yes"}, {"kOpenAtLaunch", "1"}};
    EXPECT_EQ(problemsOfSettings(bad).size(), 3);
}

}  // namespace
