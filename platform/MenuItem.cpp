#include "platform/MenuItem.h"

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
    item_.setIcon(QIcon(QStringLiteral(":/images/") + name));
}

void MenuItem::update() {
    item_.setEnabled(hasAction() || item_.menu());
}
