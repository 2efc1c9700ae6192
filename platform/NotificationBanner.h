#pragma once

#include <QFrame>
#include <QTimer>
#include <functional>

class QLabel;

// What the program says where no notification service does: a small window in the upper right corner of the
// screen, for a few seconds. It takes neither the focus nor a grab. UI thread only.
class NotificationBanner : public QFrame {
    Q_OBJECT

  public:
    explicit NotificationBanner(QWidget *parent = nullptr);

    // Shows the text, or the beginning of a long one, in place of the one before, and announces it to
    // assistive programs. A click takes it away and then calls `clicked`; with that given, it stays longer.
    void present(const QString &title, const QString &text, std::function<void()> clicked = {});

    // Takes away what is shown; nothing of the text stays behind.
    void dismiss();

  protected:
    void mouseReleaseEvent(QMouseEvent *event) override;

  private:
    QLabel *icon_;
    QLabel *title_;
    QLabel *text_;
    QTimer time_;
    std::function<void()> clicked_;
};
