#include "platform/PictureView.h"

#include <QEvent>
#include <QIcon>
#include <QImageReader>

#include "platform/ColorScheme.h"

void PictureView::setImage(const QString &name) {
    name_ = name;
    ratio_ = devicePixelRatioF();
    if (name.isEmpty()) return clear();
    const QString folder = ColorScheme::isDark(palette()) ? QStringLiteral("dark/") : QString();
    const QString file = QStringLiteral(":/images/") + folder + name;
    setPixmap(QIcon(file).pixmap(QImageReader(file).size(), ratio_));
}

void PictureView::changeEvent(QEvent *event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) setImage(name_);
}

void PictureView::paintEvent(QPaintEvent *event) {
    if (ratio_ != devicePixelRatioF()) setImage(name_);  // its window has come to another screen
    QLabel::paintEvent(event);
}
