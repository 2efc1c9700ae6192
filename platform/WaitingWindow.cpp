#include "platform/WaitingWindow.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

WaitingWindow::WaitingWindow(QWidget *parent) : QWidget(parent, Qt::Dialog | Qt::WindowStaysOnTopHint) {
    setObjectName(QStringLiteral("Waiting_window"));
    setWindowTitle(tr("Quillery is waiting"));
    what_ = new QLabel(this);
    what_->setWordWrap(true);
    what_->setMinimumWidth(320);
    what_->setObjectName(QStringLiteral("Waiting_label"));
    auto *progress = new QProgressBar(this);
    progress->setRange(0, 0);
    progress->setAccessibleName(tr("Waiting"));
    cancel_ = new QPushButton(this);
    cancel_->setObjectName(QStringLiteral("Waiting_cancel"));
    cancel_->setAutoDefault(true);
    connect(cancel_, &QPushButton::clicked, this, &WaitingWindow::cancelled);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(12);
    layout->addWidget(what_);
    layout->addWidget(progress);
    layout->addWidget(cancel_, 0, Qt::AlignRight);
}

void WaitingWindow::showFor(const QString &what, const QString &button, bool losesNothing) {
    losesNothing_ = losesNothing;
    what_->setText(what);
    cancel_->setText(button);
    adjustSize();
    show();
    raise();
    activateWindow();
}

void WaitingWindow::keyPressEvent(QKeyEvent *event) {
    if (event->key() == Qt::Key_Escape && losesNothing_) {
        cancel_->click();
    } else {
        QWidget::keyPressEvent(event);
    }
}

void WaitingWindow::closeEvent(QCloseEvent *event) {
    event->ignore();  // closing it is giving up; the window goes when the wait is over
    Q_EMIT cancelled();
}
