#include "app/AppDelegate.h"

#include <malloc.h>
#include <QApplication>
#include <QKeyEvent>
#include <cstdio>
#include <utility>

#include "app/ClipList.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

namespace {

constexpr const char *kStorageUser = "qz7m_50281946";
constexpr const char *kStoragePassword = "w5rt9x2h";

constexpr std::chrono::seconds kBannerTime{6};  // as long as notification services show one

void log(const std::string &line) {
    std::fprintf(stderr, "Quillery: %s\n", line.c_str());
}

}  // namespace

AppDelegate::AppDelegate(Shell shell)
    : menu{{*interface.Saveing_menu_item, shell.gate},     {*interface.Clipboard_saves_menu_item, shell.gate},
           {*interface.Add_contact_menu_item, shell.gate}, {*interface.Remove_a_friend_item, shell.gate},
           {*interface.Log_in_menu_item, shell.gate},      {*interface.Unlock_passcode_item, shell.gate},
           {*interface.changePasswordItem, shell.gate}},
      shell_(std::move(shell)) {
    interface.fillInformation(shell_.configuration.storageHost);
    wireInterface();
    bannerTime_.setSingleShot(true);
    bannerTime_.setInterval(kBannerTime);
    connect(&bannerTime_, &QTimer::timeout, interface.notificationBanner.get(), &QWidget::hide);
    for (const QString &problem : shell_.configuration.problems) log(problem.toStdString());
    QMap<QString, QString> settings;
    for (const char *key : {"kIsNotFirstUse", "kHasPasscode", "kAutoLogin", "kOpenAtLaunch"}) {
        if (const auto value = setting(key)) settings.insert(QLatin1String(key), *value);
    }
    for (const QString &problem : problemsOfSettings(settings)) log(problem.toStdString());
}

AppDelegate::~AppDelegate() {
    shell_.background.waitForAll();
    for (const auto &hotKey : hotKeys_) VkHotKeyCenter::sharedHotKeyCenter().unregisterHotKey(hotKey);
}

void AppDelegate::applicationDidFinishLaunching() {
    Contact_index_number = 0;
    interface.Checking_for_connection_spinner->setUsesThreadedAnimation(true);
    interface.Checking_for_connection_spinner->startAnimation();
    if (!settingIs("kIsNotFirstUse", "YES")) {
        interface.Intro_image->setPixmap(sharpPixmap(QStringLiteral("Intro.png")));
        setFloatingWindowLevel(*interface.Intro_window);
        orderFront(*interface.Intro_window);
        interface.Start_intro_button->setFocus(Qt::OtherFocusReason);
        log("First use!");
        return;
    }
    log("Is not first use");
    RemoveContact_enabled = false;
    menu.Unlock_passcode_item.clearAction();

    setFloatingWindowLevel(*interface.Quillery_window);
    interface.Checking_for_connection_spinner->setUsesThreadedAnimation(true);
    interface.Checking_for_connection_spinner->startAnimation();
    interface.Quillery_Box->setContentView(interface.Checking_for_connection_view);
    orderFront(*interface.Quillery_window);

    CreatingStatus_item();
    Varibles_values();
    Other_pre_proccesses();
    Register_HotKeys();

    if (!Check_if_internet_connection_is_found()) {
        applyOfflineState();
        lockIfPasscodeIsSet();
        alert(tr("Error!"), tr("Unable to connect the internet,duo to network/server error."));
    } else if (settingIs("kAutoLogin", "Yes")) {
        const auto stored = [this](const char *key) {
            const auto text = setting(key);
            return text ? std::optional(toUtf8(*text)) : std::nullopt;
        };
        Username = stored("kUsername");
        Password = stored("kPassword");
        isSigned_in = true;
        applySignedInPresentation();
    } else {
        applySignedOutState();
        lockIfPasscodeIsSet();
    }
    fillSavedListAtStart();
    showPreferences();
    malloc_trim(0);  // it is going to rest in the status bar for hours
}

