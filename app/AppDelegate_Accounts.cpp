#include "app/AppDelegate.h"

#include <cstdio>

void AppDelegate::Log_out_Action() {
    Log_in_menu_item.setTitle(tr("Log in"));
    Log_in_menu_item.clearAction();
    Log_in_menu_item.setSubmenu(&interface.Log_in_menu);
    Log_in_menu_item.setImage(QStringLiteral("lock.png"));
    isSigned_in = false;
    interface.State_label->setText(tr("Offline"));
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
    Add_contact_menu_item.clearAction();
    Unlock_passcode_item.setAction([this] { Unlock_passcode(nullptr); });
    Remove_a_friend_item.clearAction();
    Read_Local_mode = false;
    ShareMode_enabled = false;
    interface.Make_available_offline_label->setText(tr("Make available offline"));
    interface.Share_label->setText(tr("Share"));
    interface.Remove_contact->setText(tr("Remove a friend"));
    RemoveContact_enabled = false;
    showModes();
    const bool hasPasscode = settingIs("kHasPasscode", "YES");
    interface.Passcode_box->setContentView(hasPasscode ? interface.change_passcode_view
                                                       : interface.new_passcode_view);
    std::fputs(hasPasscode ? "Quillery: Old passcode\n" : "Quillery: New passcode\n", stderr);
    if (hasPasscode) {
        Saveing_menu_item.clearAction();
        Clipboard_saves_menu_item.clearAction();
    } else {
        Unlock_passcode_item.clearAction();
    }
}
