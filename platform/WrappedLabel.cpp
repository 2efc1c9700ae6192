#include "platform/WrappedLabel.h"

#include <QPainter>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "platform/Text.h"

namespace {

constexpr int kUsualWidth = 60;  // of a line, in average characters
constexpr int kLeastWidth = 44;

// Lays the text out in lines of that width; what they take.
QSizeF layOut(QTextLayout &layout, qreal width, qreal tabStop) {
    QTextOption option = layout.textOption();
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    if (tabStop > 0) option.setTabStopDistance(tabStop);
    layout.setTextOption(option);
    QSizeF taken;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition({0, taken.height()});
        taken = {std::max(taken.width(), line.naturalTextWidth()), taken.height() + line.height()};
    }
    layout.endLayout();
    return taken;
}

QString withLineSeparators(QString text) {
    return text.replace(u'\n', QChar::LineSeparator);
}

}  // namespace

QSize wrappedSize(const QString &text, const QFont &font, int width, qreal tabStop) {
    QTextLayout layout(withLineSeparators(text), font);
    const QSizeF taken = layOut(layout, width, tabStop);
    return {static_cast<int>(std::ceil(taken.width())), static_cast<int>(std::ceil(taken.height()))};
}

WrappedLabel::WrappedLabel(QWidget *parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrappedLabel::heightForWidth(int width) const {
    return wrappedSize(text(), font(), width).height();
}

QSize WrappedLabel::sizeHint() const {
    return wrappedSize(text(), font(), fontMetrics().averageCharWidth() * kUsualWidth);
}

QSize WrappedLabel::minimumSizeHint() const {
    const int width = std::min(fontMetrics().averageCharWidth() * kLeastWidth, sizeHint().width());
    return {width, fontMetrics().height()};
}

void WrappedLabel::paintEvent(QPaintEvent *) {
    QTextLayout layout(withLineSeparators(text()), font());
    QTextOption option;
    option.setAlignment(readingSide(text()));
    layout.setTextOption(option);
    const QSizeF taken = layOut(layout, width(), 0);
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    layout.draw(&painter, {0, std::max(0.0, (height() - taken.height()) / 2)});
}
