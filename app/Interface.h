#pragma once

#include <QLabel>
#include <QMenu>
#include <QWidget>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "platform/NotificationBanner.h"
#include "platform/Popover.h"
#include "platform/TextView.h"
#include "platform/WaitingWindow.h"
#include "ui_Add_contact_view.h"
#include "ui_Change_password_view.h"
#include "ui_Checking_for_connection_view.h"
#include "ui_Contacts_view.h"
#include "ui_Friends_view.h"
#include "ui_Info_View.h"
#include "ui_Insert_passcode_view.h"
#include "ui_Instructions_view.h"
#include "ui_Intro_popover.h"
#include "ui_Intro_window.h"
#include "ui_List_View.h"
#include "ui_Preference_View.h"
#include "ui_Quillery_window.h"
#include "ui_Sign_in_view.h"
#include "ui_Sign_up_view.h"
#include "ui_Windowed_mode.h"
#include "ui_change_passcode_view.h"
#include "ui_new_passcode_view.h"

// The windows, views and menus of the program, as the interface files describe them. Every element that the
// files name is a member of that name (Share_switch, State_label …). Fills and wires nothing.
//
// UI thread only; made once, lives as long as the controller.
struct Interface : Ui::QuilleryWindow,
                   Ui::CheckingView,
                   Ui::ListView,
                   Ui::InsertPasscodeView,
                   Ui::ContactsView,
                   Ui::FriendsView,
                   Ui::AddContactView,
                   Ui::SignInView,
                   Ui::SignUpView,
                   Ui::PreferenceView,
                   Ui::InstructionsView,
                   Ui::ChangePasswordView,
                   Ui::NewPasscodeView,
                   Ui::ChangePasscodeView,
                   Ui::InfoView,
                   Ui::IntroWindow,
                   Ui::IntroPopover,
                   Ui::WindowedMode {
    Interface();
    ~Interface();
    Interface(const Interface &) = delete;
    Interface &operator=(const Interface &) = delete;

  private:
    QWidget windows_;  // never shown: owns the views that are in no window at the moment

  public:
    // The panel window and the content views of its box.
    std::unique_ptr<QWidget> Quillery_window;
    QWidget *Checking_for_connection_view;
    QWidget *List_View;
    QWidget *Insert_passcode_view;
    QWidget *Sign_in_view;
    QWidget *Sign_up_view;
    QWidget *Add_contact_view;
    QWidget *Contacts_view;  // to send a text: what a friend is picked from
    QWidget *Contacts_View;  // to look at the friends
    QWidget *Preference_View;
    QWidget *Instructions_view;
    QWidget *Change_password_view;
    QWidget *Info_View;

    // The content views of Passcode_box.
    QWidget *new_passcode_view;
    QWidget *change_passcode_view;

    std::unique_ptr<QWidget> Intro_window;
    std::unique_ptr<QWidget> Windowed_mode;
    std::unique_ptr<Popover> QuickView_popover;
    QLabel *quickViewHeading;
    TextView *QuickView_label;
    std::unique_ptr<Popover> Intro_popover;
    std::unique_ptr<WaitingWindow> waitingWindow;
    std::unique_ptr<NotificationBanner> notificationBanner;

    // The status menu. An action's object name is the name of its item.
    QMenu Quillery_Menu;
    QMenu Log_in_menu;
    QAction *Saveing_menu_item;
    QAction *Clipboard_saves_menu_item;
    QAction *Add_contact_menu_item;
    QAction *Remove_a_friend_item;
    QAction *Log_in_menu_item;
    QAction *Unlock_passcode_item;
    QAction *Open_sign_in_window;
    QAction *Open_sign_up_view;
    QAction *Contacts_item;
    QAction *changePasswordItem;
    QAction *Preference_menu_item;
    QAction *Windowed_mode_item;
    QAction *Instructions;
    QAction *Info_Action;
    QAction *How_to_use;
    QAction *Facebook;
    QAction *Twitter;
    QAction *Pinterest;
    QAction *GooglePluse;
    QAction *aboutUs;  // the submenu of the links below
    QAction *Web;
    QAction *EMail;
    QAction *Quit;

    // Has the texts say where a signed-in user's list is, and where copies of lists are kept. No host: the
    // personal storage server.
    void fillInformation(const std::optional<std::string> &storageHost,
                         const std::filesystem::path &rescuedLists);

    // Makes the quick view as high as its text, up to what is usual.
    void fitQuickViewToText();

    // Contacts_table is shown in three places: in Contacts_view, in Contacts_View, and by itself. Each of
    // these moves it there and makes it, or the view, the content of the panel's box.
    void showContactsToPick();
    void showContacts();
    void showContactsTable();
    // Has the window's title say whether a click on a friend removes the friend, and the button that changes
    // it, with its hint, be wherever the friends are shown then.
    void showRemovalOfContacts(bool removes);

  private:
    void makeMenu();
    void makeForms();
};

// The path as users write it, with "~" for the home folder.
QString shortPath(const std::filesystem::path &path);

// Empties the fields of a form.
void emptyFields(std::initializer_list<QLineEdit *> fields);

// The program's picture of that file name, as sharp as the screens can show it.

// Where a window stands the first time; afterwards it is where the user left it.
enum class ScreenPlace {
    kMiddle,
    kCorner,  // top left, out of the way and without taking the keyboard
};

// Shows a window, in front of the others.
void orderFront(QWidget &window, ScreenPlace place = ScreenPlace::kMiddle);

// Gives a window the floating level: it stays above ordinary windows. Takes effect when the window is next
// shown.
void setFloatingWindowLevel(QWidget &window);
