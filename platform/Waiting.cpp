#include "platform/Waiting.h"

#include <QEventLoop>
#include <QTimer>
#include <memory>
#include <thread>

#include "platform/UiThread.h"

Waiting::Waiting(UiThread &ui, QObject *parent) : QObject(parent), ui_(ui) {}

void Waiting::runUntilDone(const QString &whatFor, const std::function<void(std::stop_token)> &work) {
    const auto outer = current_;
    current_.emplace();
    QEventLoop loop;
    bool saidSo = false;
    QTimer patience;
    patience.setSingleShot(true);
    connect(&patience, &QTimer::timeout, this, [&] {
        saidSo = true;
        Q_EMIT slow(whatFor);
    });
    patience.start(kPatience);

    // The loop may be gone before the last hand-over is served.
    const auto waitingLoop = std::make_shared<QEventLoop *>(&loop);
    std::thread worker([this, &work, waitingLoop, token = current_->get_token()] {
        work(token);
        ui_.post([waitingLoop] {
            if (*waitingLoop) (*waitingLoop)->quit();
        });
    });
    loop.exec();
    wasCancelled_ = current_->stop_requested();
    current_->request_stop();  // for a loop that ended because the program does
    worker.join();
    *waitingLoop = nullptr;

    current_ = outer;
    if (saidSo) Q_EMIT finished();
}

void Waiting::cancel() {
    if (current_) current_->request_stop();
}
