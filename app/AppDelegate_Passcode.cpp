#include "app/AppDelegate.h"

void AppDelegate::Unlock_passcode(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Insert_passcode_view);
}

void AppDelegate::Done_insert_passcode_action(QObject *) {
    if (setting("kPasscode") != interface.Insert_passcode_field->text()) {
        alert(tr("Error!"), tr("Wrong passcode."));
        return;
    }
    Saveing_menu_item.setAction([this] { Save_bar_item(static_cast<QObject *>(nullptr)); });
    Clipboard_saves_menu_item.setAction([this] { Clipboard_saves(nullptr); });
    interface.Quillery_window->close();
    Unlock_passcode_item.clearAction();
    interface.Insert_passcode_field->clear();
    alert(tr("Success!"), tr("Correct passcode"));
}
