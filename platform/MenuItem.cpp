#include "platform/MenuItem.h"

#include <QFileInfo>
#include <QMenu>
#include <utility>

#include "platform/ActionGate.h"

MenuItem::MenuItem(QAction &item, ActionGate &gate) : item_(item) {
    QObject::connect(&item_, &QAction::triggered, &item_, [this, &gate] {
        gate.enter([this] {
            if (const auto action = action_) action();
        });
    });
    update();
}

void MenuItem::setAction(std::function<void()> action) {
    action_ = std::move(action);
    update();
}

void MenuItem::setSubmenu(QMenu *submenu) {
    item_.setMenu(submenu);
    update();
}

void MenuItem::setImage(const QString &name) {
    QIcon icon(QStringLiteral(":/images/") + name);
    // The sizes of menus have drawings of their own: a picture made smaller would be blurred.
    for (const int size : {16, 22, 24, 48}) {
        icon.addFile(QStringLiteral(":/images/%1-%2.png").arg(QFileInfo(name).baseName()).arg(size));
    }
    item_.setIcon(icon);
}

void MenuItem::update() {
    item_.setEnabled(hasAction() || item_.menu());
}
