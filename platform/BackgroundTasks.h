#pragma once

#include <QObject>
#include <chrono>
#include <functional>
#include <list>
#include <thread>

class UiThread;

// Background operations: one fresh thread each, all known until they have ended, so that quitting can wait
// for them.
//
// UI thread only; the operations themselves run on their threads and reach the interface through UiThread
// alone.
class BackgroundTasks : public QObject {
    Q_OBJECT

  public:
    explicit BackgroundTasks(UiThread &ui, QObject *parent = nullptr);

    // Waits for every operation still running, with the event loop turning, so that their hand-overs are
    // served.
    ~BackgroundTasks() override;

    // Starts `operation` on a new thread and returns at once.
    void performSelectorInBackground(std::function<void()> operation);

    // How many operations have not ended yet.
    int running() const { return static_cast<int>(threads_.size()); }

    // Turns the event loop until none is running.
    void waitForAll();

    // The same without the event loop, whose display is gone, and for no longer than the limit.
    void finishWithoutDisplay(std::chrono::seconds limit);

  Q_SIGNALS:
    // One operation has ended and its hand-overs are done.
    void ended();

  private:
    UiThread &ui_;
    std::list<std::thread> threads_;
};
