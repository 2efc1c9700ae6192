#include "hotkey/Deliveries.h"

#include <utility>

namespace hotkey {

void Deliveries::post(std::function<void()> call) {
    const bool isTurnAskedFor = !calls_.empty();
    calls_.push_back(std::move(call));
    if (!isTurnAskedFor) askForTurn();
}

void Deliveries::askForTurn() {
    QMetaObject::invokeMethod(
        &context_, [this] { makeNext(); }, Qt::QueuedConnection);
}

void Deliveries::makeNext() {
    const std::function<void()> call = std::move(calls_.front());
    calls_.pop_front();
    // Asked for anew each time: GLib's event loop, when it runs inside another, leaves out what was queued
    // before.
    if (!calls_.empty()) askForTurn();
    call();  // may end this object
}

}  // namespace hotkey
