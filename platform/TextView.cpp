#include "platform/TextView.h"

#include <QScrollBar>
#include <QTextCursor>
#include <algorithm>
#include <cmath>

#include "platform/Text.h"

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
    showNextPiece();
    moveCursor(QTextCursor::Start);
    verticalScrollBar()->setValue(0);
    if (!isComplete()) next_.start();
}

int TextView::heightForText(int width, int most) const {
    constexpr qsizetype kMoreThanFits = 4000;
    if (text_.size() > kMoreThanFits) return most;
    const int margin = static_cast<int>(std::ceil(document()->documentMargin())) + frameWidth();
    const QRect room(0, 0, width - 2 * margin, most);
    const QRect taken =
        fontMetrics().boundingRect(room, Qt::TextWordWrap | Qt::TextWrapAnywhere | Qt::TextExpandTabs, text_,
                                   static_cast<int>(tabStopDistance()));
    return std::min(taken.height() + 2 * margin + 1, most);  // one that it only just fits in scrolls
}

void TextView::showNextPiece() {
    qsizetype end = std::min(shown_ + kPiece, text_.size());
    if (end < text_.size() && text_.at(end).isLowSurrogate()) --end;
    QString piece;
    piece.reserve(end - shown_ + (end - shown_) / kLongLine + 1);
    for (qsizetype i = shown_; i < end; ++i) {
        const QChar c = text_.at(i);
        lineLength_ = c == u'\n' ? 0 : lineLength_ + 1;
        piece += c;
        if (lineLength_ >= kLongLine && !c.isHighSurrogate()) {
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
