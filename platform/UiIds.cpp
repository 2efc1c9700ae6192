#include "platform/UiIds.h"

#include <QWidget>

namespace {

// Empty where none is wanted.
QString idOf(const QWidget &widget) {
    const QString name = widget.objectName();
    const bool isWanted = qEnvironmentVariable("QUILLERY_UI_IDS") == u"1";
    return isWanted && !name.isEmpty() && !name.startsWith(u"qt_") ? QStringLiteral("id=") + name : QString();
}

void apply(QWidget &widget) {
    if (!idOf(widget).isEmpty()) describe(widget, {});
}

}  // namespace

void applyUiIds(QObject &root) {
    if (auto *widget = qobject_cast<QWidget *>(&root)) apply(*widget);
    for (QWidget *widget : root.findChildren<QWidget *>()) apply(*widget);
}

void describe(QWidget &widget, const QString &description) {
    const QString whole = (idOf(widget) + u' ' + description).trimmed();
    if (widget.accessibleDescription() != whole) widget.setAccessibleDescription(whole);
}
