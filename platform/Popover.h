#pragma once

#include <QFrame>
#include <QPointer>

// A small frameless window that belongs to a control and stands at one of its edges. Escape, a click
// elsewhere or another window's coming to the front closes it. It takes neither the keyboard focus nor any
// grab, so that the list below it stays usable and global hot keys work while it is up.
class Popover : public QFrame {
    Q_OBJECT

  public:
    // The edge of the sender at which a popover stands.
    enum class Edge { kMinX = 0, kMinY = 1, kMaxX = 2, kMaxY = 3 };

    explicit Popover(QWidget *parent = nullptr);

    // Shows the popover at `edge` of `sender` (kMaxY is the top edge) or, where it would cover the sender, at
    // another one; it does cover it where no edge has room. With no sender it stands in the middle of the
    // screen.
    void showRelativeTo(QWidget *sender, Edge edge);

  protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

  private:
    QPoint placeBeside(const QWidget &control, Edge edge, const QRect &room) const;
    QPoint inside(const QRect &room, const QPoint &place) const;
    void closeIfLeft();

    QPointer<QWidget> sender_;
};
