#pragma once

#include <QObject>
#include <QTimer>
#include <cstdint>
#include <filesystem>
#include <future>
#include <list>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "FTPManager/FTPManager.h"
#include "app/Interface.h"
#include "app/LocalList.h"
#include "app/RescuedLists.h"
#include "app/Shell.h"
#include "app/StorageServer.h"
#include "hotkey/VkHotKeyCenter.h"
#include "platform/MenuItem.h"
#include "platform/SingleInstance.h"
#include "platform/StatusBar.h"
#include "platform/TableView.h"

// The one controller: it owns every interface element and all of the program's state, and its operations are
// what the user can do. The sections below follow the sources, in their order; what several of them need is
// in AppDelegate_Services.cpp, and which control runs what in AppDelegate_Wiring.cpp.
//
// UI thread only, with one exception: the operations said to run in the background run on a thread of their
// own, take copies, and reach the fields and the interface through Shell::ui alone.
//
// Actions of the user enter through Shell::gate; the operations themselves expect to be inside it.
class AppDelegate : public QObject, public TableViewDataSource {
    Q_OBJECT

  public:
    explicit AppDelegate(Shell shell);
    ~AppDelegate() override;

    // ---- Core: start-up, status menu, probe (AppDelegate.cpp), requests of other processes and quitting
    // (AppDelegate_Commands.cpp) ----

    // The whole start-up; on first use only the intro. Runs again when the intro ends.
    void applicationDidFinishLaunching();

    // Whether the storage server takes a file. Waits for it with the event loop turning.
    bool Check_if_internet_connection_is_found();

    // Asks, and on "Yes" ends the program.
    void Quit(QObject *sender);
    // The same for the user's command, which arrives from outside the gate.
    void askToQuit();

    // A request of another process of this user's: "activate" (shows the program), "save", "list" or "quit".
    // Its reply comes when that is done, which may be after alerts were answered.
    void performRequest(const std::string &request, const SingleInstance::Reply &reply);

    // Ends the program without a question, once background writes are done (or given up on by the user).
    // Returns at once; may be called at any time, inside an action or not.
    void terminate();

    // The same for a session that ends: nothing is asked and no alert shown any more, and waits are given up.
    void endSession();

    // ---- Saved list: save, load, pick, modes (AppDelegate_SavedList.cpp) ----

    // Saves the clipboard's text into the list.
    void Save_bar_item(QObject *sender);
    // The same, or, if `asked` is valid, for the text that was on the clipboard then. Returns whether the
    // list has been written, which is known later; not valid if nothing was announced. `refused` may be
    // empty; it hears why not before the user is told.
    std::shared_future<bool> saveClipboard(const std::shared_future<PasteboardText> &asked,
                                           const std::function<void(const QString &why)> &refused);
    // The same for the hot key, which arrives from outside the gate.
    Q_INVOKABLE void Save_bar_item(const VkKeyEvent &event);

    // The user clicked a delivered notification.
    void userNotificationCenter_didActivateNotification(UserNotifications &center,
                                                        const UserNotification &notification);

    // Opens the saved list.
    void Clipboard_saves(QObject *sender);
    void ClipBoard_saves_local();
    void ClipBoard_saves_Cloud();

    // Replaces the signed-in user's list on the server by the one on this machine. Runs on the thread that
    // calls it, in the background or not.
    void Sync_local_with_cloud();
    // Asks, and on "Yes" does so in the background for an account that has no list.
    void keepLocalList(QObject *sender);

    // A pick in the list; what it does is for the mode flags to say.
    void Clipboard_combox(QWidget *sender);
    bool writeToPasteBoard(const std::string &text);

    void Remove_item_switch(QObject *sender);
    void Share_mode_switch(QObject *sender);
    void Read_local_button(QObject *sender);

    // Asks, and on "Yes" empties the list: the one on this machine, and the signed-in user's on the server.
    void Clean_list(QObject *sender);

    // ---- Accounts (AppDelegate_Accounts.cpp) ----

    void Open_sign_up_view(QObject *sender);
    // Checks the form and the name, and has the account written in the background.
    void Done_Sign_up(QObject *sender);

    void Open_sign_in_window(QObject *sender);
    // Switches to the user's list on the server if the form is right.
    void Sing_in_done(QObject *sender);

