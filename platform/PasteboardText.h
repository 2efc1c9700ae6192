#pragma once

#include <chrono>
#include <cstddef>
#include <string>

// What a look at the clipboard found.
struct PasteboardText {
    enum class State {
        kText,      // `text` holds it, in UTF-8; it may be empty
        kNoText,    // the clipboard is empty or holds no text
        kNoAnswer,  // the program that owns the clipboard did not answer in time
        kRefused,   // it has a text, and does not give it
        kTooLarge,  // the text is larger than the limits allow, or than fits the memory
        kNoAccess,  // the desktop does not let this program see the clipboard now
    };
    State state = State::kNoText;
    std::string text;
    bool isOwned = true;  // a program offers something, text or not
};

// How long and how much a text from another program may be.
struct PasteboardLimits {
    std::chrono::milliseconds silence;  // after the last sign of life
    std::chrono::milliseconds whole = std::chrono::seconds(60);
    std::size_t bytes = 512UL * 1024 * 1024;
};
