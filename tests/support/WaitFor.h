#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>

// Turns the event loop until `condition` holds; false if that takes longer than `milliseconds`.
template <class Condition>
bool waitFor(Condition condition, int milliseconds = 10'000) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > milliseconds) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}
