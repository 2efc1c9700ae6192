#include "platform/Waiting.h"

#include <QEventLoop>
#include <QTimer>
#include <memory>
#include <thread>

#include "platform/UiThread.h"

Waiting::Waiting(UiThread &ui, QObject *parent, std::chrono::milliseconds patience)
    : QObject(parent), ui_(ui), patience_(patience) {}

void Waiting::runUntilDone(const QString &whatFor, const std::function<void(std::stop_token)> &work) {
    const std::stop_source stop = running_.emplace_back();
    if (isOver_) running_.back().request_stop();
    QEventLoop loop;
    bool saidSo = false;
    QTimer patience;
    patience.setSingleShot(true);
    connect(&patience, &QTimer::timeout, this, [&] {
        saidSo = true;
        Q_EMIT slow(whatFor);
    });
    patience.start(patience_);

    // The loop may be gone before the last hand-over is served.
    const auto waitingLoop = std::make_shared<QEventLoop *>(&loop);
    std::thread worker([this, &work, waitingLoop, token = stop.get_token()] {
        work(token);
        ui_.post([waitingLoop] {
            if (*waitingLoop) (*waitingLoop)->quit();
        });
    });
    loop.exec();
    wasCancelled_ = stop.stop_requested();
    running_.back().request_stop();  // for a loop that ended because the program does
    worker.join();
    *waitingLoop = nullptr;

    running_.pop_back();
    if (saidSo) Q_EMIT finished();
}

void Waiting::cancel() {
    if (!running_.empty()) running_.back().request_stop();
}

void Waiting::end() {
    isOver_ = true;
    for (std::stop_source &stop : running_) stop.request_stop();
}
