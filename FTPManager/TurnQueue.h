#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <stop_token>

namespace fm {

/// Lets callers in one at a time, in the order in which they came.
class TurnQueue {
  public:
    /// Holds the turn until it is destroyed.
    class Turn {
      public:
        explicit Turn(TurnQueue &queue) : queue_(&queue) {}
        Turn(const Turn &) = delete;
        Turn &operator=(const Turn &) = delete;
        ~Turn() { queue_->leave(); }

      private:
        TurnQueue *queue_;
    };

    /// Waits for the turn. False if `cancelled` was requested first: the caller has no turn then. If true,
    /// the caller makes a Turn of it.
    bool wait(const std::stop_token &cancelled);

  private:
    void leave();

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::uint64_t> waiting_;  ///< the first one has the turn
    std::uint64_t nextTicket_ = 0;
};

}  // namespace fm
