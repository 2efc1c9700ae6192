#pragma once

#include <deque>
#include <functional>

// The one door through which every action enters: the user's (menu items, buttons, list picks, the hot key,
// notification clicks), and the alerts that background operations ask for.
//
// While an action is running (and that includes its waits and its alerts, which turn the event loop) a later
// one waits its turn: it neither runs inside the first nor is lost. UI thread only.
class ActionGate {
  public:
    using Action = std::function<void()>;

    // Runs an action of the user now if nothing is running, else after all that entered before it, in the
    // order of entry. Does nothing once the gate is closed.
    void enter(Action action);
    // The same for what the program has to do itself: the closed gate lets it pass.
    void enterProgram(Action action);

    // No action of the user starts any more, not even one that is waiting its turn.
    void close() { isClosed_ = true; }

    // Whether an action is running.
    bool isBusy() const { return busy_; }

  private:
    bool isClosed_ = false;
    bool busy_ = false;
    std::deque<Action> waiting_;
};
