#include <QApplication>
#include <QKeyEvent>
#include <QShortcut>
#include <tuple>

#include "app/AppDelegate.h"

// Which control runs which operation, and the windows that come and go by themselves.

void AppDelegate::enterFromButton(QAbstractButton *button, Operation operation) {
    connect(button, &QAbstractButton::clicked, this, [this, button, operation] {
        shell_.gate.enter([this, button, operation] {
            if (button->isEnabled()) (this->*operation)(button);  // it may have been disabled since
        });
    });
}

// By any means: assistive programs toggle a box without clicking it.
void AppDelegate::enterFromToggle(QAbstractButton *toggle, Operation operation) {
    connect(toggle, &QAbstractButton::toggled, this, [this, toggle, operation] {
        shell_.gate.enter([this, toggle, operation] {
            if (toggle->isEnabled()) {
                (this->*operation)(toggle);
            } else {  // it has been disabled since, and says what it said before
                const QSignalBlocker quiet(toggle);
                toggle->toggle();
            }
            showModes();
        });
    });
}

void AppDelegate::enterFromMenu(QAction *item, Operation operation) {
    connect(item, &QAction::triggered, this, [this, item, operation] {
        shell_.gate.enter([this, item, operation] { (this->*operation)(item); });
    });
}

void AppDelegate::wireInterface() {
    Interface &i = interface;
    i.Quillery_window->installEventFilter(this);
    i.Intro_window->installEventFilter(this);
    i.Windowed_mode->installEventFilter(this);
    armSavingAndLoading();
    disarmPasswordChange();
    enterFromMenu(i.Open_sign_in_window, &AppDelegate::Open_sign_in_window);
    enterFromMenu(i.Open_sign_up_view, &AppDelegate::Open_sign_up_view);
    enterFromMenu(i.Contacts_item, &AppDelegate::Contacts_item);
    enterFromMenu(i.Preference_menu_item, &AppDelegate::Preference_menu_item);
    enterFromMenu(i.Windowed_mode_item, &AppDelegate::Windowed_mode_item);
    enterFromMenu(i.Instructions, &AppDelegate::Instructions);
    enterFromMenu(i.Info_Action, &AppDelegate::Info_Action);
    connect(i.Quit, &QAction::triggered, this, &AppDelegate::askToQuit);

    connect(i.Clipboard_saved_string_combobox, &ListControl::picked, this,
            [this](int index, const std::string &text) {
                shell_.gate.enter([this, index, text] {
                    if (isLocked()) return;  // since
                    interface.Clipboard_saved_string_combobox->selectPicked(index, text);
                    Clipboard_combox(interface.Clipboard_saved_string_combobox);
                });
            });
    connect(i.Clipboard_saved_string_combobox, &ListControl::dismissed, i.Quillery_window.get(),
            &QWidget::close);
    i.Clipboard_saved_string_combobox->setPlaceholderString(tr("Tab to copy to clipboard"));
    enterFromToggle(i.RemoveItem_button, &AppDelegate::Remove_item_switch);
    enterFromToggle(i.Share_switch, &AppDelegate::Share_mode_switch);
    enterFromToggle(i.Read_local_button, &AppDelegate::Read_local_button);

    enterFromButton(i.Clear_list_button, &AppDelegate::Clean_list);

    enterFromButton(i.Sign_up_done, &AppDelegate::Done_Sign_up);
    enterFromButton(i.Sign_in_done, &AppDelegate::Sing_in_done);
    enterFromButton(i.Change_done_button, &AppDelegate::Done_Edit);

    enterFromButton(i.Add_contact_done_button, &AppDelegate::Add_contact_done_button);
    enterFromButton(i.Remove_contact, &AppDelegate::Remove_contact);
    enterFromButton(i.startFriends_button, &AppDelegate::startFriendsList);
    enterFromButton(i.startFriendsToAdd_button, &AppDelegate::startFriendsList);
    enterFromButton(i.Read_friends_button, &AppDelegate::readFriends);
    auto *refresh = new QShortcut(Qt::Key_F5, i.Contacts_View);
    refresh->setContext(Qt::WidgetWithChildrenShortcut);
    connect(refresh, &QShortcut::activated, i.Read_friends_button, [&i] { i.Read_friends_button->click(); });
    enterFromButton(i.Look_again_button, &AppDelegate::lookThroughFriendsAgain);
    enterFromButton(i.keepLocalList_button, &AppDelegate::keepLocalList);
    i.Contacts_table->setDataSource(this);
    connect(i.Contacts_table, &TableView::action, this, [this] {
        // What the screen said at the click is meant. It may have changed when the click gets its turn.
        const auto meaning = [this] {
            return std::tuple(RemoveContact_enabled, interface.Clipboard_saved_string_combobox->stringValue(),
                              contactAtRow(interface.Contacts_table->selectedRow()));
        };
        shell_.gate.enter([this, meaning, meant = meaning()] {
            if (meaning() == meant) Selected_friend_from_table(interface.Contacts_table);
            showContactMode();
        });
    });

    enterFromButton(i.Done_insert_passcode, &AppDelegate::Done_insert_passcode_action);
    connect(i.Insert_passcode_field, &QLineEdit::returnPressed, i.Done_insert_passcode, &QPushButton::click);

    enterFromButton(i.Done_create_passcode, &AppDelegate::Done_create_passcode);
    enterFromButton(i.Done_change_passcode, &AppDelegate::Done_change_passcode);
    enterFromButton(i.Remove_passcode_button, &AppDelegate::Remove_Passcode_action);

    enterFromToggle(i.Open_at_launch_check_box, &AppDelegate::Open_at_launch_action);
    enterFromToggle(i.Auto_Login_Check_box, &AppDelegate::Auto_Login_action);
    enterFromButton(i.Change_password_button, &AppDelegate::openChangePasswordView);
    enterFromButton(i.Inst_Next, &AppDelegate::Inst_Next);
    enterFromButton(i.Inst_Back, &AppDelegate::Inst_Back);

    enterFromButton(i.Close_windowed, &AppDelegate::Close_windowed);
    enterFromButton(i.Mini_windowed, &AppDelegate::Mini_windowed);
    enterFromButton(i.Preference_windowed_mode, &AppDelegate::Preference_WinMode);
    enterFromButton(i.Tutorials_windowed_mode, &AppDelegate::Tutorials_WinMode);
    enterFromButton(i.Add_friend_windowed_mode, &AppDelegate::Add_friend_WinMode);
    enterFromButton(i.Remove_contact_windowed_mode, &AppDelegate::Remove_contact_WinMode);
    connect(i.Contact_us_windowed_mode, &QPushButton::clicked, this, [this] {
        shell_.gate.enter([this] { Contact_us_WinMode(interface.Contact_us_windowed_mode); });
    });

    enterFromButton(i.Start_intro_button, &AppDelegate::Start_intro_button);
    enterFromButton(i.Mini_Intro, &AppDelegate::Mini_Intro);
    connect(i.Tovanix_intro, &QPushButton::clicked, this,
            [this] { shell_.gate.enter([this] { Tovanix_intro(interface.Tovanix_intro); }); });
    giveLinkItemsTheirAddresses();
    enterFromButton(i.Copies_button, &AppDelegate::openRescuedLists);

    const auto turnWith = [&i](Qt::Key key, QPushButton *button) {
        auto *shortcut = new QShortcut(key, i.Instructions_view);
        shortcut->setContext(Qt::WidgetWithChildrenShortcut);
        connect(shortcut, &QShortcut::activated, button, [button] { button->click(); });
    };
    turnWith(Qt::Key_Left, i.Inst_Back);
    turnWith(Qt::Key_Right, i.Inst_Next);

    connect(i.Windowed_menu_button, &QPushButton::clicked, this, [this] {
        QPushButton &button = *interface.Windowed_menu_button;
        interface.Quillery_Menu.popup(button.mapToGlobal(QPoint(0, button.height())));
    });

    connect(&shell_.notificationCenter, &UserNotifications::activated, this,
            [this](const UserNotification &notification) { notificationClicked(notification); });
    connect(&shell_.notificationCenter, &UserNotifications::undeliverable, this, &AppDelegate::showBanner);

    QSizePolicy keepsItsPlace = i.Checking_cancel->sizePolicy();
    keepsItsPlace.setRetainSizeWhenHidden(true);
    i.Checking_cancel->setSizePolicy(keepsItsPlace);
    i.Checking_cancel->hide();
    connect(i.Checking_cancel, &QPushButton::clicked, &shell_.waiting, &Waiting::cancel);
    connect(i.waitingWindow.get(), &WaitingWindow::cancelled, &shell_.waiting, &Waiting::cancel);
    connect(&shell_.waiting, &Waiting::slow, this, &AppDelegate::showWaiting);
    connect(&shell_.waiting, &Waiting::finished, this, &AppDelegate::hideWaiting);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event) {
    const bool isEscape =
        event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape;
    const bool isClosedByUser = event->type() == QEvent::Close && event->spontaneous();
    if (watched == interface.Quillery_window.get() && (isEscape || isClosedByUser)) {
        // The check goes on behind a closed panel, so leaving the panel leaves the check.
        const bool isChecking =
            interface.Quillery_Box->contentView() == interface.Checking_for_connection_view;
        if (isChecking && shell_.waiting.isWaiting()) shell_.waiting.cancel();
        if (isEscape) interface.Quillery_window->close();
    }
    if (watched == interface.Intro_window.get() && isClosedByUser && !settingIs("kIsNotFirstUse", "YES")) {
        QCoreApplication::exit(0);
    }
    if (watched == interface.Windowed_mode.get() && isClosedByUser && !Status_Item->isShown()) {
        event->ignore();
        askToQuit();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

// For a desktop without a notification service.
void AppDelegate::showBanner(const QString &title, const QString &text) {
    interface.notificationBanner->present(title, text, [this, notification = UserNotification{title, text}] {
        notificationClicked(notification);
    });
}

void AppDelegate::notificationClicked(const UserNotification &notification) {
    shell_.gate.enter([this, notification] {
        userNotificationCenter_didActivateNotification(shell_.notificationCenter, notification);
    });
}

void AppDelegate::showWaiting(const QString &whatFor) {
    if (isQuitting_) return;
    if (interface.Checking_for_connection_view->isVisible()) {
        interface.Checking_label->setText(whatFor);
        interface.Checking_cancel->show();
    } else {
        interface.waitingWindow->showFor(whatFor, tr("Cancel"), true);
    }
    if (QWidget *asking = QApplication::activeModalWidget()) orderFront(*asking);
}

void AppDelegate::hideWaiting() {
    if (isQuitting_) return;
    interface.Checking_cancel->hide();
    interface.waitingWindow->hide();
}
