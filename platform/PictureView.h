#pragma once

#include <QLabel>

// A label that shows a picture of the resources, sharp at the screen's scale: that in "images/dark" where the
// palette is dark, now and when it changes. UI thread only.
class PictureView : public QLabel {
    Q_OBJECT

  public:
    using QLabel::QLabel;

    // The name of a file in "images" and in "images/dark", "Intro.png"; empty for none.
    void setImage(const QString &name);

  protected:
    void changeEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

  private:
    QString name_;
    double ratio_ = 1;  // the screen's for which it was made
};
