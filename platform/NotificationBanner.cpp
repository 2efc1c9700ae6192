#include "platform/NotificationBanner.h"

#include <QAccessible>
#include <QGridLayout>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QMouseEvent>
#include <QScreen>
#include <chrono>
#include <utility>

#include "platform/Text.h"
#include "platform/UiIds.h"
#include "platform/WrappedLabel.h"

namespace {
constexpr std::chrono::seconds kTime{6};  // as long as notification services show one
constexpr std::chrono::seconds kTimeForAClick{30};
constexpr int kTextWidth = 340;
constexpr int kMargin = 16;  // between it and the edges of the screen
constexpr qsizetype kMostNoteLines = 8;
constexpr qsizetype kMostNoteCharacters = 400;
constexpr int kIconSize = 32;
}  // namespace

NotificationBanner::NotificationBanner(QWidget *parent)
    : QFrame(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      icon_(new QLabel(this)),
      title_(new WrappedLabel(this)),
      text_(new WrappedLabel(this)) {
    setFrameShape(QFrame::StyledPanel);
    setAttribute(Qt::WA_ShowWithoutActivating);
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    for (QLabel *label : {title_, text_}) label->setFixedWidth(kTextWidth);
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setHorizontalSpacing(12);
    layout->addWidget(icon_, 0, 0, 2, 1, Qt::AlignTop);
    layout->addWidget(title_, 0, 1);
    layout->addWidget(text_, 1, 1);
    time_.setSingleShot(true);
    connect(&time_, &QTimer::timeout, this, &NotificationBanner::dismiss);
}

void NotificationBanner::present(const QString &title, const QString &text, std::function<void()> clicked) {
    icon_->setPixmap(QIcon(QStringLiteral(":/images/quillery.png"))
                         .pixmap(QSize(kIconSize, kIconSize), devicePixelRatio()));
    title_->setText(title);
    text_->setText(beginning(text, kMostNoteLines, kMostNoteCharacters));
    clicked_ = std::move(clicked);
    time_.setInterval(clicked_ ? kTimeForAClick : kTime);
    adjustSize();
    const QRect room = QGuiApplication::primaryScreen()->availableGeometry();
    move(room.right() + 1 - kMargin - width(), room.top() + kMargin);
    show();
    raise();
    time_.start();
    setAccessibleName(title);
    describe(*this, text_->text());
    QAccessibleEvent announcement(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&announcement);
}

void NotificationBanner::dismiss() {
    hide();
    title_->clear();
    text_->clear();
    setAccessibleName({});
    describe(*this, {});
    clicked_ = {};
}

void NotificationBanner::mouseReleaseEvent(QMouseEvent *event) {
    event->accept();
    if (event->button() != Qt::LeftButton || !rect().contains(event->position().toPoint())) return;
    const std::function<void()> clicked = std::exchange(clicked_, {});
    dismiss();
    if (clicked) clicked();
}