    void openChangePasswordView(QObject *sender);
    // Checks the form, and has the new password written in the background.
    void Done_Edit(QObject *sender);

    // Switches from the user's list on the server to the one on this machine. Touches no file and no setting.
    void Log_out_Action();

    // ---- Contacts and sharing (AppDelegate_Contacts.cpp) ----

    // The rows of Contacts_table: the elements of Contacts_array.
    int numberOfRowsInTableView(const TableView &table) const override;
    QString tableView(const TableView &table, int viewForTableColumn, int row) const override;
    // Whether a cell may follow the mouse: always. Contacts_table does not ask.
    bool tableView(const TableView &table, const QString &shouldTrackCell, int forTableColumn, int row) const;

    // Shows the friends as they were read last.
    void Contacts_item(QObject *sender);
    // Reads them once.
    void readFriends(QObject *sender);
    // Writes an empty friends list for a user who has none, so that friends can be added to it.
    void startFriendsList(QObject *sender);

    void Add_contact_menu_item(QObject *sender);
    void Add_contact_done_button(QObject *sender);
    // The same from the first friend on.
    void lookThroughFriendsAgain(QObject *sender);

    void Remove_contact_item(QObject *sender);
    // Turns the removal of friends by a click on and off.
    void Remove_contact(QObject *sender);
    // A click on a friend: removes the friend, or sends the list control's text.
    void Selected_friend_from_table(QObject *sender);

    // Puts the list control's text into the file of shared texts of the friend picked last. No interface
    // element sends it.
    void Share_action();

    // ---- Passcode (AppDelegate_Passcode.cpp) ----

    // Sets a first passcode. It locks from the next start or log-out on.
    void Done_create_passcode(QObject *sender);
    void Unlock_passcode(QObject *sender);
    void Done_insert_passcode_action(QObject *sender);
    void Done_change_passcode(QObject *sender);
    // Switches the lock off; the passcode stays in the settings.
    void Remove_Passcode_action(QObject *sender);

    // ---- Preferences, intro, instructions, windowed mode and links (AppDelegate_Preferences.cpp) ----

    void Preference_menu_item(QObject *sender);
    void Info_Action(QObject *sender);
    void Open_at_launch_action(QObject *sender);
    void Auto_Login_action(QObject *sender);

    void Instructions(QObject *sender);
    void Inst_Next(QObject *sender);
    void Inst_Back(QObject *sender);

    void Windowed_mode_item(QObject *sender);
    void Close_windowed(QObject *sender);
    void Mini_windowed(QObject *sender);
    void Preference_WinMode(QObject *sender);
    void Tutorials_WinMode(QObject *sender);
    void Add_friend_WinMode(QObject *sender);
    void Remove_contact_WinMode(QObject *sender);
    void Contact_us_WinMode(QWidget *sender);

    void Start_intro_button(QObject *sender);
    void Mini_Intro(QObject *sender);
    void Tovanix_intro(QWidget *sender);

    void How_to_use(QObject *sender);
    void Facebook(QObject *sender);
    void Twitter(QObject *sender);
    void Pinterest(QObject *sender);
    void GooglePluse(QObject *sender);
    void Web(QObject *sender);
    void EMail(QObject *sender);
    void sendEmailTo(const QString &address, const QString &withSubject, const QString &withBody);

    // ---- State ----

    bool isNotFirst_use = false;  // no operation uses it
    bool isSigned_in = false;
    std::optional<std::string> Username;
    std::optional<std::string> Password;
    bool UploadDidFinish = false;
    std::optional<std::string> Clipboard_String_content;
    std::filesystem::path Content_file_path;
    // The last texts read; null for none. Shared with the list control, which shows pieces of them.
    std::shared_ptr<const std::string> Content_of_quillery_file_Local;
    std::shared_ptr<const std::string> Content_of_quillery_file_Server;
    FileManager GenFileManager;
    std::unique_ptr<FTPManager> MyFTPManager;
    FMServer Quillery_Server;
    bool Read_Local_mode = false;
    bool RemoveMode_enabled = false;
    bool ShareMode_enabled = false;
    bool RemoveContact_enabled = false;
    std::vector<std::string> Contacts_array;
    std::optional<std::string> Contact_Username;
    std::int32_t Contact_index_number = 0;
    std::int32_t Remove_contact_time_number = 0;

