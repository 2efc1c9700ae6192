#include "app/AppDelegate.h"

#include <utility>

#include "app/AccountForms.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

// What a form is checked for has to be what is done with it: while that lasts it can neither be changed nor
// sent again.
void AppDelegate::setFormLocked(const Form &form, bool isLocked) {
    for (QLineEdit *field : form.fields) field->setReadOnly(isLocked);
    form.button->setEnabled(!isLocked);
}

AppDelegate::Form AppDelegate::signUpForm() const {
    const Interface &i = interface;
    return {
        {i.Sign_up_Fullname, i.Sign_up_username, i.Sign_up_email, i.Sign_up_password, i.Sign_up_re_password},
        i.Sign_up_done};
}

AppDelegate::Form AppDelegate::signInForm() const {
    return {{interface.Sign_in_username, interface.Sign_in_password}, interface.Sign_in_done};
}

AppDelegate::Form AppDelegate::passwordForm() const {
    const Interface &i = interface;
    return {{i.Change_old_password, i.Change_new_password, i.Change_retype_password}, i.Change_done_button};
}

void AppDelegate::hidePasswords() {
    for (QCheckBox *box :
         {interface.Sign_up_show_passwords, interface.Sign_in_show_password, interface.Change_show_passwords})
        box->setChecked(false);
}

// Typed and left, they are nobody's to find. What is being checked or written is needed.
void AppDelegate::forgetTypedPasswords() {
    hidePasswords();
    for (const Form &form : {signUpForm(), signInForm(), passwordForm()}) {
        for (QLineEdit *field : form.fields) {
            if (field->echoMode() == QLineEdit::Password && !field->isReadOnly()) field->clear();
        }
    }
}

// ---- Sign-up ----

void AppDelegate::Open_sign_up_view(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Sign_up_view);
}

void AppDelegate::Done_Sign_up(QObject *) {
    const Interface &i = interface;
    setFormLocked(signUpForm(), true);
    const auto usernameFile = serverText(StorageNames::username(toUtf8(i.Sign_up_username->text())),
                                         tr("Looking whether the user name is free…"));
    const bool isCancelled = shell_.waiting.wasCancelled();
    const SignUpForm form{i.Sign_up_Fullname->text(), i.Sign_up_username->text(), i.Sign_up_email->text(),
                          i.Sign_up_password->text(), i.Sign_up_re_password->text()};
    if (!form.isAcceptable() || usernameFile || isCancelled) {
        setFormLocked(signUpForm(), false);
        if (!form.isAcceptable()) {
            i.Sign_up_done->setText(tr("Check your entries."));
        } else if (usernameFile) {
            i.Sign_up_done->setText(tr("Username exist."));
        }
        return;
    }
    i.Sign_up_done->setText(tr("Wait..."));
    performInBackground(tr("Signing up as %1").arg(form.username), [this] { Sign_up_upload_data(); });
}

void AppDelegate::Sign_up_upload_data() {
    Interface &i = interface;
    const auto upload = [&](QLineEdit *field, std::string (*nameFor)(std::string_view)) {
        const auto [text, file] = shell_.ui.run([&] {
            return std::pair(toUtf8(field->text()),
                             storage_->file(nameFor(toUtf8(i.Sign_up_username->text()))));
        });
        const bool uploaded = file->replace(text);
        shell_.ui.run([&] { UploadDidFinish = uploaded; });
        return uploaded;
    };
    upload(i.Sign_up_Fullname, StorageNames::fullname);
    upload(i.Sign_up_username, StorageNames::username);
    upload(i.Sign_up_email, StorageNames::email);
    const bool isRegistered = upload(i.Sign_up_password, StorageNames::password);  // this one alone decides

    actFromBackground([&] {
        setFormLocked(signUpForm(), false);
        i.Sign_up_done->setText(tr("Done"));
        emptyFields({i.Sign_up_Fullname, i.Sign_up_username, i.Sign_up_email, i.Sign_up_password,
                     i.Sign_up_re_password});
        hidePasswords();
        if (isRegistered) {
            i.Quillery_Box->setContentView(i.Sign_in_view);
            showAlert(tr("Success!"), tr("You have successfully been registred as Quillery member."));
        } else {
            i.Quillery_window->close();
            showAlert(tr("Faild!"),
                      tr("You haven't been registred as Quillery member,duo to Error or internet "
                         "connection problem."));
        }
    });
}

// ---- Sign-in and log-out ----

void AppDelegate::Open_sign_in_window(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Sign_in_view);
}

