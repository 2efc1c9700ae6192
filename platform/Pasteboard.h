#pragma once

#include <stop_token>
#include <string>

#include "platform/XSelectionReader.h"

class UiThread;
class Waiting;

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
    // An owner that shows no sign of life for this long is not waited for any longer.
    static constexpr std::chrono::milliseconds kOwnerLimit{2000};

    // Both are to outlive the pasteboard.
    DesktopPasteboard(UiThread &ui, Waiting &waiting) : ui_(ui), waiting_(waiting) {}

    PasteboardText stringForType(const std::stop_token &stop = {}) override;
    bool setString(const std::string &text) override;

  private:
    UiThread &ui_;
    Waiting &waiting_;
};