void AppDelegate::CreatingStatus_item() {
    Status_Item = std::make_unique<StatusItem>();
    Status_Item->setImage(QStringLiteral("offline.png"));
    Status_Item->setToolTip(QStringLiteral("Quillery"));
    Status_Item->setMenu(&interface.Quillery_Menu);
    // Where there is no status bar, or not yet, the commands have to be somewhere.
    connect(Status_Item.get(), &StatusItem::shown, interface.Windowed_mode.get(), &QWidget::close);
    connect(Status_Item.get(), &StatusItem::lost, this, [this] { showWindowedMode(ScreenPlace::kCorner); });
    if (!Status_Item->isShown()) showWindowedMode(ScreenPlace::kCorner);
}

void AppDelegate::Varibles_values() {
    Content_file_path = localListPath();
    transport_ = std::make_shared<FTPTransport>(shell_.configuration.transport);
    MyFTPManager = std::make_unique<FTPManager>(transport_);
    std::int32_t port = shell_.configuration.storagePort;
    if (shell_.configuration.storageHost) {
        storageHost_ = *shell_.configuration.storageHost;
    } else {
        const auto storage =
            shell_.waiting.run(tr("Starting the personal storage server…"), shell_.personalStorage);
        if (!storage.port) log("no personal storage server: " + storage.problem);
        storageHost_ = "127.0.0.1";
        port = storage.port.value_or(port);
    }
    Quillery_Server = FMServer::serverWithDestination(
        storageHost_ + "/" + std::string(StorageNames::kRemoteDirectory), kStorageUser, kStoragePassword);
    Quillery_Server.port = port;
}

void AppDelegate::Other_pre_proccesses() {
    menu.Log_in_menu_item.setSubmenu(&interface.Log_in_menu);
    menu.Log_in_menu_item.setImage(QStringLiteral("lock.png"));
    showInstructionPage(0);
    interface.Inst_Back->setEnabled(false);
    interface.Auto_Login_Check_box->setEnabled(false);
    RemoveMode_enabled = false;
    ShareMode_enabled = false;
    showModes();
}

void AppDelegate::Register_HotKeys() {
    constexpr std::uint16_t kKeyC = 8;
    VkHotKeyCenter &center = VkHotKeyCenter::sharedHotKeyCenter();
    center.setPurpose(toUtf8(tr("Save the clipboard")));
    center.setRegistrationLostHandler(
        [this](const auto &, const std::string &reason) { tellOfMissingHotKey(reason); });
    const auto hotKey =
        center.registerHotKeyWithKeyCode(kKeyC, kVkCommandFlag | kVkShiftFlag, this, "Save_bar_item");
    if (hotKey) {
        hotKeys_.push_back(hotKey);
        interface.Hot_key_label->setText(tr("Hot key that saves the clipboard: Super+Shift+C"));
    } else {
        tellOfMissingHotKey(center.lastFailure().value_or(""));
    }
}

// No alert, since saving by the menu works: once a note that goes away by itself, and a line in the
// preferences for as long as it is so.
void AppDelegate::tellOfMissingHotKey(const std::string &reason) {
    const QString why = toQString(reason);
    const QString wayOut =
        tr("Have your desktop's keyboard settings run “quillery --save” for a combination of your choice.");
    interface.Hot_key_label->setText(tr("Super+Shift+C cannot save the clipboard: %1\n%2").arg(why, wayOut));
    if (settingIs("hotKeyFailureTold", toUtf8(why).c_str())) return;
    storeSetting("hotKeyFailureTold", why);
    // After the start, whose windows would take it away.
    shell_.gate.enter([this] { showNote(tr("No hot key"), interface.Hot_key_label->text()); });
}

bool AppDelegate::Check_if_internet_connection_is_found() {
    interface.Checking_for_connection_spinner->setUsesThreadedAnimation(true);
    UploadDidFinish =
        shell_.waiting.run(tr("Checking the connection to the storage server…"),
                           [server = server()](const std::stop_token &stop) {
                               return server.upload("Check", std::string(StorageNames::kCheckInternet), stop);
                           });
    interface.Quillery_window->close();
    interface.Checking_for_connection_spinner->stopAnimation();
    return UploadDidFinish;
}

