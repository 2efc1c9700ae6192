#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>

// What a look at the clipboard found.
struct PasteboardText {
    enum class State {
        kText,      // `text` holds it, in UTF-8; it may be empty
        kNoText,    // the clipboard is empty or holds no text
        kNoAnswer,  // the program that owns the clipboard did not answer in time
        kRefused,   // it has a text, and does not give it
        kTooLarge,  // the text is larger than kMostClipboardBytes
        kNoAccess,  // the desktop does not let this program see the clipboard now
    };
    State state = State::kNoText;
    std::string text;
    bool isOwned = true;  // a program offers something, text or not
};

// The most that is read of a text.
inline constexpr std::size_t kMostClipboardBytes = 512UL * 1024 * 1024;

// Reads the text of the X11 selection CLIPBOARD over a connection of its own, so that an owner that hangs
// holds up neither the interface nor its other requests. Blocks; any thread except one that the owner needs
// to answer. Gives up `limit` after the last sign of life, `wholeLimit` after the beginning, or when `stop`
// is requested (each: kNoAnswer). Bytes that are not UTF-8 become replacement characters.
PasteboardText readXSelection(std::chrono::milliseconds limit, std::stop_token stop = {},
                              std::chrono::milliseconds wholeLimit = std::chrono::seconds(60),
                              std::size_t mostBytes = kMostClipboardBytes);
