// The pure types of the program: texts in, answer out.
#include <gtest/gtest.h>

#include <functional>

#include "app/AccountForms.h"
#include "app/ClipList.h"
#include "app/CommandLine.h"
#include "app/Configuration.h"

namespace {

using namespace std::string_literals;
using Items = std::vector<std::string>;
using Values = QMap<QString, QString>;

const std::string kEnd = "\n-CLIPBOARD'S END-\n";

TEST(SignUpForm, IsAcceptableUnlessOneRuleIsBroken) {
    const SignUpForm good{"A", "alice1", "@.", "secret", "secret"};
    EXPECT_TRUE(good.isAcceptable());
    const std::vector<std::function<void(SignUpForm &)>> breaches = {
        [](SignUpForm &f) { f.fullname = ""; },
        [](SignUpForm &f) { f.username = "alice"; },
        [](SignUpForm &f) { f.username = QStringLiteral("\u00FC\u00FC\u00FC\u00FC\u00FC"); },  // ten bytes
        [](SignUpForm &f) { f.username = f.password; },
        [](SignUpForm &f) { f.email = "a@b"; },
        [](SignUpForm &f) { f.email = "a.b"; },
        [](SignUpForm &f) { f.rePassword = "Secret"; },
        [](SignUpForm &f) { f.password = f.rePassword = "short"; },
    };
    for (const auto &breach : breaches) {
        SignUpForm form = good;
        breach(form);
        EXPECT_FALSE(form.isAcceptable()) << &breach - breaches.data();
    }
    SignUpForm odd{" ", QStringLiteral("\U0001F600\U0001F600\U0001F600"), ".a@", "      ", "      "};
    EXPECT_TRUE(odd.isAcceptable()) << "six code units, and blanks are text";
}

TEST(SignInForm, ComparesThePasswordExactly) {
    const SignInForm form{"alice1", "secret"};
    EXPECT_TRUE(form.isRight("", "secret")) << "what the user-name file holds does not matter";
    for (const std::string wrong : {"Secret", "secret ", "secret\n", ""})
        EXPECT_FALSE(form.isRight("alice1", wrong)) << wrong;
    EXPECT_FALSE(form.isRight("alice1", std::nullopt));
    EXPECT_FALSE(form.isRight(std::nullopt, "secret"));
    EXPECT_FALSE((SignInForm{"", ""}.isRight("", std::nullopt))) << "nothing never equals";
}

TEST(PasswordForm, IsAcceptableUnlessOneRuleIsBroken) {
    const PasswordForm good{"secret", "secret", "secret"};
    EXPECT_TRUE(good.isAcceptable("secret", "alice1")) << "the new one may be the old one";
    EXPECT_FALSE(good.isAcceptable(std::nullopt, "alice1"));
    EXPECT_FALSE(good.isAcceptable("other", "alice1"));
    EXPECT_FALSE(good.isAcceptable("secret", "secret"));
    EXPECT_FALSE((PasswordForm{"", "secret", "secret"}.isAcceptable("", "alice1")));
    EXPECT_FALSE((PasswordForm{"secret", "short", "short"}.isAcceptable("secret", "alice1")));
    EXPECT_FALSE((PasswordForm{"secret", "secret1", "secret2"}.isAcceptable("secret", "alice1")));
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

TEST(ClipList, NewEntriesGoInFront) {
    EXPECT_EQ(ClipList::withEntryInFront("b", "a" + kEnd), "b" + kEnd + "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFront("a", ""), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFront("a", std::nullopt), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", std::nullopt), "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("b", "a"), "b" + kEnd + "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", ""), "a" + kEnd);
}

TEST(ClipList, RemovalIsOfPlainSubstrings) {
    EXPECT_EQ(ClipList::withoutEntry("bc" + kEnd + "x" + kEnd + "bc" + kEnd, "bc"), "x" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("abc" + kEnd + "x" + kEnd, "bc"), "ax" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("b" + kEnd + "a", "a"), "b" + kEnd + "a")
        << "an entry without terminator stays";
    EXPECT_EQ(ClipList::withoutEntry("", "a"), "");
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, "bc"));
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, ""));
    EXPECT_FALSE(ClipList::containsEntry("bc", "bc"));
}