void AppDelegate::applyOfflineState() {
    menu.Remove_a_friend_item.clearAction();
    Username.reset();
    Password.reset();
    isSigned_in = false;
    interface.State_label->setText(tr("Offline"));
    interface.Add_friend_windowed_mode->setEnabled(false);
    interface.Remove_contact_windowed_mode->setEnabled(false);
    interface.Read_local_button->setEnabled(false);
    interface.Change_done_button->setEnabled(false);
}

void AppDelegate::applySignedInPresentation() {
    interface.State_label->setText(tr("Online"));
    interface.Add_friend_windowed_mode->setEnabled(true);
    interface.Remove_contact_windowed_mode->setEnabled(true);
    interface.Share_switch->setEnabled(true);
    menu.Log_in_menu_item.setTitle(tr("Log out"));
    menu.Log_in_menu_item.setImage(QStringLiteral("unlock.png"));
    menu.Log_in_menu_item.setSubmenu(nullptr);
    Status_Item->setImage(QStringLiteral("online.png"));
    interface.Auto_Login_Check_box->setEnabled(true);
    menu.Log_in_menu_item.setAction([this] { Log_out_Action(); });
    interface.Change_done_button->setEnabled(true);
    armPasswordChange();
    interface.Read_local_button->setEnabled(true);
}

void AppDelegate::applySignedOutState() {
    interface.Share_switch->setEnabled(false);
    Username.reset();
    menu.Remove_a_friend_item.clearAction();
    Password.reset();
    isSigned_in = false;
    interface.State_label->setText(tr("Offline"));
    interface.Add_friend_windowed_mode->setEnabled(false);
    interface.Remove_contact_windowed_mode->setEnabled(false);
    interface.Change_done_button->setEnabled(false);
    interface.Read_local_button->setEnabled(false);
    menu.Add_contact_menu_item.clearAction();
}

void AppDelegate::lockIfPasscodeIsSet() {
    if (!settingIs("kHasPasscode", "YES")) return;
    menu.Clipboard_saves_menu_item.clearAction();
    menu.Remove_a_friend_item.clearAction();
    menu.Saveing_menu_item.clearAction();
    menu.Unlock_passcode_item.setAction([this] { Unlock_passcode(nullptr); });
    interface.Quillery_Box->setContentView(interface.Insert_passcode_view);
    orderFront(*interface.Quillery_window);
}

void AppDelegate::fillSavedListAtStart() {
    if (isSigned_in) {
        auto text = serverText(clipListName(), tr("Reading your list from the storage server…"));
        Content_of_quillery_file_Server =
            text ? std::make_shared<const std::string>(std::move(*text)) : nullptr;
        if (!GenFileManager.fileExistsAtPath(Content_file_path)) {
            const std::string problem = GenFileManager.createFileAtPath(Content_file_path, {});
            if (!problem.empty()) log(Content_file_path.string() + " could not be made: " + problem);
        } else if (Content_of_quillery_file_Server) {
            interface.Clipboard_saved_string_combobox->addItems(
                Content_of_quillery_file_Server,
                ClipList::componentsSeparatedByTerminator(*Content_of_quillery_file_Server));
        }
        return;
    }
    const auto readLocal = [this] {
        FileText local = GenFileManager.textAtPath(Content_file_path);
        if (local.mustBeSetAside()) log(Content_file_path.string() + " could not be read: " + local.problem);
        Content_of_quillery_file_Local =
            local.text ? std::make_shared<const std::string>(std::move(*local.text)) : nullptr;
    };
    readLocal();
    if (!GenFileManager.fileExistsAtPath(Content_file_path)) {
        const std::string problem = GenFileManager.createFileAtPath(Content_file_path, {});
        if (!problem.empty()) log(Content_file_path.string() + " could not be made: " + problem);
        interface.Quillery_Box->setContentView(interface.List_View);
        readLocal();
    }
    fillSavedList(Content_of_quillery_file_Local);
}

