#include "hotkey/KeyCodes.h"

#include <linux/input-event-codes.h>

#include <array>

namespace hotkey {
namespace {

constexpr std::size_t kKeyCodeCount = 0x80;

// Index: virtual key code. 0: no key has this code (input code 0 is KEY_RESERVED).
constexpr std::array<std::uint16_t, kKeyCodeCount> kInputCodes = {
    // 0x00
    KEY_A, KEY_S, KEY_D, KEY_F, KEY_H, KEY_G, KEY_Z, KEY_X,
    // 0x08
    KEY_C, KEY_V, KEY_102ND, KEY_B, KEY_Q, KEY_W, KEY_E, KEY_R,
    // 0x10
    KEY_Y, KEY_T, KEY_1, KEY_2, KEY_3, KEY_4, KEY_6, KEY_5,
    // 0x18
    KEY_EQUAL, KEY_9, KEY_7, KEY_MINUS, KEY_8, KEY_0, KEY_RIGHTBRACE, KEY_O,
    // 0x20
    KEY_U, KEY_LEFTBRACE, KEY_I, KEY_P, KEY_ENTER, KEY_L, KEY_J, KEY_APOSTROPHE,
    // 0x28
    KEY_K, KEY_SEMICOLON, KEY_BACKSLASH, KEY_COMMA, KEY_SLASH, KEY_N, KEY_M, KEY_DOT,
    // 0x30
    KEY_TAB, KEY_SPACE, KEY_GRAVE, KEY_BACKSPACE, 0, KEY_ESC, KEY_RIGHTMETA, KEY_LEFTMETA,
    // 0x38
    KEY_LEFTSHIFT, KEY_CAPSLOCK, KEY_LEFTALT, KEY_LEFTCTRL, KEY_RIGHTSHIFT, KEY_RIGHTALT, KEY_RIGHTCTRL,
    KEY_FN,
    // 0x40
    KEY_F17, KEY_KPDOT, 0, KEY_KPASTERISK, 0, KEY_KPPLUS, 0, KEY_NUMLOCK,
    // 0x48
    KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_MUTE, KEY_KPSLASH, KEY_KPENTER, 0, KEY_KPMINUS, KEY_F18,
    // 0x50
    KEY_F19, KEY_KPEQUAL, KEY_KP0, KEY_KP1, KEY_KP2, KEY_KP3, KEY_KP4, KEY_KP5,
    // 0x58
    KEY_KP6, KEY_KP7, KEY_F20, KEY_KP8, KEY_KP9, KEY_YEN, KEY_RO, KEY_KPJPCOMMA,
    // 0x60
    KEY_F5, KEY_F6, KEY_F7, KEY_F3, KEY_F8, KEY_F9, KEY_HANJA, KEY_F11,
    // 0x68
    KEY_HANGEUL, KEY_F13, KEY_F16, KEY_F14, 0, KEY_F10, KEY_COMPOSE, KEY_F12,
    // 0x70
    0, KEY_F15, KEY_INSERT, KEY_HOME, KEY_PAGEUP, KEY_DELETE, KEY_F4, KEY_END,
    // 0x78
    KEY_F2, KEY_PAGEDOWN, KEY_F1, KEY_LEFT, KEY_RIGHT, KEY_DOWN, KEY_UP, 0};

}  // namespace

std::optional<std::uint16_t> inputCodeFromKeyCode(std::uint16_t keyCode) {
    if (keyCode >= kKeyCodeCount || kInputCodes[keyCode] == 0) return std::nullopt;
    return kInputCodes[keyCode];
}

}  // namespace hotkey
