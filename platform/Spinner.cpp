#include "platform/Spinner.h"

#include <QPainter>

namespace {
constexpr int kStrokes = 12;
constexpr int kMillisecondsPerStep = 80;  // about one turn a second
}  // namespace

Spinner::Spinner(QWidget *parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    timer_.setInterval(kMillisecondsPerStep);
    connect(&timer_, &QTimer::timeout, this, [this] {
        step_ = (step_ + 1) % kStrokes;
        update();
    });
}

void Spinner::startAnimation() {
    timer_.start();
}

void Spinner::stopAnimation() {
    timer_.stop();
    update();
}

void Spinner::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(QRectF(rect()).center());
    const double radius = qMin(width(), height()) / 2.0;
    QColor colour = palette().color(QPalette::Highlight);
    for (int i = 0; i < kStrokes; ++i) {
        const int age = (step_ - i + kStrokes) % kStrokes;
        colour.setAlphaF(isAnimating() ? static_cast<float>(1.0 - 0.85 * age / (kStrokes - 1)) : 0.3F);
        painter.setPen(QPen(colour, radius * 0.16, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -radius * 0.55), QPointF(0, -radius * 0.88));
        painter.rotate(360.0 / kStrokes);
    }
}
