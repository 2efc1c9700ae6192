#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <stop_token>

namespace fm {

/// Lets its users in one at a time, in the order in which they asked. To outlive its turns.
class TurnQueue {
  public:
    /// A place in the queue, taken when it is made and left when it is destroyed. Made by one thread, it may
    /// be used by another.
    class Turn {
      public:
        explicit Turn(TurnQueue &queue) : queue_(queue), ticket_(queue.enter()) {}
        ~Turn() { queue_.leave(ticket_); }
        Turn(const Turn &) = delete;
        Turn &operator=(const Turn &) = delete;

        /// Blocks until every earlier place has been left. False if `cancelled` was requested first.
        bool wait(const std::stop_token &cancelled = {}) const { return queue_.wait(ticket_, cancelled); }

      private:
        TurnQueue &queue_;
        const std::uint64_t ticket_;
    };

  private:
    std::uint64_t enter();
    bool wait(std::uint64_t ticket, const std::stop_token &cancelled);
    void leave(std::uint64_t ticket);

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::uint64_t> waiting_;  ///< the first one has the turn
    std::uint64_t nextTicket_ = 0;
};

}  // namespace fm
