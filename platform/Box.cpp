#include "platform/Box.h"

#include <QScreen>
#include <QShowEvent>
#include <QVBoxLayout>
#include <algorithm>

#include "platform/ScrollArea.h"

namespace {

// The first control of `view` in tab order that takes the keyboard; it may be the view itself.
QWidget *firstControl(QWidget *view) {
    if (view->isEnabled() && (view->focusPolicy() & Qt::TabFocus)) return view;
    for (QWidget *w = view->nextInFocusChain(); w != view; w = w->nextInFocusChain()) {
        if (view->isAncestorOf(w) && w->isEnabledTo(view) && w->isVisibleTo(view) &&
            (w->focusPolicy() & Qt::TabFocus)) {
            return w;
        }
    }
    return nullptr;
}

}  // namespace

Box::Box(QWidget *parent) : QWidget(parent) {
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
}

void Box::setContentView(QWidget *view) {
    if (view == view_) return;
    if (view_) {
        view_->hide();
        layout()->removeWidget(view_);
        // Not only out of sight: nobody is to read here what a lock has taken away.
        if (owner_ && owner_ != this) view_->setParent(owner_);
    }
    view_ = view;
    Q_EMIT contentViewChanged();
    if (!view_) return;
    owner_ = view_->parentWidget();
    layout()->addWidget(view_);
    view_->show();
    focusFirstControl();
    if (window()->isVisible()) growToContent(*window());
}

int Box::heightForWidth(int width) const {
    return layout()->totalMinimumHeightForWidth(width);
}

void Box::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    if (!event->spontaneous()) focusFirstControl();
}

void Box::focusFirstControl() {
    QWidget *first = view_ ? firstControl(view_) : nullptr;
    if (first) first->setFocus(Qt::TabFocusReason);  // which selects what a field holds
}

void growToContent(QWidget &window) {
    QLayout *layout = window.layout();
    if (!layout) return;
    // What lies deeper asks for its room only with the next turn of the event loop.
    const QList<QWidget *> inner = window.findChildren<QWidget *>();
    for (auto widget = inner.rbegin(); widget != inner.rend(); ++widget) {
        if ((*widget)->layout()) (*widget)->layout()->activate();
        if (qobject_cast<ScrollArea *>(*widget)) (*widget)->updateGeometry();
    }
    layout->activate();
    const QRect room = window.screen()->availableGeometry();
    const int frame = window.frameGeometry().height() - window.height();
    const int width = std::min(std::max(window.width(), layout->totalMinimumSize().width()), room.width());
    // Lines that wrap need more height in less width.
    const int needed = std::max(layout->totalMinimumSize().height(),
                                layout->hasHeightForWidth() ? layout->totalHeightForWidth(width) : 0);
    window.resize(width, std::min(std::max(window.height(), needed), room.height() - frame));
    const int below = window.y() + frame + window.height() - 1 - room.bottom();
    if (below > 0) window.move(window.x(), std::max(window.y() - below, room.top()));
}