TEST(CommandLine, KnowsItsCommandsAndRefusesAllElse) {
    using Task = CommandLine::Task;
    const std::pair<QString, std::optional<Task>> cases[] = {
        {u""_qs, Task::kRun},
        {u"--save"_qs, Task::kSave},
        {u"--list"_qs, Task::kList},
        {u"--quit"_qs, Task::kQuit},
        {u"-h"_qs, Task::kHelp},
        {u"--version"_qs, Task::kVersion},
        {u"--sav"_qs, {}},
        {u"--save --save"_qs, Task::kSave},
        {u"--save --quit"_qs, {}},
        {u"-platform xcb"_qs, Task::kRun},  // for the toolkit
        {u"--save --now"_qs, {}},
        {u"--"_qs, {}},
        {u"text"_qs, {}},
        {u"--save text"_qs, {}},
        {u"--help -x"_qs, {}},
    };
    for (const auto &[words, task] : cases) {
        const CommandLine line =
            CommandLine::parse(QStringList{u"quillery"_qs} + words.split(u' ', Qt::SkipEmptyParts));
        EXPECT_EQ(line.problem.isEmpty(), task.has_value()) << words.toStdString();
        EXPECT_EQ(line.task, task.value_or(line.task)) << words.toStdString();
    }
}

Configuration from(const Values &file, const Values &environment = {}) {
    return Configuration::fromValues(file, environment);
}

TEST(Configuration, DefaultsToThePersonalStorage) {
    const Configuration c = from({});
    EXPECT_FALSE(c.storageHost);
    EXPECT_EQ(c.storagePort, 21);
    EXPECT_EQ(c.transport.tls, TlsMode::kOff);
    EXPECT_EQ(c.transport.limits.idleTimeout, std::chrono::seconds(60));
    EXPECT_TRUE(c.problems.isEmpty());
    EXPECT_FALSE(from({{"storage/host", "  "}}).storageHost);
}

TEST(Configuration, TheEnvironmentWinsOverTheFile) {
    const Configuration c =
        from({{"storage/host", "a.example"},
              {"storage/port", "2121"},
              {"storage/tls", "try"},
              {"storage/idle_timeout_seconds", "5"},
              {"links/web", "https://example.org"},
              {"links/twitter", ""}},
             {{"QUILLERY_STORAGE_HOST", "b.example"}, {"QUILLERY_STORAGE_TLS", "required"}});
    EXPECT_EQ(c.storageHost, "b.example");
    EXPECT_EQ(c.storagePort, 2121);
    EXPECT_EQ(c.transport.tls, TlsMode::kRequired);
    EXPECT_EQ(c.transport.limits.idleTimeout, std::chrono::seconds(5));
    EXPECT_EQ(c.links, (Values{{"web", "https://example.org"}}));
    EXPECT_TRUE(c.problems.isEmpty());
}

TEST(Configuration, BadValuesAreSaidAndReplaced) {
    for (const char *port : {"0", "65536", "-1", "ftp", "", "21x"}) {
        const Configuration c = from({{"storage/port", port}});
        EXPECT_EQ(c.storagePort, 21) << port;
        EXPECT_EQ(c.problems.size(), 1) << port;
    }
    // A misspelt wish for encryption must not send the password in clear.
    EXPECT_EQ(from({{"storage/tls", "Required"}}).transport.tls, TlsMode::kRequired);
    EXPECT_EQ(from({{"storage/tls", "Required"}}).problems.size(), 1);
    EXPECT_EQ(from({{"storage/idle_timeout_seconds", "0"}}).problems.size(), 1);
    for (const char *host : {"ftp://host", "host/dir", "host:21", "user@host", "two words"}) {
        EXPECT_EQ(from({{"storage/host", host}}).problems.size(), 1) << host;
        EXPECT_EQ(from({{"storage/host", host}}).storageHost, "") << host;
    }
    EXPECT_TRUE(from({{"storage/host", "[::1]"}}).problems.isEmpty());
}

TEST(Settings, UnknownValuesAreSaid) {
    const Values good{
        {"kIsNotFirstUse", "YES"}, {"kHasPasscode", ""}, {"kAutoLogin", "No"}, {"kUsername", "x"}};
    EXPECT_TRUE(problemsOfSettings(good).isEmpty());
    const Values bad{{"kAutoLogin", "YES"}, {"kHasPasscode", "Yes"}, {"kOpenAtLaunch", "1"}};
    EXPECT_EQ(problemsOfSettings(bad).size(), 3);
}

}  // namespace
