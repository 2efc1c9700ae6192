#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QAccessible>
#include <QLabel>
#include <QLayout>
#include <set>

#include "platform/OutlineStyle.h"
#include "tests/app/ControllerTest.h"

namespace {

bool isControl(const QWidget &widget) {
    const bool isPartOfAnother = widget.objectName().startsWith(u"qt_") ||
                                 qobject_cast<const QAbstractScrollArea *>(widget.parentWidget());
    return !isPartOfAnother &&
           ((widget.focusPolicy() & Qt::TabFocus) || qobject_cast<const QAbstractButton *>(&widget));
}

// The names of the controls in `place` that have less room than their text needs.
QString cutOff(const QWidget &place) {
    QStringList names;
    for (const QWidget *widget : place.findChildren<QWidget *>()) {
        const auto *label = qobject_cast<const QLabel *>(widget);
        const bool hasText =
            (label && !label->text().isEmpty()) || qobject_cast<const QAbstractButton *>(widget);
        if (!hasText || !widget->isVisibleTo(&place)) continue;
        const QSize needed = label && label->wordWrap() ? QSize(widget->minimumSizeHint().width(),
                                                                label->heightForWidth(widget->width()))
                                                        : widget->sizeHint();
        if (widget->width() < needed.width() || widget->height() < needed.height())
            names << widget->objectName();
    }
    return names.join(' ');
}

class Accessibility : public ControllerTest {
  protected:
    Accessibility() { QApplication::setStyle(new OutlineStyle); }

    // Brings each place that a user can get to onto the screen, one after another.
    void visit(const std::function<void(QWidget &place)> &look) {
        for (QWidget *place :
             {i().List_View, i().Sign_up_view, i().Sign_in_view, i().Change_password_view,
              i().Add_contact_view, i().Contacts_view, i().Contacts_View, i().Preference_View,
              i().Insert_passcode_view, i().Instructions_view, i().Info_View, i().Intro_window.get(),
              i().Windowed_mode.get(), static_cast<QWidget *>(i().Intro_popover.get())}) {
            SCOPED_TRACE(place->objectName().toStdString());
            if (!place->isWindow()) i().Quillery_Box->setContentView(place);
            orderFront(*place->window());
            // Letters are measured anew once they are shown, and each layout passes that on with the next
            // turn.
            EXPECT_TRUE(waitFor([&] {
                QCoreApplication::processEvents();
                return place->window()->width() >= place->window()->layout()->totalMinimumSize().width();
            }));
            look(*place);
        }
    }
};

TEST_F(Accessibility, EveryControlHasANameAndIsReachedByTabVisibly) {
    qputenv("QUILLERY_UI_IDS", "1");
    start();
    for (QWidget *passcodeForm : {i().new_passcode_view, i().change_passcode_view}) {
        i().Passcode_box->setContentView(passcodeForm);
        visit([](QWidget &place) {
            std::set<const QWidget *> inTabOrder;
            QWidget *window = place.window();
            for (QWidget *w = window; inTabOrder.insert(w).second;) w = w->nextInFocusChain();
            int controls = 0;
            for (QWidget *widget : place.findChildren<QWidget *>()) {
                const QString id = widget->objectName();
                SCOPED_TRACE(id.toStdString());
                EXPECT_TRUE(id.isEmpty() || id.startsWith(u"qt_") ||
                            widget->accessibleDescription().startsWith("id=" + id));
                if (!isControl(*widget) || !widget->isVisibleTo(&place)) continue;
                ++controls;
                QAccessibleInterface *seen = QAccessible::queryAccessibleInterface(widget);
                EXPECT_FALSE(seen->text(QAccessible::Name).isEmpty());
                EXPECT_TRUE(inTabOrder.contains(widget) && (widget->focusPolicy() & Qt::TabFocus));
                if (!widget->isEnabled()) continue;
                QApplication::setActiveWindow(window);
                widget->setFocus(Qt::TabFocusReason);
                const QImage focused = widget->grab().toImage();
                EXPECT_TRUE(widget->hasFocus());
                widget->clearFocus();
                EXPECT_NE(widget->grab().toImage(), focused);
            }
            EXPECT_GT(controls, 0);
        });
    }
}

TEST_F(Accessibility, NothingIsCutOffInLargeLetters) {
    const QFont usual = QApplication::font();
    for (const double scale : {1.0, 1.5, 2.0}) {
        QFont font = usual;
        font.setPointSizeF(usual.pointSizeF() * scale);
        QApplication::setFont(font);
        start();
        visit([&](const QWidget &place) {
            EXPECT_TRUE(waitFor([&] { return cutOff(place).isEmpty(); }))
                << scale << ": " << cutOff(place).toStdString();
        });
        delegate.reset();
    }
    QApplication::setFont(usual);
}

}  // namespace
