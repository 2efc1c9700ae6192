#include "app/AppDelegate.h"

#include <malloc.h>
#include <QApplication>
#include <chrono>
#include <cstdio>
#include <utility>

#include "app/ClipList.h"
#include "app/StorageNames.h"
#include "platform/Text.h"
#include "platform/UiIds.h"
#include "platform/UserFolders.h"

namespace {

constexpr const char *kStorageUser = "qz7m_50281946";
constexpr const char *kStoragePassword = "w5rt9x2h";

// For a status bar to show itself.
constexpr std::chrono::seconds kLoginPatience{10};
constexpr std::chrono::seconds kSoon{1};

}  // namespace

AppDelegate::AppDelegate(Shell shell)
    : menu{{*interface.Saveing_menu_item, shell.gate},     {*interface.Clipboard_saves_menu_item, shell.gate},
           {*interface.Add_contact_menu_item, shell.gate}, {*interface.Remove_a_friend_item, shell.gate},
           {*interface.Log_in_menu_item, shell.gate},      {*interface.Unlock_passcode_item, shell.gate},
           {*interface.changePasswordItem, shell.gate}},
      shell_(std::move(shell)),
      rescued_(stateFolder() / "quillery" / "rescued",
               [this](const auto &copy, RescuedLists::Reason reason) { tellOfRescue(copy, reason); }) {
    interface.fillInformation(shell_.configuration.storageHost, rescued_.folder());
    wireInterface();
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
        interface.Intro_image->setImage(QStringLiteral("Intro.png"));
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
        armContacts();
    } else {
        applySignedOutState();
        lockIfPasscodeIsSet();
    }
    fillSavedListAtStart();
    if (rescued_.adoptLeftovers()) tellOfRescue(rescued_.folder(), RescuedLists::Reason::kCutShort);
    if (isLocked()) interface.Quillery_Box->setContentView(interface.Insert_passcode_view);
    showPreferences();
    malloc_trim(0);  // it is going to rest in the status bar for hours
}

void AppDelegate::CreatingStatus_item() {
    Status_Item = std::make_unique<StatusItem>();
    connect(Status_Item.get(), &StatusItem::imageChanged, interface.Windowed_menu_button,
            &QPushButton::setIcon);
    Status_Item->setImage(QStringLiteral("offline.png"));
    Status_Item->setToolTip(QStringLiteral("Quillery"));
    // Where there is no status bar the commands have to be somewhere.
    connect(Status_Item.get(), &StatusItem::shown, interface.Windowed_mode.get(), &QWidget::close);
    connect(Status_Item.get(), &StatusItem::lost, this, [this] { showWindowedMode(ScreenPlace::kCorner); });
    // The introduction's end is no login: there is a status bar by then, or none.
    Status_Item->setMenu(&interface.Quillery_Menu, isAfterIntro_ ? kSoon : kLoginPatience);
}

void AppDelegate::Varibles_values() {
    Content_file_path = localListPath();
    transport_ = std::make_shared<FTPTransport>(shell_.configuration.transport);
    MyFTPManager = std::make_unique<FTPManager>(transport_);
    std::int32_t port = shell_.configuration.storagePort;
    StorageServer::Place place;
    place.pauses = shell_.configuration.pausesBetweenReads;
    if (shell_.configuration.storageHost) {
        place.host = *shell_.configuration.storageHost;
    } else {
        const auto storage =
            shell_.waiting.run(tr("Starting the personal storage server…"), shell_.personalStorage);
        if (!storage.port) log("no personal storage server: " + storage.problem);
        place.host = "127.0.0.1";
        place.personalStorage = shell_.personalStorage;
        port = storage.port.value_or(port);
    }
    Quillery_Server = FMServer::serverWithDestination(
        place.host + "/" + std::string(StorageNames::kRemoteDirectory), kStorageUser, kStoragePassword);
    Quillery_Server.port = port;
    place.descriptor = Quillery_Server;
    storage_ = std::make_shared<StorageServer>(transport_, *MyFTPManager, std::move(place), rescued_);
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
    center.setRegistrationRegainedHandler([this](const auto &) { tellOfRegainedHotKey(); });
    const auto hotKey =
        center.registerHotKeyWithKeyCode(kKeyC, kVkCommandFlag | kVkShiftFlag, this, "Save_bar_item");
    if (hotKey) {
        hotKeys_.push_back(hotKey);
        showHotKey();
    } else {
        tellOfMissingHotKey(center.lastFailure().value_or(""));
    }
}

void AppDelegate::showHotKey() {
    interface.Hot_key_label->setText(tr("Hot key that saves the clipboard: Super+Shift+C"));
}

