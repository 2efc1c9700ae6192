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

/// Reported by a back end when a registration has stopped working without having been given back.
struct LossNotice {
    VkHotKeyRef ref = 0;
    std::string reason;  // in words for a user
    /// The service goes on trying to take the combination again, and the handle stays valid. Otherwise the
    /// handle names nothing any more.
    bool isKept = false;
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
    using LostHandler = std::function<void(const LossNotice &)>;
    using RegainedHandler = std::function<void(VkHotKeyRef ref)>;

    virtual ~BackEnd() = default;

    /// Sets who hears of released hot keys, of lost registrations, and of those that were reported as lost
    /// and kept and work again. Called once, before the first registration. The handlers are called from the
    /// event loop, never from inside another function of the back end, and may themselves run an event loop
    /// or end the back end. A notice may come for a handle that was given back meanwhile.
    virtual void installEventHandler(ReleasedHandler released, LostHandler lost,
                                     RegainedHandler regained) = 0;

    /// Takes a combination for this program alone. A mask with kServiceCapsLock fires only while Caps Lock is
    /// on; without it the state of the lock keys does not matter. `purpose` says what the combination is for
    /// where the service asks the user; it may be empty. A failure leaves nothing taken.
    ///
    /// A service that asks the user, or that is still being started, gives the handle at once: a refusal is
    /// reported as a loss. No call blocks for longer than 100 ms because a program does not answer.
    virtual Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                             HotKeyIdentifier identifier, const std::string &purpose) = 0;

    /// Gives a combination back; what this program registers after it is registered behind it. An unknown
    /// handle is ignored.
    virtual void unregisterEventHotKey(VkHotKeyRef ref) = 0;

    /// Whether the service is gone for good: every registration with it fails from now on.
    virtual bool isLost() const { return false; }

  protected:
    /// A handle that no back end of this process has given yet.
    static VkHotKeyRef newRef();
};

/// A back end, or the reason in words why there is none.
struct OpenedBackEnd {
    std::unique_ptr<BackEnd> backEnd;
    std::string failure;
};

/// Opens the hot-key service that this desktop session offers: in a Wayland session the desktop portal, or
/// where that has no global shortcuts the X server for X11 programs, which does not see keys pressed in
/// Wayland windows (a log line says so); otherwise the X server.
OpenedBackEnd openBackEndOfSession();

}  // namespace hotkey
