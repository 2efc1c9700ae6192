#include "app/AppDelegate.h"

void AppDelegate::Done_create_passcode(QObject *) {
    Interface &i = interface;
    const QString passcode = i.Create_passcode->text();
    if (passcode.isEmpty() || passcode != i.Retype_passcode->text()) {
        alert(tr("Error!"), tr("\"Passcode\" field doesn't match \"re-type\" field"));
        return;
    }
    storeSetting("kPasscode", passcode);
    storeSetting("kHasPasscode", QStringLiteral("YES"));
    alert(tr("Success!"), tr("You have successfully sat up your passcode"));
    i.Quillery_window->close();
    i.Passcode_box->setContentView(i.change_passcode_view);
    emptyFields({i.Create_passcode, i.Retype_passcode});  // they would tell it to whoever comes next
    i.Create_passcode_show->setChecked(false);
}

void AppDelegate::Unlock_passcode(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Insert_passcode_view);
}

void AppDelegate::Done_insert_passcode_action(QObject *) {
    if (setting("kPasscode") != interface.Insert_passcode_field->text()) {
        alert(tr("Error!"), tr("Wrong passcode."));
        interface.Insert_passcode_field->selectAll();
        return;
    }
    armSavingAndLoading();
    interface.Quillery_window->close();
    menu.Unlock_passcode_item.clearAction();
    interface.Insert_passcode_field->clear();
    alert(tr("Success!"), tr("Correct passcode"));
}

void AppDelegate::Done_change_passcode(QObject *) {
    Interface &i = interface;
    const QString old = i.Change_old_passcode->text();
    if (old.isEmpty() || setting("kPasscode") != old) {
        alert(tr("Error!"), tr("Wrong \"Old passcode\""));
        return;
    }
    const QString passcode = i.Change_new_passcode->text();
    if (passcode.isEmpty() || passcode != i.Change_Retype_passcode->text()) {
        alert(tr("Error!"), tr("\"New passcode\" field doesn't match \"re-type\" field"));
        return;
    }
    storeSetting("kPasscode", passcode);
    i.Quillery_window->close();
    emptyFields({i.Change_old_passcode, i.Change_new_passcode, i.Change_Retype_passcode});
    i.Change_passcode_show->setChecked(false);
    alert(tr("Success!"), tr("Passcode has successfully changed"));
}

void AppDelegate::Remove_Passcode_action(QObject *) {
    Interface &i = interface;
    if (setting("kPasscode") != i.Change_old_passcode->text()) {
        alert(tr("Error!"), tr("\"Old Passcode\" field doesn't match the previous passcode."));
        return;
    }
    storeSetting("kHasPasscode", QString());  // the passcode itself stays where it is
    i.Passcode_box->setContentView(i.new_passcode_view);
    emptyFields({i.Change_old_passcode, i.Change_new_passcode, i.Change_Retype_passcode});
    i.Change_passcode_show->setChecked(false);
}

// It is the last user's, and could be sent to a friend of the next one's.
void AppDelegate::forgetPickedText() {
    interface.QuickView_popover->hide();
    interface.QuickView_label->setString({});
    interface.Clipboard_saved_string_combobox->selectItemAtIndex(-1);
    showContactMode();
}

// What is on the screen or in the reach of an assistive program counts as much as what the menu offers.
void AppDelegate::hideListFromSight() {
    Interface &i = interface;
    i.notificationBanner->dismiss();
    const QWidget *shown = i.Quillery_Box->contentView();
    if (shown != i.List_View && shown != i.Contacts_view && shown != i.Contacts_View) return;
    i.Quillery_window->close();
    i.Quillery_Box->setContentView(i.Insert_passcode_view);
}