void AppDelegate::tellOfRegainedHotKey() {
    showHotKey();
    storeSetting("hotKeyFailureTold", {});  // the next loss is news
    shell_.gate.enterProgram([this] {
        interface.notificationBanner->present(tr("Hot key"), tr("Super+Shift+C saves the clipboard again."));
    });
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
    // After the start, when it can be seen.
    shell_.gate.enterProgram(
        [this] { interface.notificationBanner->present(tr("No hot key"), interface.Hot_key_label->text()); });
}

bool AppDelegate::Check_if_internet_connection_is_found() {
    interface.Checking_for_connection_spinner->setUsesThreadedAnimation(true);
    UploadDidFinish =
        shell_.waiting.run(tr("Checking the connection to the storage server…"),
                           [file = storage_->file(std::string(StorageNames::kCheckInternet))](
                               const std::stop_token &stop) { return file->replace("Check", stop); });
    interface.Quillery_window->close();
    interface.Checking_for_connection_spinner->stopAnimation();
    return UploadDidFinish;
}

void AppDelegate::applyOfflineState() {
    menu.Remove_a_friend_item.clearAction();
    Username.reset();
    Password.reset();
    isSigned_in = false;
    showState(tr("Offline"));
    interface.Add_friend_windowed_mode->setEnabled(false);
    interface.Remove_contact_windowed_mode->setEnabled(false);
    interface.Read_local_button->setEnabled(false);
    interface.Change_done_button->setEnabled(false);
}

// In the panel, and in words where it is an image.
void AppDelegate::showState(const QString &state) {
    interface.State_label->setText(state);
    describe(*interface.Windowed_menu_button, state);
    if (!Status_Item) return;
    Status_Item->setToolTip(isSigned_in && Username
                                ? tr("Quillery: %1 as %2").arg(state, toQString(*Username))
                                : tr("Quillery: %1").arg(state));
}

void AppDelegate::applySignedInPresentation() {
    showOnline();
    offerLogOut();
}

void AppDelegate::showOnline() {
    showState(tr("Online"));
    interface.Add_friend_windowed_mode->setEnabled(true);
    interface.Remove_contact_windowed_mode->setEnabled(true);
    interface.Share_switch->setEnabled(true);
}

void AppDelegate::offerLogOut() {
    menu.Log_in_menu_item.setTitle(tr("Log out"));
    menu.Log_in_menu_item.setSubmenu(nullptr);
    interface.Change_done_button->setEnabled(true);
    armPasswordChange();
    menu.Log_in_menu_item.setAction([this] { Log_out_Action(); });
    menu.Log_in_menu_item.setImage(QStringLiteral("unlock.png"));
    Status_Item->setImage(QStringLiteral("online.png"));
    interface.Auto_Login_Check_box->setEnabled(true);
    interface.Read_local_button->setEnabled(true);
}

void AppDelegate::applySignedOutState() {
    interface.Share_switch->setEnabled(false);
    Username.reset();
    menu.Remove_a_friend_item.clearAction();
    Password.reset();
    isSigned_in = false;
    showState(tr("Offline"));
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
        Content_of_quillery_file_Server =
            read(storage_->list(clipListName()), tr("Reading your list from the storage server…"));
        if (!GenFileManager.fileExistsAtPath(Content_file_path)) {
            const std::string problem = localList_.createIfMissing(Content_file_path);
            if (!problem.empty()) log(Content_file_path.string() + " could not be made: " + problem);
        } else if (Content_of_quillery_file_Server) {
            interface.Clipboard_saved_string_combobox->addItems(
                Content_of_quillery_file_Server,
                ClipList::componentsSeparatedByTerminator(*Content_of_quillery_file_Server));
            showListPlace(ListPlace::kAccount);
        }
        return;
    }
    readLocalList();
    if (!GenFileManager.fileExistsAtPath(Content_file_path)) {
        const std::string problem = localList_.createIfMissing(Content_file_path);
        if (!problem.empty()) log(Content_file_path.string() + " could not be made: " + problem);
        interface.Quillery_Box->setContentView(interface.List_View);
        readLocalList();
    }
    fillSavedList(Content_of_quillery_file_Local, ListPlace::kThisComputer);
}

void AppDelegate::showPasscodeSettings() {
    const bool hasPasscode = settingIs("kHasPasscode", "YES");
    if (hasPasscode) {
        interface.Passcode_box->setContentView(interface.change_passcode_view);
        log("Old passcode");
    } else {
        log("New passcode");
        interface.Passcode_box->setContentView(interface.new_passcode_view);
    }
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