    Interface interface;
    std::unique_ptr<StatusItem> Status_Item;

    // The items of the status menu that change while the program runs.
    struct StatusMenuItems {
        MenuItem Saveing_menu_item;
        MenuItem Clipboard_saves_menu_item;
        MenuItem Add_contact_menu_item;
        MenuItem Remove_a_friend_item;
        MenuItem Log_in_menu_item;
        MenuItem Unlock_passcode_item;
        MenuItem changePasswordItem;
    } menu;

  protected:
    // What a window does beyond its controls: Escape closes the panel, and whoever closes the intro without
    // having started ends the program, which nothing else would be left to do.
    bool eventFilter(QObject *watched, QEvent *event) override;

  private:
    using Operation = void (AppDelegate::*)(QObject *);
    static constexpr std::size_t kLongestMention = 60;  // characters of a text that a message names

    // Core.
    void CreatingStatus_item();
    void Varibles_values();
    void Other_pre_proccesses();
    void Register_HotKeys();
    void showState(const QString &state);
    void applySignedInPresentation();  // which is the two below
    void showOnline();
    void offerLogOut();
    void applyOfflineState();
    void applySignedOutState();
    void lockIfPasscodeIsSet();
    bool isLocked() const { return menu.Unlock_passcode_item.hasAction(); }
    void hideListFromSight();
    void armSavingAndLoading();
    void armContacts();
    void showLaunch();
    void showLaunchProblem(const QString &problem);
    void showPasscodeSettings();
    void fillSavedListAtStart();
    void showPreferences();
    void showWaiting(const QString &whatFor);
    void hideWaiting();
    void armPasswordChange();
    void disarmPasswordChange();
    void showHotKey();
    void tellOfRegainedHotKey();
    void tellOfMissingHotKey(const std::string &reason);
    void bringToFront();
    void showBanner(const QString &title, const QString &text);
    void quitWhenDone();
    void showWhatIsUnfinished();
    void askToGiveUp();
    struct WaitingRequest;
    void enterRequest(const SingleInstance::Reply &reply, std::function<void()> action);
    void refuseWaitingRequests(const SingleInstance::Answer &answer);
    static SingleInstance::Answer isBusyWithAlert();
    static SingleInstance::Answer isEndingNow();
    void notificationClicked(const UserNotification &notification);
    void enterFromButton(QAbstractButton *button, Operation operation);
    void enterFromToggle(QAbstractButton *toggle, Operation operation);
    void enterFromMenu(QAction *item, Operation operation);
    void wireInterface();
    std::optional<QString> setting(const char *key) const;
    bool settingIs(const char *key, const char *value) const;
    void storeSetting(const char *key, const QString &value);
    void giveLinkItemsTheirAddresses();

    // Reads from the UI thread, with the event loop turning.
    std::shared_ptr<const std::string> read(const std::shared_ptr<ServerFile> &file, const QString &whatFor);
    std::optional<std::string> serverText(const std::string &name, const QString &whatFor);

    // Runs `work` on a background thread. `what` says in words what would be lost without it; empty for a
    // read.
    void performInBackground(const QString &what, std::function<void()> work);
    void openRescuedLists(QObject *sender);
    void tellOfRescue(const std::filesystem::path &copy, RescuedLists::Reason reason);

    // A form with a button that sends it.
    struct Form {
        std::vector<QLineEdit *> fields;
        QPushButton *button;
    };
    Form signUpForm() const;
    Form signInForm() const;
    Form passwordForm() const;
    Form addContactForm() const {
        return {{interface.Add_contact_textfield}, interface.Add_contact_done_button};
    }
    void setFormLocked(const Form &form, bool isLocked);
    void hidePasswords();
    void forgetTypedPasswords();

    // Accounts. The first two run in the background.
    void Sign_up_upload_data();
    void upload_new_password_edit(ServerFile &file);
    void forgetPickedText();

    // Contacts and sharing. The actions but the first run in the background.
    bool Add_contact_function();  // whether the friend is being added
    void Add_friend_action(ServerFile &contacts);
    void Remove_contact_from_server_action(int row, const std::string &contact, ServerFile &file);
    void Send_text_action_sharing(const std::string &user, const std::string &contact,
                                  const std::string &text, ServerFile &file);
    void Overwrite_shared_file(const std::string &entry, ServerFile &file);
    void Create_Shared_file(const std::string &entry, ServerFile &file);
    void lookForFriendsList();
    std::optional<std::string> contactAtRow(int row) const;
    void setContacts(const std::shared_ptr<const std::string> &text);
    void offerToStartFriendsList(bool offers);
    void showContactMode();

