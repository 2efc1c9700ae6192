#pragma once

#include <string>

#include "hotkey/BackEnd.h"

namespace hotkey {

/// Opens the hot-key service of an X server, over a connection of its own: key grabs on the root window, for
/// every mix of the lock keys, or only for those with Caps Lock where a mask asks for it. `display` names the
/// server as $DISPLAY does; empty means $DISPLAY itself.
///
/// Combinations follow the keyboard: when their modifiers move to other keys they do, too. One that the new
/// keyboard or another program leaves no room for is tried again at every later change; the loss is reported,
/// as one that is kept, after two seconds. When the connection is lost all registrations are lost for good,
/// and new ones fail with that reason.
OpenedBackEnd openX11BackEnd(const std::string &display = {});

}  // namespace hotkey
