#include "hotkey/X11Modifiers.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <span>

#include "hotkey/BackEnd.h"

namespace hotkey {
namespace {

constexpr xcb_keysym_t kNumLockSymbol = 0xff7f;
constexpr xcb_keysym_t kScrollLockSymbol = 0xff14;
constexpr xcb_keysym_t kMetaLeftSymbol = 0xffe7, kMetaRightSymbol = 0xffe8;
constexpr xcb_keysym_t kAltLeftSymbol = 0xffe9, kAltRightSymbol = 0xffea;
constexpr xcb_keysym_t kSuperLeftSymbol = 0xffeb, kSuperRightSymbol = 0xffec;
constexpr int kModifierCount = 8;

template <typename Reply>
using ReplyPointer = std::unique_ptr<Reply, decltype(&std::free)>;

/// The server's keyboard mapping together with its modifier mapping.
class ModifierKeys {
  public:
    explicit ModifierKeys(xcb_connection_t *connection)
        : first_(xcb_get_setup(connection)->min_keycode),
          symbols_(nullptr, &std::free),
          modifiers_(nullptr, &std::free) {
        const int count = xcb_get_setup(connection)->max_keycode - first_ + 1;
        const auto symbols = xcb_get_keyboard_mapping(connection, first_, static_cast<std::uint8_t>(count));
        const auto modifiers = xcb_get_modifier_mapping(connection);
        symbols_.reset(xcb_get_keyboard_mapping_reply(connection, symbols, nullptr));
        modifiers_.reset(xcb_get_modifier_mapping_reply(connection, modifiers, nullptr));
    }

    bool isValid() const { return symbols_ && modifiers_; }

    /// The mask of the first modifier that one of the symbols is on, the earlier symbols first; 0 if none is.
    std::uint16_t modifierOf(std::initializer_list<xcb_keysym_t> wanted) const {
        for (const xcb_keysym_t symbol : wanted)
            for (int modifier = 0; modifier < kModifierCount; ++modifier)
                if (isOn(modifier, symbol)) return static_cast<std::uint16_t>(1 << modifier);
        return 0;
    }

  private:
    bool isOn(int modifier, xcb_keysym_t symbol) const {
        const std::size_t width = modifiers_->keycodes_per_modifier;
        const std::span keys(xcb_get_modifier_mapping_keycodes(modifiers_.get()) + modifier * width, width);
        return std::ranges::any_of(keys, [&](xcb_keycode_t key) {
            const auto symbols = symbolsOf(key);
            return std::ranges::find(symbols, symbol) != symbols.end();
        });
    }

    std::span<const xcb_keysym_t> symbolsOf(xcb_keycode_t key) const {
        const std::size_t width = symbols_->keysyms_per_keycode;
        const std::size_t length = xcb_get_keyboard_mapping_keysyms_length(symbols_.get());
        if (key < first_ || (key - first_ + 1) * width > length) return {};
        return {xcb_get_keyboard_mapping_keysyms(symbols_.get()) + (key - first_) * width, width};
    }

    xcb_keycode_t first_;
    ReplyPointer<xcb_get_keyboard_mapping_reply_t> symbols_;
    ReplyPointer<xcb_get_modifier_mapping_reply_t> modifiers_;
};

}  // namespace

std::vector<std::uint16_t> X11Modifiers::statesFor(std::uint32_t serviceMask) const {
    if ((serviceMask & kServiceCommand && !command) || (serviceMask & kServiceOption && !option)) return {};
    std::uint16_t wanted = 0;
    if (serviceMask & kServiceControl) wanted |= XCB_MOD_MASK_CONTROL;
    if (serviceMask & kServiceShift) wanted |= XCB_MOD_MASK_SHIFT;
    if (serviceMask & kServiceCommand) wanted |= command;
    if (serviceMask & kServiceOption) wanted |= option;

    const bool onlyWithCapsLock = serviceMask & kServiceCapsLock;
    std::vector<std::uint16_t> states;
    for (std::uint16_t mix = locks;; mix = (mix - 1) & locks) {  // every subset of the locks
        if (!onlyWithCapsLock || (mix & XCB_MOD_MASK_LOCK)) states.push_back(wanted | mix);
        if (mix == 0) return states;
    }
}

std::uint32_t X11Modifiers::serviceMaskFor(std::uint16_t state) const {
    std::uint32_t mask = 0;
    if (state & XCB_MOD_MASK_CONTROL) mask |= kServiceControl;
    if (state & XCB_MOD_MASK_SHIFT) mask |= kServiceShift;
    if (state & XCB_MOD_MASK_LOCK) mask |= kServiceCapsLock;
    if (state & command) mask |= kServiceCommand;
    if (state & option) mask |= kServiceOption;
    return mask;
}

std::optional<X11Modifiers> readX11Modifiers(xcb_connection_t *connection) {
    const ModifierKeys keyboard(connection);
    if (!keyboard.isValid()) return std::nullopt;

    X11Modifiers modifiers;
    modifiers.command = keyboard.modifierOf({kSuperLeftSymbol, kSuperRightSymbol});
    modifiers.option =
        keyboard.modifierOf({kAltLeftSymbol, kAltRightSymbol, kMetaLeftSymbol, kMetaRightSymbol});
    const std::uint16_t held =
        XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | modifiers.command | modifiers.option;
    modifiers.locks = static_cast<std::uint16_t>((XCB_MOD_MASK_LOCK | keyboard.modifierOf({kNumLockSymbol}) |
                                                  keyboard.modifierOf({kScrollLockSymbol})) &
                                                 ~held);
    return modifiers;
}

}  // namespace hotkey
