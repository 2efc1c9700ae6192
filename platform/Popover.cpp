#include "platform/Popover.h"

#include <QApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScreen>
#include <algorithm>

namespace {
constexpr int kGap = 6;  // pixels between the control and its popover
}

Popover::Popover(QWidget *parent)
    : QFrame(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint) {
    setFrameShape(QFrame::StyledPanel);
    setAttribute(Qt::WA_ShowWithoutActivating);
}

void Popover::showRelativeTo(QWidget *sender, Edge edge) {
    const QScreen *screen = sender ? sender->screen() : QGuiApplication::primaryScreen();
    const QRect room = screen->availableGeometry();
    adjustSize();
    QPoint place = room.center() - rect().center();
    if (sender) {
        const QRect at(sender->mapToGlobal(QPoint(0, 0)), sender->size());
        const int below = at.bottom() + kGap;
        // Above the window's title bar as well, where there is room.
        const int aboveTitle = sender->window()->frameGeometry().top() - kGap - height();
        const int above = aboveTitle >= room.top() ? aboveTitle : at.top() - kGap - height();
        const int right = at.right() + kGap;
        const int left = at.left() - kGap - width();
        const bool fitsAbove = above >= room.top();
        const bool fitsBelow = below + height() <= room.bottom();
        const bool fitsRight = right + width() <= room.right();
        const bool fitsLeft = left >= room.left();
        switch (edge) {
            case Edge::kMaxY:
                place = {at.left(), fitsAbove || !fitsBelow ? above : below};
                break;
            case Edge::kMinY:
                place = {at.left(), fitsBelow || !fitsAbove ? below : above};
                break;
            case Edge::kMaxX:
                place = {fitsRight || !fitsLeft ? right : left, at.top()};
                break;
            case Edge::kMinX:
                place = {fitsLeft || !fitsRight ? left : right, at.top()};
                break;
        }
    }
    place.setX(std::clamp(place.x(), room.left(), std::max(room.left(), room.right() - width())));
    place.setY(std::clamp(place.y(), room.top(), std::max(room.top(), room.bottom() - height())));
    move(place);
    sender_ = sender;
    show();
    raise();
    qApp->removeEventFilter(this);
    qApp->installEventFilter(this);
}

bool Popover::eventFilter(QObject *watched, QEvent *event) {
    if (!isVisible()) {
        qApp->removeEventFilter(this);
        return false;
    }
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        hide();
        return true;
    }
    if (event->type() == QEvent::MouseButtonPress && watched->isWidgetType()) {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (!geometry().contains(mouse->globalPosition().toPoint())) hide();
    }
    // Which window is the active one now is known only after this event.
    if (event->type() == QEvent::WindowDeactivate)
        QMetaObject::invokeMethod(this, &Popover::closeIfLeft, Qt::QueuedConnection);
    return false;
}

void Popover::closeIfLeft() {
    if (!sender_) return;  // it belongs to no window that could be left
    const QWidget *active = QApplication::activeWindow();
    if (active != this && active != sender_->window()) hide();
}
