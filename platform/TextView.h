#pragma once

#include <QPlainTextEdit>
#include <QTimer>
#include <vector>

// A read-only view of one text of any size, scrollable. A large text comes in pieces while the event loop
// turns, so that showing it never holds up the interface; lines of more than kLongLine characters are folded
// for display, and copied as they are.
class TextView : public QPlainTextEdit {
    Q_OBJECT

  public:
    static constexpr qsizetype kLongLine = 20'000;
    static constexpr qsizetype kPiece = 32 * 1024;

    explicit TextView(QWidget *parent = nullptr);

    // Shows `text` in place of what was shown, from its beginning.
    void setString(const QString &text);

    // The height in pixels that shows all of the text to a view of that width, or `most` where that is less.
    int heightForText(int width, int most) const;

    // Whether all of the text is in the view.
    bool isComplete() const { return shown_ >= text_.size(); }

  Q_SIGNALS:
    void completed();

  protected:
    QMimeData *createMimeDataFromSelection() const override;

  private:
    void showNextPiece();
    qsizetype inText(int position) const;

    QString text_;
    qsizetype shown_ = 0;
    qsizetype lineLength_ = 0;
    std::vector<int> folds_;  // where the document has a line end that the text has not
    QTimer next_;
};
