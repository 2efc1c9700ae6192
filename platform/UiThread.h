#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <type_traits>

// Hands work over to the thread that owns the interface.
//
// Made and destroyed on the UI thread; run() and post() may be called from any thread in between. The
// hand-over goes through one mutex, so whatever a caller wrote before is visible to the work, and the work's
// effects to the caller of run(). Work runs whenever the UI thread turns an event loop, nested ones included:
// keep it short, and open no window loop from it (an alert asked for by a background operation goes through
// the ActionGate).
class UiThread {
  public:
    UiThread();
    ~UiThread();
    UiThread(const UiThread &) = delete;
    UiThread &operator=(const UiThread &) = delete;

    // Whether the caller is on the UI thread.
    bool isCurrent() const;

    // Queues `work`; pieces run in the order in which they were posted. Returns at once.
    void post(std::function<void()> work);

    // Runs `work` on the UI thread, waits for it and returns its value. On the UI thread it runs in place.
    template <class Work>
    auto run(Work &&work) -> std::invoke_result_t<Work> {
        using Result = std::invoke_result_t<Work>;
        if (isCurrent()) return work();
        std::packaged_task<Result()> task([&work] { return work(); });
        auto result = task.get_future();
        post([&task] { task(); });
        return result.get();
    }

    // Runs the next piece if one comes within the time, without an event loop: for a program whose display is
    // gone. On the UI thread.
    void runNext(std::chrono::milliseconds within);

  private:
    struct Queue;
    std::unique_ptr<Queue> queue_;
};
