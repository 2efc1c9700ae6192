#pragma once

#include <QObject>
#include <deque>
#include <functional>

namespace hotkey {

/// Calls for the event loop to make, one by one and in order, each in a turn of its own. A call may run an
/// event loop, in which the later ones are made, or end this object, with which they are dropped. Main thread
/// only.
class Deliveries {
  public:
    void post(std::function<void()> call);

  private:
    void askForTurn();
    void makeNext();

    QObject context_;
    std::deque<std::function<void()>> calls_;
};

}  // namespace hotkey
