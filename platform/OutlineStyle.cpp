#include "platform/OutlineStyle.h"

#include <QGroupBox>
#include <QPainter>
#include <QStyleOption>
#include <algorithm>
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
    const bool isDark = ColorScheme::isDark(option.palette);
    const bool hasFocus = option.state & QStyle::State_HasFocus;
    const QColor focus = option.palette.color(isDark ? QPalette::Link : QPalette::Highlight);
    switch (element) {
        case QStyle::PE_IndicatorCheckBox:
            // The toolkit marks the text of a box; those with a label beside them have none.
            if (hasFocus) return focus;
            if (isDark) return outline(option, kOfControl);
            return {};
        case QStyle::PE_Frame:  // of lists, which the toolkit does not mark
            if (hasFocus) return focus;
            if (isDark) return outline(option, kOfDivision);
            return {};
        case QStyle::PE_PanelLineEdit:
        case QStyle::PE_FrameGroupBox:
            if (isDark) return hasFocus ? focus : outline(option, kOfDivision);
            return {};
        default:
            return {};
    }
}

// The toolkit's frame of a group leaves out the title.
QRect frameOf(QStyle::PrimitiveElement element, const QStyleOption &option, const QStyle &style,
              const QWidget *widget) {
    QRect frame = option.rect;
    const auto *group = qobject_cast<const QGroupBox *>(widget);
    if (element == QStyle::PE_FrameGroupBox && group && !group->title().isEmpty()) {
        constexpr int kGap = 3;
        const int box = style.pixelMetric(QStyle::PM_IndicatorHeight, &option, widget);
        frame.setTop(frame.top() + std::max(box, option.fontMetrics.height()) + kGap);
    }
    return frame.adjusted(0, 0, -1, -1);
}

}  // namespace

void OutlineStyle::drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                                 const QWidget *widget) const {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    const std::optional<QColor> color = outlineOf(element, *option);
    if (!color) return;
    painter->save();
    painter->setPen(*color);
    painter->setBrush(Qt::NoBrush);
    const QRect frame = frameOf(element, *option, *this, widget);
    painter->drawRect(frame);
    const bool isBoxWithFocus = element == PE_IndicatorCheckBox && (option->state & State_HasFocus);
    if (isBoxWithFocus) painter->drawRect(frame.adjusted(1, 1, -1, -1));
    painter->restore();
}

QSize OutlineStyle::sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contents,
                                     const QWidget *widget) const {
    constexpr int kMoreRoom = 6;
    const QSize size = QProxyStyle::sizeFromContents(type, option, contents, widget);
    return type == CT_PushButton ? size + QSize(2 * kMoreRoom, 0) : size;
}

void OutlineStyle::drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                               const QWidget *widget) const {
    QProxyStyle::drawControl(element, option, painter, widget);
    const auto *item = qstyleoption_cast<const QStyleOptionMenuItem *>(option);
    if (element != CE_MenuItem || !item || item->menuItemType != QStyleOptionMenuItem::Separator) return;
    if (!ColorScheme::isDark(option->palette)) return;
    constexpr int kMargin = 5;
    const QRect &place = option->rect;
    painter->save();
    painter->setPen(outline(*option, kOfDivision));
    painter->drawLine(place.left() + kMargin, place.center().y(), place.right() - kMargin,
                      place.center().y());
    painter->restore();
}
