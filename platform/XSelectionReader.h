#pragma once

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>

// What a look at the clipboard found.
struct PasteboardText {
    enum class State {
        kText,      // `text` holds it, in UTF-8; it may be empty
        kNoText,    // the clipboard is empty or holds no text
        kNoAnswer,  // the program that owns the clipboard did not answer in time
        kNoAccess,  // the desktop does not let this program see the clipboard now
    };
    State state = State::kNoText;
    std::string text;
};

// Reads the text of the X11 selection CLIPBOARD over a connection of its own, so that an owner that hangs
// holds up neither the interface nor its other requests. Blocks; any thread except one that the owner needs
// to answer. Gives up `limit` after the last sign of life, or when `stop` is requested (both: kNoAnswer).
// Bytes that are not UTF-8 become replacement characters.
PasteboardText readXSelection(std::chrono::milliseconds limit, std::stop_token stop = {});
