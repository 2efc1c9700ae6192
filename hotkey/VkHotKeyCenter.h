#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

#include "hotkey/VkHotKey.h"

namespace hotkey {
class BackEnd;
struct LossNotice;
struct OpenedBackEnd;
struct ReleasedEvent;
}  // namespace hotkey

/// Hash and equality of a set of hot keys: by key code and modifier flags alone, also against a plain
/// reference.
struct VkHotKeyIdentity {
    using is_transparent = void;
    std::size_t operator()(const VkHotKey &hotKey) const { return hotKey.hash(); }
    std::size_t operator()(const std::shared_ptr<VkHotKey> &hotKey) const { return hotKey->hash(); }
    bool operator()(const std::shared_ptr<VkHotKey> &one, const std::shared_ptr<VkHotKey> &other) const {
        return *one == *other;
    }
    bool operator()(const VkHotKey &one, const std::shared_ptr<VkHotKey> &other) const {
        return one == *other;
    }
    bool operator()(const std::shared_ptr<VkHotKey> &one, const VkHotKey &other) const {
        return *one == other;
    }
};
using VkHotKeySet = std::unordered_set<std::shared_ptr<VkHotKey>, VkHotKeyIdentity, VkHotKeyIdentity>;

/// The process-wide registry of key combinations that work in every program of the desktop.
///
///     auto hotKey = VkHotKeyCenter::sharedHotKeyCenter().registerHotKeyWithKeyCode(
///         8, kVkCommandFlag | kVkShiftFlag, [this](const VkKeyEvent &) { Save_bar_item(nullptr); });
///
/// Clients use sharedHotKeyCenter() only. Everything here is for the main thread, after the QCoreApplication
/// is made; a registered hot key fires from the event loop, once for each press, when its key is released.
/// Key codes are the virtual ones (8 is the C key of the ANSI layout): they name a place on the keyboard, not
/// a character. VkStringFromKeyCode names a combination to the user.
///
/// The centre owns the hot keys registered with it. Registration needs a hot-key service of the desktop: the
/// X server, or on Wayland the desktop portal. It is looked for at the first registration; where there is
/// none a registration fails, lastFailure() says why, and the next one looks again. Nothing here throws,
/// except what a client's own predicate throws.
///
/// A registration can be lost later. Above all a Wayland desktop may ask the user, which takes as long as it
/// takes, and the registration does not wait for that: it is there at once, and lost if the user says no. Nor
/// does it wait for a portal that is slow to start; where that has no hot keys in the end, the registration
/// is made with the X server, or lost. See setRegistrationLostHandler.
class VkHotKeyCenter {
  public:
    using Predicate = std::function<bool(const VkHotKey &)>;
    using RegistrationLostHandler =
        std::function<void(const std::shared_ptr<VkHotKey> &hotKey, const std::string &reason)>;
    using RegistrationRegainedHandler = std::function<void(const std::shared_ptr<VkHotKey> &hotKey)>;
    using BackEndOpener = std::function<hotkey::OpenedBackEnd()>;

    /// The one centre of the process. Made on first use, from any thread; it lives as long as the process.
    static VkHotKeyCenter &sharedHotKeyCenter();

    /// A centre with a hot-key service of its own, for tests. Its end unregisters what it holds.
    explicit VkHotKeyCenter(BackEndOpener opener);
    ~VkHotKeyCenter();
    VkHotKeyCenter(const VkHotKeyCenter &) = delete;
    VkHotKeyCenter &operator=(const VkHotKeyCenter &) = delete;

