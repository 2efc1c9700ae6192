#pragma once

#include <string>

#include "hotkey/BackEnd.h"

namespace hotkey {

/// Opens the hot-key service of an X server, over a connection of its own: key grabs on the root window, for
/// every mix of the lock keys, or only for those with Caps Lock where a mask asks for it. `display` names the
/// server as $DISPLAY does; empty means $DISPLAY itself. If the connection is lost later its hot keys fall
/// silent, one log line says so, and registrations fail with that reason.
OpenedBackEnd openX11BackEnd(const std::string &display = {});

}  // namespace hotkey
