#include "platform/ScrollArea.h"

#include <QEvent>
#include <QScreen>
#include <QScrollBar>
#include <algorithm>

ScrollArea::ScrollArea(QWidget *parent) : QScrollArea(parent) {
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus);  // what is in it has the keyboard, and scrolls it into view
}

QSize ScrollArea::sizeHint() const {
    return widget() ? widget()->sizeHint().expandedTo(minimumSizeHint()) : QScrollArea::sizeHint();
}

QSize ScrollArea::minimumSizeHint() const {
    if (!widget()) return QScrollArea::minimumSizeHint();
    const QSize needed = widget()->minimumSizeHint();
    if (needed.height() <= mostHeight()) return needed;
    return {needed.width() + verticalScrollBar()->sizeHint().width(), mostHeight()};
}

bool ScrollArea::hasHeightForWidth() const {
    return widget() && widget()->hasHeightForWidth();
}

int ScrollArea::heightForWidth(int width) const {
    return widget() ? std::min(widget()->heightForWidth(width), mostHeight()) : -1;
}

bool ScrollArea::eventFilter(QObject *watched, QEvent *event) {
    if (watched == widget() && event->type() == QEvent::LayoutRequest) updateGeometry();
    return QScrollArea::eventFilter(watched, event);
}

int ScrollArea::mostHeight() const {
    constexpr int kAroundIt = 100;  // the window's frame and what else is in it
    return std::max(screen()->availableGeometry().height() - kAroundIt, 100);
}
