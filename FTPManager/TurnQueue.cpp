#include "FTPManager/TurnQueue.h"

#include <deque>

namespace fm {

bool TurnQueue::wait(const std::stop_token &cancelled) {
    std::unique_lock lock(mutex_);
    const std::uint64_t ticket = nextTicket_++;
    waiting_.push_back(ticket);
    const bool first = changed_.wait(lock, cancelled, [this, ticket] { return waiting_.front() == ticket; });
    if (first && !cancelled.stop_requested()) return true;
    std::erase(waiting_, ticket);
    changed_.notify_all();
    return false;
}

void TurnQueue::leave() {
    const std::scoped_lock lock(mutex_);
    waiting_.pop_front();
    changed_.notify_all();
}

}  // namespace fm
