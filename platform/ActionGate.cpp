#include "platform/ActionGate.h"

#include <utility>

void ActionGate::enter(Action action) {
    enterProgram([this, action = std::move(action)] {
        if (!isClosed_) action();
    });
}

void ActionGate::enterProgram(Action action) {
    waiting_.push_back(std::move(action));
    if (busy_) return;
    busy_ = true;
    while (!waiting_.empty()) {
        const Action next = std::move(waiting_.front());
        waiting_.pop_front();
        next();
    }
    busy_ = false;
}
