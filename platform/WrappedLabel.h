#pragma once

#include <QLabel>

// A label of plain text that breaks its lines where they end, inside a word that is too long for a line as
// well; the text stays as it is. UI thread only.
class WrappedLabel : public QLabel {
    Q_OBJECT

  public:
    explicit WrappedLabel(QWidget *parent = nullptr);

    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

  protected:
    void paintEvent(QPaintEvent *event) override;
};

// What the text takes in lines of that width, in pixels, broken as the label breaks it.
QSize wrappedSize(const QString &text, const QFont &font, int width, qreal tabStop = 0);
