#pragma once

#include <functional>

/// A thread for one work item.
class FMThread {
  public:
    /// Runs the item on a new thread and returns when it has finished. False, with a log line, if no thread
    /// could be started (the item has not run then) or if the item threw.
    static bool runInSeparateThread(const std::function<void()> &block);
};
