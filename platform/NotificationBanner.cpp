#include "platform/NotificationBanner.h"

#include <QGridLayout>
#include <QIcon>
#include <QLabel>
#include <QMouseEvent>
#include <chrono>
#include <utility>

#include "platform/Text.h"

namespace {
constexpr std::chrono::seconds kTime{6};  // as long as notification services show one
constexpr int kTextWidth = 340;
constexpr int kIconSize = 32;
}  // namespace

NotificationBanner::NotificationBanner(QWidget *parent)
    : Popover(parent), icon_(new QLabel(this)), title_(new QLabel(this)), text_(new QLabel(this)) {
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    for (QLabel *label : {title_, text_}) {
        label->setTextFormat(Qt::PlainText);  // a saved text may look like markup
        label->setWordWrap(true);
        label->setFixedWidth(kTextWidth);
    }
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setHorizontalSpacing(12);
    layout->addWidget(icon_, 0, 0, 2, 1, Qt::AlignTop);
    layout->addWidget(title_, 0, 1);
    layout->addWidget(text_, 1, 1);
    time_.setSingleShot(true);
    time_.setInterval(kTime);
    connect(&time_, &QTimer::timeout, this, &NotificationBanner::dismiss);
}

void NotificationBanner::present(const QString &title, const QString &text, std::function<void()> clicked) {
    icon_->setPixmap(QIcon(QStringLiteral(":/images/quillery.png"))
                         .pixmap(QSize(kIconSize, kIconSize), devicePixelRatio()));
    title_->setText(title);
    text_->setText(breakable(text));
    clicked_ = std::move(clicked);
    showInCorner();
    time_.start();
}

void NotificationBanner::dismiss() {
    hide();
    title_->clear();
    text_->clear();
    clicked_ = {};
}

void NotificationBanner::mouseReleaseEvent(QMouseEvent *event) {
    event->accept();
    const std::function<void()> clicked = std::exchange(clicked_, {});
    dismiss();
    if (clicked) clicked();
}