void AppDelegate::showPreferences() {
    // To show a setting is not to change it.
    const QSignalBlocker quietLaunch(interface.Open_at_launch_check_box);
    const QSignalBlocker quietLogin(interface.Auto_Login_Check_box);
    const bool opensAtLaunch = settingIs("kOpenAtLaunch", "Yes");
    interface.Open_at_launch_check_box->setChecked(opensAtLaunch);
    interface.Open_at_launch_label->setText(opensAtLaunch ? tr("Open at launch:enabled")
                                                          : tr("Open at launch:disabled"));
    const bool autoLogin = settingIs("kAutoLogin", "Yes");
    interface.Auto_Login_Check_box->setChecked(autoLogin);
    interface.Auto_login_label->setText(autoLogin ? tr("Auto-Login:enabled") : tr("Auto-Login:disabled"));
    showPasscodeSettings();
}

void AppDelegate::showPasscodeSettings() {
    const bool hasPasscode = settingIs("kHasPasscode", "YES");
    log(hasPasscode ? "Old passcode" : "New passcode");
    interface.Passcode_box->setContentView(hasPasscode ? interface.change_passcode_view
                                                       : interface.new_passcode_view);
}

void AppDelegate::armSavingAndLoading() {
    menu.Saveing_menu_item.setAction([this] { Save_bar_item(static_cast<QObject *>(nullptr)); });
    menu.Clipboard_saves_menu_item.setAction([this] { Clipboard_saves(nullptr); });
}

void AppDelegate::armContacts() {
    menu.Add_contact_menu_item.setAction([this] { Add_contact_menu_item(nullptr); });
    menu.Remove_a_friend_item.setAction([this] { Remove_contact_item(nullptr); });
}

void AppDelegate::armPasswordChange() {
    menu.changePasswordItem.setAction([this] { openChangePasswordView(nullptr); });
    interface.Change_password_button->setEnabled(true);
}

void AppDelegate::disarmPasswordChange() {
    menu.changePasswordItem.clearAction();
    interface.Change_password_button->setEnabled(false);
}

void AppDelegate::Quit(QObject *) {
    if (alert(tr("Alert!"), tr("Are you sure you want to quit?"), {tr("Yes"), tr("No")}) == 0) terminate();
}

void AppDelegate::performRequest(const std::string &request, const SingleInstance::Reply &reply) {
    const auto words = [](const QString &text) { return toUtf8(text); };
    if (request == "quit") {
        reply({});
        endSession();  // whoever asks so cannot answer what is on the screen
    } else if (request == "activate") {
        reply({});
        if (QWidget *asking = QApplication::activeModalWidget()) orderFront(*asking);
        shell_.gate.enter([this] { bringToFront(); });
    } else if (!Status_Item) {
        orderFront(*interface.Intro_window);
        reply({1, words(tr("Quillery has only just been started: finish its introduction first."))});
    } else if (request == "save") {
        shell_.gate.enter([this, reply, words] {
            reply(saveClipboard() ? SingleInstance::Answer{}
                                  : SingleInstance::Answer{1, words(tr("Nothing was saved."))});
        });
    } else if (request == "list") {
        shell_.gate.enter([this, reply, words] {
            if (!menu.Clipboard_saves_menu_item.hasAction()) {
                reply({1, words(tr("The saved list is locked: unlock it with the passcode first."))});
                return;
            }
            Clipboard_saves(nullptr);
            reply({});
        });
    } else {
        reply({1, words(tr("The Quillery that runs does not know that command."))});
    }
}

// What a user who starts a program that runs already would look for.
void AppDelegate::bringToFront() {
    if (!Status_Item) {
        orderFront(*interface.Intro_window);
    } else if (!Status_Item->isShown()) {
        showWindowedMode(ScreenPlace::kMiddle);
    } else if (interface.Quillery_window->isVisible()) {
        orderFront(*interface.Quillery_window);
    } else if (menu.Clipboard_saves_menu_item.hasAction()) {
        Clipboard_saves(nullptr);
    } else {
        Unlock_passcode(nullptr);
    }
}

