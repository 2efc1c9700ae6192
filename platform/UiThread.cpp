#include "platform/UiThread.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

// The wake-up is an eventfd that counts the waiting pieces, and each activation takes exactly one: a piece
// that turns a nested loop leaves the others ready for that loop. No object of Qt's crosses threads.
struct UiThread::Queue {
    std::thread::id owner = std::this_thread::get_id();
    int wakeUp = eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC | EFD_NONBLOCK);
    QSocketNotifier notifier{wakeUp, QSocketNotifier::Read};
    std::mutex mutex;
    std::deque<std::function<void()>> waiting;

    void runOne() {
        std::uint64_t one = 0;
        if (read(wakeUp, &one, sizeof one) != sizeof one) return;
        std::function<void()> work;
        {
            const std::lock_guard lock(mutex);
            if (waiting.empty()) return;
            work = std::move(waiting.front());
            waiting.pop_front();
        }
        work();
    }
};

UiThread::UiThread() : queue_(std::make_unique<Queue>()) {
    QObject::connect(&queue_->notifier, &QSocketNotifier::activated, &queue_->notifier,
                     [queue = queue_.get()] { queue->runOne(); });
}

UiThread::~UiThread() {
    close(queue_->wakeUp);
}

bool UiThread::isCurrent() const {
    return std::this_thread::get_id() == queue_->owner;
}

void UiThread::post(std::function<void()> work) {
    const std::lock_guard lock(queue_->mutex);
    queue_->waiting.push_back(std::move(work));
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(queue_->wakeUp, &one, sizeof one);
}

void UiThread::runNext(std::chrono::milliseconds within) {
    pollfd wakeUp{queue_->wakeUp, POLLIN, 0};
    if (poll(&wakeUp, 1, static_cast<int>(within.count())) > 0) queue_->runOne();
}
