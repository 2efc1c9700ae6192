#include "platform/Popover.h"

#include <QApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScreen>
#include <algorithm>
#include <vector>

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
    const QPoint place = sender ? placeBeside(*sender, edge, room) : room.center() - rect().center();
    move(inside(room, place));
    sender_ = sender;
    show();
    raise();
    qApp->removeEventFilter(this);
    qApp->installEventFilter(this);
}

QPoint Popover::placeBeside(const QWidget &control, Edge edge, const QRect &room) const {
    const QRect at(control.mapToGlobal(QPoint(0, 0)), control.size());
    const QRect window = control.window()->frameGeometry();
    const QPoint above(at.left(), at.top() - kGap - height());
    const QPoint aboveTitle(at.left(), window.top() - kGap - height());
    const QPoint below(at.left(), at.bottom() + kGap);
    const QPoint right(at.right() + kGap, at.top());
    const QPoint left(at.left() - kGap - width(), at.top());
    const QPoint rightOfWindow(window.right() + kGap, at.top());
    const QPoint leftOfWindow(window.left() - kGap - width(), at.top());
    std::vector<QPoint> places;
    switch (edge) {
        case Edge::kMaxY:
            places = {aboveTitle, rightOfWindow, leftOfWindow, above, below};
            break;
        case Edge::kMinY:
            places = {below, aboveTitle, rightOfWindow, leftOfWindow, above};
            break;
        case Edge::kMaxX:
            places = {right, left, below, above};
            break;
        case Edge::kMinX:
            places = {left, right, below, above};
            break;
    }
    for (QPoint &place : places) place = inside(room, place);
    const auto fits = [&](const QPoint &place) { return !QRect(place, size()).intersects(at); };
    const auto place = std::find_if(places.begin(), places.end(), fits);
    return place == places.end() ? places.front() : *place;
}

QPoint Popover::inside(const QRect &room, const QPoint &place) const {
    return {std::clamp(place.x(), room.left(), std::max(room.left(), room.right() - width() + 1)),
            std::clamp(place.y(), room.top(), std::max(room.top(), room.bottom() - height() + 1))};
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
