#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QVariant>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

class VkHotKeyCenter;

/// The modifier bits of the toolkit form, in which clients name a combination and in which events report one.
/// Every other bit is allowed, counts for the identity of a hot key, and means nothing to the keyboard.
inline constexpr std::uint64_t kVkCapsLockFlag = 1u << 16;
inline constexpr std::uint64_t kVkShiftFlag = 1u << 17;
inline constexpr std::uint64_t kVkControlFlag = 1u << 18;
inline constexpr std::uint64_t kVkOptionFlag = 1u << 19;   // the Alt key
inline constexpr std::uint64_t kVkCommandFlag = 1u << 20;  // the Super key

/// What a hot key hands to its action or task: one key-up event, made when the key of the combination is
/// released.
struct VkKeyEvent {
    static constexpr int kKeyUpType = 11;

    int type = kKeyUpType;
    /// Pointer position at the release, in pixels of the whole screen; (0, 0) on Wayland, which does not tell
    /// it.
    QPoint location;
    /// Modifiers and Caps Lock just before the release, in toolkit form; on Wayland those of the hot key.
    std::uint64_t modifierFlags = 0;
    /// By the clock of the window system; wraps after 49.7 days on X11.
    std::chrono::milliseconds timestamp{0};
    /// No window: a hot key belongs to the whole desktop.
    int windowNumber = -1;
    /// Always empty, as is the next.
    std::string characters;
    std::string charactersIgnoringModifiers;
    bool isARepeat = false;
    /// The hot key's own.
    std::uint16_t keyCode = 0;
};
Q_DECLARE_METATYPE(VkKeyEvent)

/// The handle that the hot-key service gives for a registration.
using VkHotKeyRef = std::uintptr_t;

/// One key combination and what it does. Held by std::shared_ptr; used on the main thread only.
///
/// A hot key does something either through a target and the name of its action, or through a task.
/// Two hot keys are equal when key code and modifier flags are equal, whatever they do.
///
/// Releasing the last reference unregisters the hot key first, exactly as unregisterHotKey does: from the
/// centre that took it last, or from the shared centre if none did. This holds for a hot key that was never
/// registered, too: its end removes a registered hot key equal to it from the centre. So build no throw-away
/// copies for comparing; ask the centre with hasRegisteredHotKeyWithKeyCode or hotKeysMatching.
///
/// Mind assignment: `hotKey = center.registerHotKey(another)`, where `hotKey` is the last reference to an
/// unregistered record equal to `another`, registers `another` first and then ends the old record, whose end
/// removes `another` from the centre: it never fires, though it has its hotKeyRef(). Release the old one
/// first: `hotKey.reset()`, then assign. (While the old one is registered, the new one is not registered at
/// all.)
class VkHotKey {
  public:
    using Task = std::function<void(const VkKeyEvent &)>;

    /// A new record that is not registered yet: hand it to VkHotKeyCenter::registerHotKey.
    static std::shared_ptr<VkHotKey> hotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags,
                                                       Task task);

    ~VkHotKey();
    VkHotKey(const VkHotKey &) = delete;
    VkHotKey &operator=(const VkHotKey &) = delete;

    std::uint16_t keyCode() const { return keyCode_; }
    /// Given at registration, counted from 1, never given twice; 0 before. An unregistered hot key keeps its
    /// number.
    std::uint32_t hotKeyID() const { return hotKeyID_; }
    /// Not owned; null once the object is destroyed.
    QObject *target() const { return target_.data(); }
    const std::optional<std::string> &action() const { return action_; }
    const QVariant &object() const { return object_; }
    const Task &task() const { return task_; }
    std::uint64_t modifierFlags() const { return modifierFlags_; }
    /// Present exactly while the service holds a registration for this record.
    std::optional<VkHotKeyRef> hotKeyRef() const { return hotKeyRef_; }

    void setHotKeyRef(std::optional<VkHotKeyRef> hotKeyRef) { hotKeyRef_ = hotKeyRef; }
    void setHotKeyID(std::uint32_t hotKeyID) { hotKeyID_ = hotKeyID; }

    /// Calls the action on the target if the target responds to it; otherwise the task, if there is one;
    /// otherwise does nothing. It is the same whether the hot key is registered or not.
    ///
    /// A target responds to an action when it has an invokable member (Q_INVOKABLE or a slot) of that name
    /// whose parameters are none, or one or both of these in this order:
    ///   1. the event, as `const VkKeyEvent &`, as `QVariant` (holding a VkKeyEvent), or as `QObject *`: the
    ///      sender of an ordinary action, which is null here, so that a menu item and a hot key can share one
    ///      operation;
    ///   2. the hot key's object, as `QVariant`.
    /// Of several such members the one with the most parameters is called, and of those the one declared
    /// last, a derived class after its bases. A target that lives in another thread gets the call queued
    /// there.
    void invokeWithEvent(const VkKeyEvent &event);

    /// Some lines for a log: the record's address, key code, names of its modifiers and what it invokes.
    std::string description() const;

    /// Key code XOR modifier flags.
    std::size_t hash() const { return static_cast<std::size_t>(keyCode_ ^ modifierFlags_); }
    bool operator==(const VkHotKey &other) const {
        return keyCode_ == other.keyCode_ && modifierFlags_ == other.modifierFlags_;
    }

  private:
    friend class VkHotKeyCenter;

    VkHotKey();
    void _setTarget(QObject *target) { target_ = target; }
    void _setAction(std::optional<std::string> action) { action_ = std::move(action); }
    void _setObject(QVariant object) { object_ = std::move(object); }
    void _setTask(Task task) { task_ = std::move(task); }
    void _setKeyCode(std::uint16_t keyCode) { keyCode_ = keyCode; }
    void _setModifierFlags(std::uint64_t modifierFlags) { modifierFlags_ = modifierFlags; }

    std::uint16_t keyCode_ = 0;
    std::uint32_t hotKeyID_ = 0;
    QPointer<QObject> target_;
    std::optional<std::string> action_;
    QVariant object_;
    Task task_;
    std::uint64_t modifierFlags_ = 0;
    std::optional<VkHotKeyRef> hotKeyRef_;
    std::weak_ptr<VkHotKeyCenter *> center_;  // expired once that centre is gone
};
