#pragma once

#include <QProxyStyle>

// The toolkit's style, which draws outlines darker than the ground: with some that can be seen in dark
// colours, too, and with check boxes and lists that show whether they have the focus.
class OutlineStyle : public QProxyStyle {
    Q_OBJECT

  public:
    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                       const QWidget *widget) const override;
    // With more room on either side of a button's title.
    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contents,
                           const QWidget *widget) const override;
    void drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                     const QWidget *widget) const override;
};
