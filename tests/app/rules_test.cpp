// The pure types of the program: texts in, answer out.
#include <gtest/gtest.h>

#include "app/AccountForms.h"
#include "app/ClipList.h"
#include "app/Configuration.h"

namespace {

using namespace std::string_literals;
using Items = std::vector<std::string>;
using Values = QMap<QString, QString>;

const std::string kEnd = "\n-CLIPBOARD'S END-\n";

TEST(Forms, AreAcceptableUnlessOneRuleIsBroken) {
    const QString ue = QStringLiteral("\u00FC\u00FC\u00FC\u00FC\u00FC");  // five letters, ten bytes
    const std::pair<SignUpForm, bool> signUps[] = {
        {{" ", "alice1", ".a@", "      ", "      "}, true},  // blanks are text
        {{"", "alice1", "@.", "secret", "secret"}, false},
        {{"A", ue, "@.", "secret", "secret"}, false},
        {{"A", "secret", "@.", "secret", "secret"}, false},
        {{"A", "alice1", "a@b", "secret", "secret"}, false},
        {{"A", "alice1", "a.b", "secret", "secret"}, false},
        {{"A", "alice1", "@.", "secret", "Secret"}, false},
        {{"A", "alice1", "@.", "short", "short"}, false},
    };
    for (const auto &[form, isGood] : signUps)
        EXPECT_EQ(form.isAcceptable(), isGood) << &form - &signUps[0].first;
    const std::pair<PasswordForm, bool> changes[] = {
        {{"secret", "secret", "secret"}, true},  // the new one may be the old one
        {{"Secret", "better", "better"}, false}, {{"secret", "alice1", "alice1"}, false},
        {{"secret", "short", "short"}, false},   {{"secret", "secret1", "secret2"}, false},
    };
    for (const auto &[form, isGood] : changes)
        EXPECT_EQ(form.isAcceptable("secret", "alice1"), isGood) << form.newPassword.toStdString();
    EXPECT_FALSE((PasswordForm{"", "secret", "secret"}.isAcceptable("", "alice1")));
    EXPECT_FALSE((PasswordForm{"secret", "better", "better"}.isAcceptable(std::nullopt, "alice1")));
    EXPECT_FALSE((SignInForm{"", ""}.isRight("", std::nullopt))) << "nothing never equals";
}

TEST(ClipList, IsSplitAtEveryTerminatorAndChangedInFrontAndByPlainSubstrings) {
    const std::pair<std::string, Items> cases[] = {
        {"", {""}},
        {kEnd + kEnd, {"", "", ""}},
        {"  line one\n\nline two\r\n" + kEnd, {"  line one\n\nline two\r\n", ""}},
        {"a\0b"s + kEnd + "-CLIPBOARD'S END-", {"a\0b"s, "-CLIPBOARD'S END-"}},
    };
    for (const auto &[text, pieces] : cases) {
        const auto views = ClipList::componentsSeparatedByTerminator(text);
        EXPECT_EQ(Items(views.begin(), views.end()), pieces) << text;
    }
    EXPECT_EQ(ClipList::withEntryInFront("a", std::nullopt), "a" + kEnd);
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", std::nullopt), "a");
    EXPECT_EQ(ClipList::withEntryInFrontOfLocal("a", ""), "a" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("abc" + kEnd + "x" + kEnd + "bc" + kEnd, "bc"), "ax" + kEnd);
    EXPECT_EQ(ClipList::withoutEntry("b" + kEnd + "a", "a"), "b" + kEnd + "a") << "it has no terminator";
    EXPECT_TRUE(ClipList::containsEntry("abc" + kEnd, "bc"));
    EXPECT_FALSE(ClipList::containsEntry("bc", "bc"));
}

TEST(Configuration, TakesTheEnvironmentBeforeTheFileAndReplacesBadValues) {
    const auto from = [](const Values &file, const Values &environment = {}) {
        const Configuration c = Configuration::fromValues(file, environment);
        const std::string tls = c.transport.tls == TlsMode::kOff   ? "off"
                                : c.transport.tls == TlsMode::kTry ? "try"
                                                                   : "required";
        return c.storageHost.value_or("(none)") + " " + std::to_string(c.storagePort) + " " + tls + " " +
               std::to_string(c.transport.limits.idleTimeout / std::chrono::seconds(1)) + " " +
               std::to_string(c.problems.size());
    };
    EXPECT_EQ(from({{"storage/host", "  "}}), "(none) 21 off 60 0");
    EXPECT_EQ(from({{"storage/host", "a"}, {"storage/port", "65535"}, {"storage/idle_timeout_seconds", "5"}},
                   {{"QUILLERY_STORAGE_HOST", "[::1]"}, {"QUILLERY_STORAGE_TLS", "try"}}),
              "[::1] 65535 try 5 0");
    // A misspelt wish for encryption must not send the password in clear.
    EXPECT_EQ(from({{"storage/tls", "Required"}}), "(none) 21 required 60 1");
    for (const char *port : {"0", "65536", "21x", ""})
        EXPECT_EQ(from({{"storage/port", port}}), "(none) 21 off 60 1") << port;
    for (const char *host : {"ftp://host", "host:21", "user@host", "two words"})
        EXPECT_EQ(from({{"storage/host", host}}), " 21 off 60 1") << host;
}

}  // namespace
