#include "platform/Box.h"

#include <QVBoxLayout>

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
    if (!view_) return;
    owner_ = view_->parentWidget();
    layout()->addWidget(view_);
    view_->show();
    if (QWidget *first = firstControl(view_)) first->setFocus(Qt::OtherFocusReason);
}
