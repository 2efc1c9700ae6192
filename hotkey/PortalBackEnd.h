#pragma once

#include "hotkey/BackEnd.h"

namespace hotkey {

/// Opens the hot-key service of a Wayland desktop: the GlobalShortcuts portal, over a connection of its own
/// to the session bus. Without a session bus, a portal or global shortcuts in it the back end is what
/// `otherwise` opens, which is told which of them is missing. The portal may have to be started and is given
/// five seconds to answer, but the caller waits for a tenth of a second at most: after that the back end
/// takes registrations, and makes them once it is clear with whom.
///
/// Every combination has a session of its own with the portal, which asks the user as the desktop thinks fit:
/// a registration is only asked for when it returns, and a refusal, like an end of the session by the
/// desktop, is reported as a loss for good, and so is the end of the session bus. The user may have given the
/// combination other keys. Masks with Caps Lock are refused: no portal knows it. Giving a combination back
/// does not wait for the portal.
///
/// When the portal ends its hot keys fall silent; they are asked for anew when it comes back. If it stays
/// away for five seconds the loss is reported, as one that is kept, and later that the hot key works again.
///
/// Events carry the pointer location (0, 0), which no portal tells, the modifiers of the registration and the
/// time by the desktop's own clock.
OpenedBackEnd openPortalBackEnd(std::function<OpenedBackEnd(const std::string &whyNoPortal)> otherwise);

}  // namespace hotkey