void AppDelegate::Sing_in_done(QObject *) {
    Interface &i = interface;
    setFormLocked(signInForm(), true);
    const std::string user = toUtf8(i.Sign_in_username->text());
    const QString reading = tr("Asking the storage server for the account…");
    const auto usernameFile = serverText(StorageNames::username(user), reading);
    // Whoever gives up one of these steps gives up the others with it: they gave nothing, too.
    bool isGivenUp = shell_.waiting.wasCancelled();
    const auto passwordFile = isGivenUp ? std::nullopt : serverText(StorageNames::password(user), reading);
    isGivenUp |= shell_.waiting.wasCancelled();
    const bool isConnected = !isGivenUp && Check_if_internet_connection_is_found();
    const SignInForm form{i.Sign_in_username->text(), i.Sign_in_password->text()};
    setFormLocked(signInForm(), false);
    if (!isConnected) {
        alert(tr("Error!"), tr("Please check your connection."));
        orderFront(*i.Quillery_window);
        return;
    }
    if (!form.isRight(usernameFile, passwordFile)) {
        i.Sign_in_done->setText(tr("Wrong entries/Network error!"));
        // The check of the connection has closed the window that says so.
        orderFront(*i.Quillery_window);
        return;
    }
    Username = toUtf8(form.username);
    Password = toUtf8(form.password);
    Content_file_path = StorageNames::localClipListOf(*Username, shell_.home);
    isSigned_in = true;
    showOnline();
    i.Quillery_window->close();
    i.Sign_in_done->setText(tr("Sign in"));
    emptyFields({i.Sign_in_username, i.Sign_in_password});
    hidePasswords();
    offerLogOut();
    menu.Unlock_passcode_item.clearAction();
    armSavingAndLoading();
    armContacts();
    showPasscodeSettings();
    if (!settingIs("kHasPasscode", "YES")) menu.Unlock_passcode_item.clearAction();
}

void AppDelegate::Log_out_Action() {
    const bool locks = settingIs("kHasPasscode", "YES");
    menu.Log_in_menu_item.setTitle(tr("Log in"));
    menu.Log_in_menu_item.clearAction();
    menu.Log_in_menu_item.setSubmenu(&interface.Log_in_menu);
    menu.Log_in_menu_item.setImage(QStringLiteral("lock.png"));
    isSigned_in = false;
    showState(tr("Offline"));
    interface.Add_friend_windowed_mode->setEnabled(false);
    interface.Remove_contact_windowed_mode->setEnabled(false);
    interface.Share_switch->setEnabled(false);
    Username = "";
    Password = "";
    interface.Auto_Login_Check_box->setEnabled(false);
    Content_file_path = localListPath();
    Status_Item->setImage(QStringLiteral("offline.png"));
    interface.Change_done_button->setEnabled(false);
    interface.Read_local_button->setEnabled(false);
    menu.Add_contact_menu_item.clearAction();
    menu.Unlock_passcode_item.setAction([this] { Unlock_passcode(nullptr); });
    menu.Remove_a_friend_item.clearAction();
    Read_Local_mode = false;
    ShareMode_enabled = false;
    interface.Make_available_offline_label->setText(tr("Make available offline"));
    interface.Share_label->setText(tr("Share"));
    interface.Remove_contact->setText(tr("Remove a friend"));
    RemoveContact_enabled = false;
    showModes();
    disarmPasswordChange();
    forgetTypedPasswords();
    forgetPickedText();
    offerToStartFriendsList(false);
    showPasscodeSettings();
    if (locks) {
        menu.Saveing_menu_item.clearAction();
        menu.Clipboard_saves_menu_item.clearAction();
        hideListFromSight();
    } else {
        menu.Unlock_passcode_item.clearAction();
        // What is on the screen is the account's no more: a pick there would act on this machine's list.
        if (interface.Quillery_Box->contentView() == interface.List_View) {
            readLocalList();
            fillSavedList(Content_of_quillery_file_Local, ListPlace::kThisComputer);
        }
    }
}

// ---- Password change ----

void AppDelegate::openChangePasswordView(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Change_password_view);
}

void AppDelegate::Done_Edit(QObject *) {
    Interface &i = interface;
    const std::string user = Username.value_or("");
    setFormLocked(passwordForm(), true);
    const auto passwordFile =
        serverText(StorageNames::password(user), tr("Asking the storage server for the old password…"));
    const PasswordForm form{i.Change_old_password->text(), i.Change_new_password->text(),
                            i.Change_retype_password->text()};
    if (!form.isAcceptable(passwordFile, toQString(user))) {
        setFormLocked(passwordForm(), false);
        i.Change_done_button->setText(tr("Check your entries."));
        return;
    }
    i.Change_done_button->setText(tr("Done"));
    performInBackground(
        tr("Changing the password"),
        [this, file = storage_->file(StorageNames::password(user))] { upload_new_password_edit(*file); });
}

void AppDelegate::upload_new_password_edit(ServerFile &file) {
    Interface &i = interface;
    const QString password = shell_.ui.run([&] { return i.Change_new_password->text(); });
    const bool uploaded = file.replace(toUtf8(password));
    file.release();
    actFromBackground([&] {
        UploadDidFinish = uploaded;
        setFormLocked(passwordForm(), false);
        emptyFields({i.Change_old_password, i.Change_new_password, i.Change_retype_password});
        hidePasswords();
        i.Quillery_window->close();
        if (!uploaded) {
            showAlert(tr("Faild!"), tr("Your password hasn't been changed duo to network/server error."));
            return;
        }
        showAlert(tr("Success!"), tr("You've successfully changed your password!"));
        storeSetting("kPassword", password);
    });
}
