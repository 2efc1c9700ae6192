#pragma once

#include <stop_token>

#include "platform/PasteboardText.h"

// Reads the text of the X11 selection CLIPBOARD over a connection of its own, so that an owner that hangs
// holds up neither the interface nor its other requests. Blocks; any thread except one that the owner needs
// to answer. Beyond the limits in time, or when `stop` is requested: kNoAnswer. Bytes that are not UTF-8
// become replacement characters.
PasteboardText readXSelection(const PasteboardLimits &limits, std::stop_token stop = {});
