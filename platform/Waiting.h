#pragma once

#include <QObject>
#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

class UiThread;

// Work that the interface has to wait for: it runs on a thread of its own while the UI thread turns its event
// loop, so windows repaint, spinners turn and the desktop never calls the program hung.
//
// UI thread only. Actions of the user that arrive meanwhile are held back by the ActionGate, not by this
// class.
class Waiting : public QObject {
    Q_OBJECT

  public:
    // After this long a wait says what it waits for and offers to cancel, unless another time is given.
    static constexpr std::chrono::milliseconds kPatience{1000};

    explicit Waiting(UiThread &ui, QObject *parent = nullptr, std::chrono::milliseconds patience = kPatience);

    // Runs `work` and returns its value. `whatFor` is a sentence for the user. The token is stopped when the
    // user cancels; work is expected to return soon after that, with whatever means "nothing" for it.
    template <class Work>
    auto run(const QString &whatFor, Work work) -> std::invoke_result_t<Work, std::stop_token> {
        std::optional<std::invoke_result_t<Work, std::stop_token>> result;
        runUntilDone(whatFor, [&result, &work](std::stop_token token) { result = work(std::move(token)); });
        return std::move(*result);
    }

    // Gives up on the wait in progress, if there is one.
    void cancel();
    // Gives up on all waits, those to come included.
    void end();
    // Whether a wait is in progress.
    bool isWaiting() const { return !running_.empty(); }
    // Whether the last wait that has ended was given up.
    bool wasCancelled() const { return wasCancelled_; }

  Q_SIGNALS:
    // A wait has lasted longer than the patience. finished() follows.
    void slow(const QString &whatFor);
    // That wait is over.
    void finished();

  private:
    void runUntilDone(const QString &whatFor, const std::function<void(std::stop_token)> &work);

    UiThread &ui_;
    const std::chrono::milliseconds patience_;
    std::vector<std::stop_source> running_;  // the innermost last
    bool isOver_ = false;
    bool wasCancelled_ = false;
};
