#pragma once

#include <deque>
#include <functional>

// The one door through which every user action enters: menu items, buttons, list picks, the hot key,
// notification clicks, and the alerts that background operations ask for.
//
// While an action is running (and that includes its waits and its alerts, which turn the event loop) a later
// one waits its turn: it neither runs inside the first nor is lost. UI thread only.
class ActionGate {
  public:
    using Action = std::function<void()>;

    // Runs `action` now if nothing is running, else after all that entered before it, in the order of entry.
    void enter(Action action);

    // Whether an action is running.
    bool isBusy() const { return busy_; }

  private:
    bool busy_ = false;
    std::deque<Action> waiting_;
};
