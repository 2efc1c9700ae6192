#include "platform/BackgroundTasks.h"

#include <QCoreApplication>
#include <utility>

#include "platform/UiThread.h"

BackgroundTasks::BackgroundTasks(UiThread &ui, QObject *parent) : QObject(parent), ui_(ui) {}

BackgroundTasks::~BackgroundTasks() {
    waitForAll();
}

void BackgroundTasks::performSelectorInBackground(std::function<void()> operation) {
    const auto thread = threads_.emplace(threads_.end());
    *thread = std::thread([this, thread, operation = std::move(operation)] {
        operation();
        ui_.post([this, thread] {
            thread->join();
            threads_.erase(thread);
            Q_EMIT ended();
        });
    });
}

void BackgroundTasks::waitForAll() {
    // Not a QEventLoop: that returns at once while the program is quitting.
    while (!threads_.empty()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void BackgroundTasks::finishWithoutDisplay(std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!threads_.empty() && std::chrono::steady_clock::now() < end)
        ui_.runNext(std::chrono::milliseconds(100));
}
