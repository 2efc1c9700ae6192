#pragma once

#include <QTimer>
#include <QWidget>

// An indeterminate progress indicator: a turning ring of strokes. It turns as long as the event loop does.
class Spinner : public QWidget {
    Q_OBJECT

  public:
    explicit Spinner(QWidget *parent = nullptr);

    // Asks for the animation to be independent of the main thread's work. Here waits turn the event loop, so
    // the spinner keeps turning either way.
    void setUsesThreadedAnimation(bool) {}
    void startAnimation();
    void stopAnimation();
    bool isAnimating() const { return timer_.isActive(); }

    QSize sizeHint() const override { return {48, 48}; }

  protected:
    void paintEvent(QPaintEvent *event) override;

  private:
    QTimer timer_;
    int step_ = 0;
};
