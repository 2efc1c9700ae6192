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
    armSavingAndLoading();
    interface.Quillery_window->close();
    menu.Unlock_passcode_item.clearAction();
    interface.Insert_passcode_field->clear();
    alert(tr("Success!"), tr("Correct passcode"));
}