// Not by waiting here: this may run inside an alert or a wait, which has to return before a background
// operation that wants its turn can end.
void AppDelegate::terminate() {
    if (std::exchange(isQuitting_, true)) return;
    interface.Quillery_window->close();
    connect(&shell_.background, &BackgroundTasks::ended, this, &AppDelegate::quitWhenDone);
    // A write that was announced is finished first; whoever cannot wait for it may say so.
    QTimer::singleShot(Waiting::kPatience, this, [this] {
        if (shell_.background.running() == 0) return;
        disconnect(interface.waitingWindow.get(), &WaitingWindow::cancelled, nullptr, nullptr);
        connect(interface.waitingWindow.get(), &WaitingWindow::cancelled, this, [] { std::_Exit(1); });
        interface.waitingWindow->showFor(tr("Finishing what is still being saved…"),
                                         tr("Quit Without Saving"), false);
    });
    quitWhenDone();
}

void AppDelegate::endSession() {
    isEnding_ = true;
    shell_.waiting.cancel();
    if (QWidget *alertThatIsUp = QApplication::activeModalWidget()) alertThatIsUp->close();
    terminate();
    quitWhenDone();
}

void AppDelegate::quitWhenDone() {
    const auto quit = [this] {
        if (shell_.background.running() > 0) return;
        disconnect(interface.waitingWindow.get(), &WaitingWindow::cancelled, nullptr, nullptr);
        interface.waitingWindow->hide();
        QCoreApplication::exit(0);  // not quit(), which asks the windows first
    };
    if (shell_.background.running() > 0) return;
    if (isEnding_) {
        quit();
    } else {
        shell_.gate.enter(quit);  // behind alerts that say what could not be saved
    }
}

AppDelegate::Server AppDelegate::server() const {
    return {transport_, MyFTPManager.get(), Quillery_Server, storageHost_,
            shell_.configuration.storageHost ? nullptr : shell_.personalStorage};
}

// The personal server may have ended since, by whatever hand: then it is started again.
bool AppDelegate::Server::find(FMServer &found, const std::stop_token &stop) const {
    found = descriptor;
    if (!personalStorage) return true;
    const auto storage = personalStorage(stop);
    found.port = storage.port.value_or(descriptor.port);
    return storage.port.has_value();
}

std::optional<std::string> AppDelegate::Server::text(const std::string &name,
                                                     const std::stop_token &stop) const {
    FMServer found;
    if (!find(found, stop)) return std::nullopt;
    const auto url = ftpURLForFile({*found.username, *found.password, host, found.port,
                                    std::string(StorageNames::kRemoteDirectory), name});
    return url ? stringWithContentsOfURL(*url, *transport, stop) : std::nullopt;
}

bool AppDelegate::Server::upload(std::optional<std::string_view> data, const std::string &name,
                                 const std::stop_token &stop) const {
    FMServer found;
    return find(found, stop) && manager->uploadData(data, name, &found, stop);
}

std::optional<std::vector<FTPResource>> AppDelegate::Server::contents(const std::stop_token &stop) const {
    FMServer found;
    // By a manager of its own: a save must not wait for a listing.
    return find(found, stop) ? FTPManager(transport).contentsOfServer(&found, stop) : std::nullopt;
}

std::optional<std::string> AppDelegate::serverText(const std::string &name, const QString &whatFor) {
    return shell_.waiting.run(
        whatFor, [server = server(), name](const std::stop_token &stop) { return server.text(name, stop); });
}

int AppDelegate::alert(const QString &title, const QString &message, const QStringList &buttons) {
    // Nobody is to be kept from ending the session by a question.
    if (isEnding_) return static_cast<int>(buttons.size()) - 1;
    return shell_.alerts.run(title, message, buttons);
}

void AppDelegate::actFromBackground(const std::function<void()> &action) {
    std::promise<void> done;
    shell_.ui.post([&] {
        shell_.gate.enter([&] {
            action();
            done.set_value();
        });
    });
    done.get_future().wait();
}

void AppDelegate::alertFromBackground(const QString &title, const QString &message) {
    actFromBackground([&] { alert(title, message); });
}

std::optional<QString> AppDelegate::setting(const char *key) const {
    return shell_.standardUserDefaults.objectForKey(QLatin1String(key));
}

