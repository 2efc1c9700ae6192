#include "platform/Alerts.h"

#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>

#include "platform/Text.h"
#include "platform/WrappedLabel.h"

namespace {

// What fits on a screen. A longer message is shown in part, and whole behind "Show Details…".
constexpr qsizetype kMostAlertCharacters = 600;
constexpr qsizetype kMostAlertLines = 12;
constexpr qsizetype kMostDetailCharacters = 200'000;

QMessageBox::Icon iconFor(const QString &title, qsizetype buttons) {
    if (buttons > 1) return QMessageBox::Question;
    return title.startsWith(u"Success") || title == u"Alert!" ? QMessageBox::Information
                                                              : QMessageBox::Warning;
}

// In a label that breaks long words, in place of the box's own.
void showWrapped(QMessageBox &box, const QString &text) {
    auto *own = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_label"));
    auto *label = new WrappedLabel(&box);
    label->setText(text);
    delete box.layout()->replaceWidget(own, label);
    own->hide();
}

}  // namespace

int MessageBoxAlerts::run(const QString &title, const QString &message, const QStringList &buttons,
                          int defaultButton) {
    QMessageBox box;
    box.setWindowTitle(title);
    box.setIcon(iconFor(title, buttons.size()));
    const QString shown = beginning(message, kMostAlertLines, kMostAlertCharacters);
    showWrapped(box, shown);
    if (shown.size() < message.size()) box.setDetailedText(shortened(message, kMostDetailCharacters));
    box.setWindowFlag(Qt::WindowStaysOnTopHint);  // the panel is kept on top as well
    QList<QPushButton *> made;
    for (qsizetype i = 0; i < buttons.size(); ++i) {
        const bool last = i == buttons.size() - 1;
        made << box.addButton(buttons[i], last && i > 0 ? QMessageBox::RejectRole : QMessageBox::AcceptRole);
    }
    box.setDefaultButton(made[defaultButton]);
    box.setEscapeButton(made.last());
    box.exec();
    const qsizetype pressed = made.indexOf(qobject_cast<QPushButton *>(box.clickedButton()));
    return static_cast<int>(pressed < 0 ? buttons.size() - 1 : pressed);
}
