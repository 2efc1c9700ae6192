#include "hotkey/BackEnd.h"

#include "hotkey/X11BackEnd.h"

namespace hotkey {

OpenedBackEnd openBackEndOfSession() {
    return openX11BackEnd();
}

}  // namespace hotkey
