#pragma once

#include <QPointer>
#include <QWidget>

// A box that shows one content view at a time. The views belong to the interface, not to the box: one that
// leaves is hidden, goes back to the widget that it was in before, and can come again.
class Box : public QWidget {
    Q_OBJECT

  public:
    explicit Box(QWidget *parent = nullptr);

    // Makes `view` the content, or empties the box (null). The keyboard focus goes to the view's first
    // control, and so it does whenever the box is shown again.
    void setContentView(QWidget *view);
    QWidget *contentView() const { return view_; }

    // The least that shows all of the content, not what it would like.
    int heightForWidth(int width) const override;

  Q_SIGNALS:
    // The content is another one now.
    void contentViewChanged();

  protected:
    void showEvent(QShowEvent *event) override;

  private:
    void focusFirstControl();

    QWidget *view_ = nullptr;
    QPointer<QWidget> owner_;  // of the view, where it was before
};

// Makes a window large enough for all that its layout shows now, as far as the screen allows, and moves it up
// where it would reach below the screen; never makes it smaller.
void growToContent(QWidget &window);
