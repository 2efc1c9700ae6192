#include "platform/TextView.h"

#include <QMimeData>
#include <QScrollBar>
#include <QTextCursor>
#include <algorithm>
#include <cmath>

#include "platform/Text.h"
#include "platform/WrappedLabel.h"

TextView::TextView(QWidget *parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setTabChangesFocus(true);
    connect(&next_, &QTimer::timeout, this, &TextView::showNextPiece);
}

void TextView::setString(const QString &text) {
    next_.stop();
    clear();
    text_ = text;
    QTextOption option = document()->defaultTextOption();
    option.setAlignment(readingSide(text));
    document()->setDefaultTextOption(option);
    shown_ = 0;
    lineLength_ = 0;
    folds_.clear();
    showNextPiece();
    moveCursor(QTextCursor::Start);
    verticalScrollBar()->setValue(0);
    if (!isComplete()) next_.start();
}

int TextView::heightForText(int width, int most) const {
    constexpr qsizetype kMoreThanFits = 4000;
    if (text_.size() > kMoreThanFits) return most;
    const int margin = static_cast<int>(std::ceil(document()->documentMargin())) + frameWidth();
    const int height = wrappedSize(text_, font(), width - 2 * margin, tabStopDistance()).height();
    return std::min(height + 2 * margin + 1, most);  // one that it only just fits in scrolls
}

// Where in the text a position of the document is.
qsizetype TextView::inText(int position) const {
    return position - (std::ranges::lower_bound(folds_, position) - folds_.begin());
}

QMimeData *TextView::createMimeDataFromSelection() const {
    const qsizetype start = inText(textCursor().selectionStart());
    auto *copied = new QMimeData;
    copied->setText(text_.mid(start, inText(textCursor().selectionEnd()) - start));
    return copied;
}

void TextView::showNextPiece() {
    const int start = document()->characterCount() - 1;
    qsizetype end = std::min(shown_ + kPiece, text_.size());
    if (end < text_.size() && text_.at(end).isLowSurrogate()) --end;
    QString piece;
    piece.reserve(end - shown_ + (end - shown_) / kLongLine + 1);
    for (qsizetype i = shown_; i < end; ++i) {
        const QChar c = text_.at(i);
        lineLength_ = c == u'\n' ? 0 : lineLength_ + 1;
        piece += c;
        if (lineLength_ >= kLongLine && !c.isHighSurrogate()) {
            folds_.push_back(start + static_cast<int>(piece.size()));
            piece += u'\n';
            lineLength_ = 0;
        }
    }
    shown_ = end;
    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(piece);
    if (isComplete()) {
        next_.stop();
        Q_EMIT completed();
    }
}
