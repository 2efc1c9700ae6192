#include "app/AccountForms.h"

#include "platform/Text.h"

namespace {

constexpr int kLeastLength = 6;

bool isText(const std::optional<std::string> &file, const QString &typed) {
    return file && *file == toUtf8(typed);
}

}  // namespace

bool SignUpForm::isAcceptable() const {
    const bool isFilledIn =
        !fullname.isEmpty() && !username.isEmpty() && !email.isEmpty() && !password.isEmpty();
    const bool isPasswordFine = rePassword == password && username != password;
    const bool isLongEnough = username.size() >= kLeastLength && password.size() >= kLeastLength;
    return isFilledIn && isPasswordFine && isLongEnough && email.contains(u'.') && email.contains(u'@');
}

bool SignInForm::isRight(const std::optional<std::string> &usernameFile,
                         const std::optional<std::string> &passwordFile) const {
    return usernameFile && isText(passwordFile, password);
}

bool PasswordForm::isAcceptable(const std::optional<std::string> &passwordFile,
                                const QString &username) const {
    const bool isFilledIn = !oldPassword.isEmpty() && !newPassword.isEmpty();
    return isFilledIn && retypedPassword == newPassword && isText(passwordFile, oldPassword) &&
           newPassword.size() >= kLeastLength && newPassword != username;
}
