#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "platform/PasteboardText.h"

class UiThread;
class Waiting;
class WaylandSelection;

// The general pasteboard: the desktop's clipboard, as plain text. An interface, so that a test can put
// anything there.
class Pasteboard {
  public:
    virtual ~Pasteboard() = default;

    // The clipboard's text now. From any thread: on the UI thread the event loop turns meanwhile (so only
    // from inside an action of the ActionGate), elsewhere the caller blocks until there is an answer or
    // `stop` is requested.
    virtual PasteboardText stringForType(const std::stop_token &stop = {}) = 0;

    // Puts `text` on the clipboard as plain text, in place of whatever was there. False if the desktop did
    // not let it. UI thread only.
    virtual bool setString(const std::string &text) = 0;
};

class DesktopPasteboard : public Pasteboard {
  public:
    static constexpr PasteboardLimits kLimits{.silence = std::chrono::seconds(2)};

    // Both are to outlive the pasteboard.
    DesktopPasteboard(UiThread &ui, Waiting &waiting);
    ~DesktopPasteboard() override;

    PasteboardText stringForType(const std::stop_token &stop = {}) override;
    bool setString(const std::string &text) override;

  private:
    PasteboardText readFromOwner(const std::stop_token &stop) const;

    UiThread &ui_;
    Waiting &waiting_;
    const std::unique_ptr<WaylandSelection> wayland_;  // null on every other desktop
};
