#pragma once

#include <xcb/xcb.h>

#include <QProcess>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

/// X key codes of the keyboard that the tests press.
inline constexpr std::uint8_t kC = 54, kV = 55, kA = 38, kSuper = 133, kShift = 50, kControl = 37, kAlt = 64;
inline constexpr std::uint8_t kCapsLock = 66, kNumLock = 77;

inline constexpr std::uint8_t kRightSuper = 134, kVirtualSuper = 206;  // of Debian's keyboards

inline constexpr std::uint16_t kScrollLockMask = XCB_MOD_MASK_3;

/// Turns the event loop until the condition holds; false if it does not within ten seconds.
bool waitUntil(const std::function<bool()> &condition);

/// An X server that can be ended.
struct OtherXServer {
    OtherXServer();
    QProcess process;
    std::string display;
};

/// Another program on the desktop, which can grab keys and own a focused window, and the hands at the
/// keyboard. Every function returns after the X server has done its part.
class X11Desktop {
  public:
    explicit X11Desktop(const std::string &display = {});
    /// Releases the keys and locks and restores the modifiers.
    ~X11Desktop();

    void press(std::initializer_list<std::uint8_t> keys);
    void release(std::initializer_list<std::uint8_t> keys);
    void tap(std::uint8_t key) { press({key}), release({key}); }
    void movePointer(std::int16_t x, std::int16_t y);

    /// Locks exactly these modifiers, as their lock keys do.
    void lockModifiers(std::uint16_t mask);
    /// Switches to the keyboard's first (0) or second layout.
    void lockGroup(std::uint8_t group);
    std::uint16_t modifierState();
    /// Puts the keys on the modifier (3 is that of XCB_MOD_MASK_3), besides the others on it or instead of
    /// them, and takes them off every other modifier.
    void putOnModifier(int modifier, std::initializer_list<std::uint8_t> keys);

    bool grab(std::uint16_t modifiers, std::uint8_t key);
    void ungrab(std::uint16_t modifiers, std::uint8_t key);

    /// Opens a window that has the keyboard focus.
    void focusOwnWindow();
    /// How many presses of the key the window has seen so far, auto-repeat included.
    int pressesSeen(std::uint8_t key);

  private:
    void fakeInput(std::uint8_t type, std::uint8_t detail, std::int16_t x = 0, std::int16_t y = 0);
    void sync();

    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t *)> connection_;
    xcb_window_t root_ = 0;
    bool isDown_[256] = {};
    int pressesSeen_[256] = {};
    std::unique_ptr<xcb_get_modifier_mapping_reply_t, void (*)(void *)> originalModifiers_;
};
