#include "platform/ListView.h"
#include "platform/UiIds.h"

#include <QPainter>

void ListView::setPlaceholder(const QString &text) {
    placeholder_ = text;
    viewport()->update();
}

void ListView::paintEvent(QPaintEvent *event) {
    QListView::paintEvent(event);
    const QString said = isBare() ? placeholder_ : QString();
    describe(*this, said);
    if (said.isEmpty()) return;
    constexpr int kMargin = 12;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(viewport()->rect().adjusted(kMargin, kMargin, -kMargin, -kMargin),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, said);
}

bool ListView::isBare() const {
    return !model() || model()->rowCount() == 0;
}