    // Saved list. The saves, the removal and the cleaning of the server's list run in the background.
    struct CopiedText {
        std::string text;
        bool isFinal = false;  // the clipboard is not looked at again
        std::stop_token noLongerAsking =
            {};  // requested: what the clipboard does not tell by then is not waited for
    };
    std::shared_future<PasteboardText> copiedTextIfBusy();
    static QString whyNotRead(PasteboardText::State state);
    std::shared_future<bool> startSave(const QString &what, const std::shared_future<bool> &before,
                                       std::function<bool()> save);  // which tells whether it has saved
    void finishLocalSaves();
    bool Save_Clipboard_string_cloud(const CopiedText &announced, std::promise<void> &hasText,
                                     ServerFile &file);
    bool Save_Clipboard_string_local(const CopiedText &announced, std::promise<void> &hasText);
    std::string clipboardTextForSaving(const CopiedText &announced);
    bool isShownInList(const std::string &text);
    void Upload_after_removing_action(int index, const std::string &removed, ServerFile &file);
    void Clean_server_file(ServerFile &file);
    void removeFromControl(int index, const std::string &text);
    void removePickedItem();
    void sharePickedItem();
    void makePickedItemAvailableOffline();
    void copyPickedItem(QWidget *sender);
    enum class ListPlace { kThisComputer, kAccount };
    void fillSavedList(const std::shared_ptr<const std::string> &text, ListPlace place);
    void showListPlace(ListPlace place);
    void lookForAccountList();
    LocalList::Reading readLocalList();
    LocalList::Change changeLocalList(const std::function<LocalList::Change()> &change);
    void tellOfSetAside(const std::filesystem::path &path, const LocalList::Change &change);
    std::size_t numberOfLocalTexts();
    bool putLocalListInto(ServerFile &file);
    void showKeptList(const std::optional<std::string> &user, bool isKept);
    void tellUnlessWritten(const std::filesystem::path &path, const std::string &problem);
    bool reportUnsavedText(const std::string &text, const std::filesystem::path &path,
                           const std::string &why);
    template <class Result>
    void waitFor(const std::shared_future<Result> &event, const QString &whatFor);
    std::filesystem::path localListPath() const;
    std::string clipListName() const;
    void showModes();
    void showModeHint();

    // Alerts. The first is for actions of the user, and says nothing any more once the user has quit; the
    // second is for what must be said even then. The third is for background operations: it takes its turn at
    // the gate and returns when it was answered. The fourth runs anything that takes its turn in the same
    // way.
    int alert(const QString &title, const QString &message,
              const QStringList &buttons = {QStringLiteral("OK")}, int defaultButton = 0);
    int showAlert(const QString &title, const QString &message,
                  const QStringList &buttons = {QStringLiteral("OK")}, int defaultButton = 0);
    void alertFromBackground(const QString &title, const QString &message);
    static void log(const std::string &line);  // to standard error; from any thread
    void actFromBackground(const std::function<void()> &action);

    // Preferences and guidance.
    void setAuto();
    void removeAuto();
    void showInstructionPage(int page);
    void showWindowedMode(ScreenPlace place);
    void openLink(const char *name);

    Shell shell_;
    RescuedLists rescued_;
    std::shared_ptr<FTPTransport> transport_;
    std::shared_ptr<StorageServer> storage_;
    std::shared_future<bool> localSaves_;
    std::list<QString> unfinished_;  // what runs in the background, in words
    std::vector<std::shared_ptr<WaitingRequest>> waitingRequests_;
    LocalList localList_;
    std::vector<std::shared_ptr<VkHotKey>> hotKeys_;
    int instructionPage_ = 0;  // the one shown, counted from 0
    bool isAfterIntro_ = false;
    bool willAskToQuit_ = false;
    bool isQuitting_ = false;  // the user has decided to quit
    std::stop_source quits_;   // so that nobody needs what is only being read
    bool isEnding_ = false;    // the session ends: there is nobody left to answer
};
