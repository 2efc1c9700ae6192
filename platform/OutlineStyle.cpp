#include "platform/OutlineStyle.h"

#include <QPainter>
#include <QStyleOption>
#include <optional>

#include "platform/ColorScheme.h"

namespace {

// Between the ground and the text.
QColor outline(const QStyleOption &option, double ofText) {
    const QColor ground = option.palette.color(QPalette::Window);
    const QColor text = option.palette.color(QPalette::WindowText);
    const auto between = [ofText](int a, int b) { return static_cast<int>(a + (b - a) * ofText); };
    return {between(ground.red(), text.red()), between(ground.green(), text.green()),
            between(ground.blue(), text.blue())};
}

constexpr double kOfControl = 0.45;
constexpr double kOfDivision = 0.2;

// The colour that an element's outline is drawn in, if it is to have another than the toolkit's.
std::optional<QColor> outlineOf(QStyle::PrimitiveElement element, const QStyleOption &option) {
    if (!ColorScheme::isDark(option.palette)) return {};
    switch (element) {
        case QStyle::PE_IndicatorCheckBox:
            return outline(option, kOfControl);
        case QStyle::PE_PanelLineEdit:
            if (option.state & QStyle::State_HasFocus) return option.palette.color(QPalette::Link);
            return outline(option, kOfDivision);
        case QStyle::PE_FrameGroupBox:
        case QStyle::PE_Frame:
            return outline(option, kOfDivision);
        default:
            return {};
    }
}

}  // namespace

void OutlineStyle::drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                                 const QWidget *widget) const {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    const std::optional<QColor> color = outlineOf(element, *option);
    if (!color) return;
    painter->setPen(*color);
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
}

void OutlineStyle::drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                               const QWidget *widget) const {
    QProxyStyle::drawControl(element, option, painter, widget);
    const auto *item = qstyleoption_cast<const QStyleOptionMenuItem *>(option);
    if (element != CE_MenuItem || !item || item->menuItemType != QStyleOptionMenuItem::Separator) return;
    if (!ColorScheme::isDark(option->palette)) return;
    constexpr int kMargin = 5;
    const QRect &place = option->rect;
    painter->setPen(outline(*option, kOfDivision));
    painter->drawLine(place.left() + kMargin, place.center().y(), place.right() - kMargin,
                      place.center().y());
}
