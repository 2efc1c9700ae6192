#pragma once

#include <QScrollArea>

// A scroll area without a frame that is as large as its widget needs to be, and scrolls only where the screen
// has not the room.
class ScrollArea : public QScrollArea {
    Q_OBJECT

  public:
    explicit ScrollArea(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;

  protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

  private:
    int mostHeight() const;
};
