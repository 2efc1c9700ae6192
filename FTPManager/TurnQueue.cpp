#include "FTPManager/TurnQueue.h"

namespace fm {

std::uint64_t TurnQueue::enter() {
    const std::scoped_lock lock(mutex_);
    waiting_.push_back(nextTicket_);
    return nextTicket_++;
}

bool TurnQueue::wait(std::uint64_t ticket, const std::stop_token &cancelled) {
    std::unique_lock lock(mutex_);
    return changed_.wait(lock, cancelled, [this, ticket] { return waiting_.front() == ticket; }) &&
           !cancelled.stop_requested();
}

void TurnQueue::leave(std::uint64_t ticket) {
    const std::scoped_lock lock(mutex_);
    std::erase(waiting_, ticket);
    changed_.notify_all();
}

}  // namespace fm