void AppDelegate::storeSetting(const char *key, const QString &value) {
    shell_.standardUserDefaults.setObject(value, QLatin1String(key));
    shell_.standardUserDefaults.synchronize();
}

bool AppDelegate::settingIs(const char *key, const char *value) const {
    return setting(key) == QLatin1String(value);
}

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
            if (toggle->isEnabled()) (this->*operation)(toggle);
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
    armContacts();
    disarmPasswordChange();
    enterFromMenu(i.Open_sign_in_window, &AppDelegate::Open_sign_in_window);
    enterFromMenu(i.Open_sign_up_view, &AppDelegate::Open_sign_up_view);
    enterFromMenu(i.Contacts_item, &AppDelegate::Contacts_item);
    enterFromMenu(i.Preference_menu_item, &AppDelegate::Preference_menu_item);
    enterFromMenu(i.Windowed_mode_item, &AppDelegate::Windowed_mode_item);
    enterFromMenu(i.Instructions, &AppDelegate::Instructions);
    enterFromMenu(i.Info_Action, &AppDelegate::Info_Action);
    enterFromMenu(i.Quit, &AppDelegate::Quit);

    connect(i.Clipboard_saved_string_combobox, &ListControl::picked, this,
            [this](int index, const std::string &text) {
                shell_.gate.enter([this, index, text] {
                    finishListUses();
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
    i.Contacts_table->setDataSource(this);
    connect(i.Contacts_table, &TableView::action, this,
            [this] { shell_.gate.enter([this] { Selected_friend_from_table(interface.Contacts_table); }); });

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

    connect(i.Windowed_menu_button, &QPushButton::clicked, this, [this] {
        QPushButton &button = *interface.Windowed_menu_button;
        interface.Quillery_Menu.popup(button.mapToGlobal(QPoint(0, button.height())));
    });

    connect(&shell_.notificationCenter, &UserNotifications::activated, this,
            [this] { shell_.gate.enter([this] { userNotificationCenter_didActivateNotification(); }); });
    connect(&shell_.notificationCenter, &UserNotifications::undeliverable, this, &AppDelegate::showBanner);
    i.notificationBanner->installEventFilter(this);

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
    if (watched == interface.Quillery_window.get() && isEscape) interface.Quillery_window->close();
    const bool isClosedByUser = event->type() == QEvent::Close && event->spontaneous();
    if (watched == interface.Intro_window.get() && isClosedByUser && !settingIs("kIsNotFirstUse", "YES")) {
        QCoreApplication::exit(0);
    }
    if (watched == interface.Windowed_mode.get() && isClosedByUser && !Status_Item->isShown()) {
        event->ignore();
        shell_.gate.enter([this] { Quit(nullptr); });
        return true;
    }
    if (watched == interface.notificationBanner.get() && event->type() == QEvent::MouseButtonRelease) {
        interface.notificationBanner->hide();
        if (!bannerIsNotification_) return QObject::eventFilter(watched, event);
        shell_.gate.enter([this] { userNotificationCenter_didActivateNotification(); });
    }
    return QObject::eventFilter(watched, event);
}

// For a desktop without a notification service.
void AppDelegate::showBanner(const QString &title, const QString &text) {
    showNote(title, text);
    bannerIsNotification_ = true;
}

// A click only takes it away.
void AppDelegate::showNote(const QString &title, const QString &text) {
    bannerIsNotification_ = false;
    interface.notificationLabel->setText(title + QStringLiteral("\n") + text);
    interface.notificationBanner->adjustSize();
    interface.notificationBanner->showRelativeTo(nullptr, Popover::Edge::kMaxY);
    bannerTime_.start();
}

void AppDelegate::showWaiting(const QString &whatFor) {
    if (interface.Checking_for_connection_view->isVisible()) {
        interface.Checking_label->setText(whatFor);
        interface.Checking_cancel->show();
    } else {
        interface.waitingWindow->showFor(whatFor, tr("Cancel"), true);
    }
}

void AppDelegate::hideWaiting() {
    interface.Checking_cancel->hide();
    interface.waitingWindow->hide();
}
