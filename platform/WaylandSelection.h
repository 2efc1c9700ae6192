#pragma once

#include <QObject>
#include <memory>
#include <stop_token>

#include "platform/PasteboardText.h"

// The clipboard of a Wayland desktop, read beside Qt over Qt's own connection: Qt waits for the owner on the
// UI thread, for as long as it likes and for as much as it sends. What is known is what the desktop shows to
// the program while one of its windows has the keyboard focus.
//
// read() may be called from any thread; all else on the UI thread.
class WaylandSelection {
  public:
    // Null if this is no Wayland desktop.
    static std::unique_ptr<WaylandSelection> ofThisDesktop();
    ~WaylandSelection();
    WaylandSelection(const WaylandSelection &) = delete;
    WaylandSelection &operator=(const WaylandSelection &) = delete;

    // Blocks. Beyond the limits in time, or when `stop` is requested: kNoAnswer.
    PasteboardText read(const PasteboardLimits &limits, const std::stop_token &stop) const;

  private:
    class Device;
    explicit WaylandSelection(std::unique_ptr<Device> device);

    const std::unique_ptr<Device> device_;
    const QObject context_;  // of what is connected
};

// Reads the text that the other end of a pipe writes until it closes it; kRefused if that is nothing. Takes
// over `descriptor`. Limits and stop as above; bytes that are not UTF-8 become replacement characters.
PasteboardText readPipe(int descriptor, const PasteboardLimits &limits, const std::stop_token &stop);
