#include <gtest/gtest.h>

#include <functional>

#include "app/AccountForms.h"

namespace {

TEST(SignUpForm, IsAcceptableUnlessOneRuleIsBroken) {
    const SignUpForm good{"A", "alice1", "@.", "secret", "secret"};
    EXPECT_TRUE(good.isAcceptable());
    const std::vector<std::function<void(SignUpForm &)>> breaches = {
        [](SignUpForm &f) { f.fullname = ""; },
        [](SignUpForm &f) { f.username = ""; },
        [](SignUpForm &f) { f.username = "alice"; },
        [](SignUpForm &f) { f.username = QStringLiteral("\u00FC\u00FC\u00FC\u00FC\u00FC"); },  // ten bytes
        [](SignUpForm &f) { f.username = f.password; },
        [](SignUpForm &f) { f.email = ""; },
        [](SignUpForm &f) { f.email = "a@b"; },
        [](SignUpForm &f) { f.email = "a.b"; },
        [](SignUpForm &f) { f.rePassword = "Secret"; },
        [](SignUpForm &f) { f.password = f.rePassword = "short"; },
        [](SignUpForm &f) { f.password = f.rePassword = ""; },
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

}  // namespace
