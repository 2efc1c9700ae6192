#include "platform/UiIds.h"

#include <QWidget>

namespace {

void apply(QWidget &widget) {
    const QString name = widget.objectName();
    if (!name.isEmpty() && !name.startsWith(u"qt_"))
        widget.setAccessibleDescription(QStringLiteral("id=") + name);
}

}  // namespace

void applyUiIds(QObject &root) {
    if (qEnvironmentVariable("QUILLERY_UI_IDS") != u"1") return;
    if (auto *widget = qobject_cast<QWidget *>(&root)) apply(*widget);
    for (QWidget *widget : root.findChildren<QWidget *>()) apply(*widget);
}
