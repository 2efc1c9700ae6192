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
    return (widget.focusPolicy() & Qt::TabFocus) || qobject_cast<const QAbstractButton *>(&widget);
}

class AccessibilityTest : public ControllerTest {
  protected:
    AccessibilityTest() {
        QApplication::setStyle(new OutlineStyle);
        setNotFirstUse();
    }

    // Each place that a user can get to: a name, and what shows it.
    std::vector<std::pair<const char *, QWidget *>> places() {
        Interface &i = delegate->interface;
        return {{"list", i.List_View},
                {"sign up", i.Sign_up_view},
                {"sign in", i.Sign_in_view},
                {"change password", i.Change_password_view},
                {"add a friend", i.Add_contact_view},
                {"pick a friend", i.Contacts_view},
                {"friends", i.Contacts_View},
                {"preferences", i.Preference_View},
                {"unlock", i.Insert_passcode_view},
                {"instructions", i.Instructions_view},
                {"information", i.Info_View},
                {"intro", i.Intro_window.get()},
                {"windowed mode", i.Windowed_mode.get()},
                {"links", i.Intro_popover.get()}};
    }
    // Brings it onto the screen.
    void show(QWidget *place) {
        Interface &i = delegate->interface;
        if (place->isWindow()) {
            orderFront(*place);
        } else {
            i.Quillery_Box->setContentView(place);
            orderFront(*i.Quillery_window);
        }
        // Letters are measured anew once they are shown, and each layout passes that on with the next turn.
        const auto isSettled = [place] {
            return place->window()->width() >= place->window()->layout()->totalMinimumSize().width();
        };
        EXPECT_TRUE(waitFor([&] {
            QCoreApplication::processEvents();
            return isSettled();
        }));
    }
};

TEST_F(AccessibilityTest, EveryControlHasANameAndIsReachedByTabVisibly) {
    qputenv("QUILLERY_UI_IDS", "1");
    start();
    for (const bool hasPasscode : {false, true}) {
        Interface &i = delegate->interface;
        i.Passcode_box->setContentView(hasPasscode ? i.change_passcode_view : i.new_passcode_view);
        for (const auto &[name, place] : places()) {
            SCOPED_TRACE(name);
            show(place);
            std::set<const QWidget *> inTabOrder;
            QWidget *window = place->window();
            for (QWidget *w = window->nextInFocusChain(); inTabOrder.insert(w).second;)
                w = w->nextInFocusChain();
            int controls = 0;
            for (QWidget *widget : place->findChildren<QWidget *>()) {
                const bool isPartOfAnother = widget->objectName().startsWith(u"qt_") ||
                                             qobject_cast<QAbstractScrollArea *>(widget->parentWidget());
                SCOPED_TRACE(widget->objectName().toStdString());
                const QString id = widget->objectName();
                EXPECT_TRUE(id.isEmpty() || id.startsWith(u"qt_") ||
                            widget->accessibleDescription().startsWith(QStringLiteral("id=") + id));
                if (!isControl(*widget) || !widget->isVisibleTo(place) || isPartOfAnother) continue;
                ++controls;
                QAccessibleInterface *seen = QAccessible::queryAccessibleInterface(widget);
                ASSERT_TRUE(seen);
                EXPECT_FALSE(seen->text(QAccessible::Name).isEmpty());
                EXPECT_TRUE(inTabOrder.contains(widget));
                EXPECT_TRUE(widget->focusPolicy() & Qt::TabFocus);
                if (!widget->isEnabled()) continue;
                QApplication::setActiveWindow(window);
                widget->setFocus(Qt::TabFocusReason);
                const QImage focused = widget->grab().toImage();
                EXPECT_TRUE(widget->hasFocus());
                widget->clearFocus();
                EXPECT_NE(widget->grab().toImage(), focused);
            }
            EXPECT_GT(controls, 0);
        }
    }
}

// The names of the controls in `place` that have less room than their text needs.
QString cutOff(const QWidget &place) {
    QStringList names;
    for (const QWidget *widget : place.findChildren<QWidget *>()) {
        const auto *label = qobject_cast<const QLabel *>(widget);
        const bool hasText =
            (label && !label->text().isEmpty()) || qobject_cast<const QAbstractButton *>(widget);
        if (!hasText || !widget->isVisibleTo(&place)) continue;
        const bool wraps = label && label->wordWrap();
        const QSize needed =
            wraps ? QSize(widget->minimumSizeHint().width(), label->heightForWidth(widget->width()))
                  : widget->sizeHint();
        if (widget->width() < needed.width() || widget->height() < needed.height())
            names << widget->objectName();
    }
    return names.join(u' ');
}

TEST_F(AccessibilityTest, NothingIsCutOffInLargeLetters) {
    const QFont usual = QApplication::font();
    for (const double scale : {1.0, 1.5, 2.0}) {
        QFont font = usual;
        font.setPointSizeF(usual.pointSizeF() * scale);
        QApplication::setFont(font);
        start();
        for (const auto &[name, place] : places()) {
            show(place);
            EXPECT_TRUE(waitFor([place = place] { return cutOff(*place).isEmpty(); }))
                << name << " at " << scale << ": " << cutOff(*place).toStdString();
        }
        delegate.reset();
    }
    QApplication::setFont(usual);
}

}  // namespace
