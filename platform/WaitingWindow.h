#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

// The small window that says what the program is waiting for, and offers to give up.
class WaitingWindow : public QWidget {
    Q_OBJECT

  public:
    explicit WaitingWindow(QWidget *parent = nullptr);

    // `what` is a sentence; `button` the title of the button. Escape presses it as well if nothing is lost by
    // giving up.
    void showFor(const QString &what, const QString &button, bool losesNothing);

  Q_SIGNALS:
    void cancelled();

  protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

  private:
    QLabel *what_;
    QPushButton *cancel_;
    bool losesNothing_ = true;
};
