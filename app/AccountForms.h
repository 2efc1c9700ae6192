#pragma once

#include <QString>
#include <optional>
#include <string>

// What the user typed into the account forms, and whether it will do. Pure: text in, answer out. Texts are
// compared exactly, nothing is trimmed, and lengths count UTF-16 code units. A server file's text is nothing
// when it could not be read.

struct SignUpForm {
    QString fullname, username, email, password, rePassword;

    bool isAcceptable() const;
};

struct SignInForm {
    QString username, password;

    // `usernameFile`: the text of the account's user-name file, whose presence alone matters.
    bool isRight(const std::optional<std::string> &usernameFile,
                 const std::optional<std::string> &passwordFile) const;
};

struct PasswordForm {
    QString oldPassword, newPassword, retypedPassword;

    bool isAcceptable(const std::optional<std::string> &passwordFile, const QString &username) const;
};
