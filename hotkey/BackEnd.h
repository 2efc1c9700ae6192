#pragma once

#include <QPoint>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "hotkey/VkHotKey.h"

namespace hotkey {

/// Bits of the hot-key service's modifier mask.
inline constexpr std::uint32_t kServiceCommand = 0x0100;
inline constexpr std::uint32_t kServiceShift = 0x0200;
inline constexpr std::uint32_t kServiceCapsLock = 0x0400;
inline constexpr std::uint32_t kServiceOption = 0x0800;
inline constexpr std::uint32_t kServiceControl = 0x1000;

/// Names a registration towards the service, which gives it back with every event.
struct HotKeyIdentifier {
    std::uint32_t signature = 0;
    std::uint32_t id = 0;
};

/// Reported by a back end when a registered combination, pressed before, is released.
struct ReleasedEvent {
    HotKeyIdentifier identifier;
    QPoint location;
    std::uint32_t modifiers = 0;  // service mask
    std::chrono::milliseconds timestamp{0};
};

/// The outcome of a registration: a handle, or the reason in words why there is none.
struct Registration {
    std::optional<VkHotKeyRef> ref;
    std::string failure;
};

/// A hot-key service of the desktop. Main thread only; nothing throws.
class BackEnd {
  public:
    using ReleasedHandler = std::function<void(const ReleasedEvent &)>;

    virtual ~BackEnd() = default;

    /// Sets who hears of released hot keys. Called once, before the first registration. The handler is called
    /// from the event loop, never from inside another function of the back end, and may itself run an event
    /// loop.
    virtual void installEventHandler(ReleasedHandler handler) = 0;

    /// Takes a combination for this program alone. A mask with kServiceCapsLock fires only while Caps Lock is
    /// on; without it the state of the lock keys does not matter. A failure leaves nothing taken.
    virtual Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                             HotKeyIdentifier identifier) = 0;

    /// Gives a combination back; on return others can take it. An unknown handle is ignored.
    virtual void unregisterEventHotKey(VkHotKeyRef ref) = 0;
};

/// A back end, or the reason in words why there is none.
struct OpenedBackEnd {
    std::unique_ptr<BackEnd> backEnd;
    std::string failure;
};

/// Opens the hot-key service that this desktop session offers.
OpenedBackEnd openBackEndOfSession();

}  // namespace hotkey
