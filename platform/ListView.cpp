#include "platform/ListView.h"

#include <QPainter>

void ListView::setPlaceholder(const QString &text) {
    placeholder_ = text;
    reset();
}

void ListView::reset() {
    QListView::reset();
    setAccessibleDescription(isBare() ? placeholder_ : QString());
}

void ListView::paintEvent(QPaintEvent *event) {
    QListView::paintEvent(event);
    if (!isBare()) return;
    constexpr int kMargin = 12;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(viewport()->rect().adjusted(kMargin, kMargin, -kMargin, -kMargin),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, placeholder_);
}

bool ListView::isBare() const {
    return !model() || model()->rowCount() == 0;
}