    /// Registers a combination that calls `action` of `target` with the event and `object`; see
    /// VkHotKey::invokeWithEvent for the members that count as an action. The target is not owned and may be
    /// destroyed at any time: the hot key then does nothing. Whether it responds to the action is looked at
    /// when the hot key fires. What an action or a task throws is logged. Returns the registered hot key.
    /// Returns null, with nothing kept, if the combination is registered already or the service refuses it.
    std::shared_ptr<VkHotKey> registerHotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags,
                                                        QObject *target, std::optional<std::string> action,
                                                        QVariant object = {});
    /// The same with a task, which is called with the event.
    std::shared_ptr<VkHotKey> registerHotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags,
                                                        VkHotKey::Task task);
    /// Registers a record made with VkHotKey::hotKeyWithKeyCode, or one that was unregistered.
    /// Returns its argument on success, and null if the service refuses it. If an equal hot key is registered
    /// already the argument is returned as well, but not registered: it then has no hotKeyRef() unless it is
    /// that hot key.
    std::shared_ptr<VkHotKey> registerHotKey(const std::shared_ptr<VkHotKey> &hotKey);

    /// Why the last registration gave no registered hot key, or why one was lost since and has not come back,
    /// in words for a user; empty if neither.
    const std::optional<std::string> &lastFailure() const { return lastFailure_; }

    /// Sets who hears of registered hot keys that have stopped working without having been unregistered, with
    /// the reason in words for a user. If the loss is for good (the user or the desktop has refused the
    /// combination, the connection to the service is lost) the hot key has been removed from the centre and
    /// has no hotKeyRef(). It may be registered again; with the same desktop that is likely to end the same
    /// way. If it still has its hotKeyRef() the service goes on trying by itself (a changed keyboard without
    /// the modifier, a portal that has ended) and the hot key will work again, without a further call, once
    /// it can.
    ///
    /// Called from the event loop; it may do anything that a hot key may. The one set last counts, an empty
    /// one is none.
    void setRegistrationLostHandler(RegistrationLostHandler handler) { lostHandler_ = std::move(handler); }
    /// Sets who hears of hot keys that were reported as lost with their hotKeyRef() and work again. Called as
    /// the handler of a loss is, and only after it for the same hot key.
    void setRegistrationRegainedHandler(RegistrationRegainedHandler handler) {
        regainedHandler_ = std::move(handler);
    }

    /// Says what the hot keys registered from now on are for, in a few words in the user's language ("Save
    /// the clipboard"): a desktop that asks the user shows them. Empty, as at first: the combination is
    /// shown.
    void setPurpose(std::string purpose) { purpose_ = std::move(purpose); }

    /// Flags that mean nothing to the keyboard count here, too.
    bool hasRegisteredHotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags) const;
    /// The hot keys of this centre for which the predicate is true.
    VkHotKeySet hotKeysMatching(const Predicate &predicate) const;
    /// The hot keys of this centre that hold a hotKeyRef.
    VkHotKeySet registeredHotKeys() const;

    /// Gives the record's handle, if it has one, back to the service: on X11 the combination is free for
    /// others on return; a desktop portal has been told to free it then. Also removes the hot key equal to
    /// the record from the centre, even when that is another instance, whose own handle then stays with the
    /// service until the last reference to it is released. Null is ignored.
    void unregisterHotKey(const std::shared_ptr<VkHotKey> &hotKey);
    void unregisterHotKeysMatching(const Predicate &predicate);
    /// Targets are compared by identity; null stands for the hot keys without a living target.
    void unregisterHotKeysWithTarget(const QObject *target);
    void unregisterHotKeysWithTarget(const QObject *target, const std::optional<std::string> &action);
    void unregisterHotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags);
    void unregisterAllHotKeys();

  private:
    friend class VkHotKey;
    friend std::int32_t vk_hotKeyHandler(const hotkey::ReleasedEvent &event, VkHotKeyCenter &center);

    std::shared_ptr<VkHotKey> _registerHotKey(const std::shared_ptr<VkHotKey> &hotKey);
    void unregisterRecord(VkHotKey &hotKey);
    std::shared_ptr<VkHotKey> hotKeyOfRef(VkHotKeyRef ref) const;
    void registrationLost(const hotkey::LossNotice &notice);
    void registrationRegained(VkHotKeyRef ref);
    bool openBackEnd();

    VkHotKeySet _registeredHotKeys;
    std::uint32_t _nextHotKeyID = 1;
    std::optional<std::string> lastFailure_;
    RegistrationLostHandler lostHandler_;
    RegistrationRegainedHandler regainedHandler_;
    std::string purpose_;
    BackEndOpener opener_;
    std::unique_ptr<hotkey::BackEnd> backEnd_;
    std::shared_ptr<VkHotKeyCenter *> self_;
};
