#include "hotkey/KeyboardLayout.h"

#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <mutex>
#include <span>

#include "hotkey/KeyCodes.h"
#include "hotkey/X11Connection.h"

namespace hotkey {
namespace {

struct Unreference {
    void operator()(xkb_context *context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap *keymap) const { xkb_keymap_unref(keymap); }
};
using Context = std::unique_ptr<xkb_context, Unreference>;
using Keymap = std::unique_ptr<xkb_keymap, Unreference>;

Context newContext() {
    Context context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (context) xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    return context;
}

Keymap keymapOfEnvironment(xkb_context *context) {
    return Keymap(context ? xkb_keymap_new_from_names(context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS)
                          : nullptr);
}

/// The keyboard of one X server, or of the environment.
class Keyboard {
  public:
    explicit Keyboard(std::string display) : display_(std::move(display)), context_(newContext()) {
        if (!display_.empty()) connection_.reset(xcb_connect(display_.c_str(), nullptr));
        xkbFirstEvent_ = isConnected() ? startXkb(connection_.get()) : 0;
        if (xkbFirstEvent_ == 0) connection_.reset();
        readKeymap();
    }

    const std::string &display() const { return display_; }
    /// Whether there is an X server to ask that is not asked.
    bool isCutOff() const { return !display_.empty() && !isConnected(); }

    /// Brings keymap and layout in force up to date.
    void refresh() {
        if (!isConnected()) return;
        group_ = layoutGroup(connection_.get());
        while (hasChanged()) readKeymap();
        if (!isConnected()) connection_.reset(), readKeymap();
    }

    /// What the key gives without modifiers on the layout in force.
    std::span<const xkb_keysym_t> symbolsOf(xkb_keycode_t key) const { return symbolsOf(key, group_); }

    /// The same on the first of all layouts that has a Latin letter or a key with a function there.
    std::span<const xkb_keysym_t> latinSymbolsOf(xkb_keycode_t key) const {
        const auto inForce = symbolsOf(key);
        if (isLatin(inForce) || !keymap_) return inForce;
        for (xkb_layout_index_t i = 0; i < xkb_keymap_num_layouts_for_key(keymap_.get(), key); ++i)
            if (const auto symbols = symbolsOf(key, i); isLatin(symbols)) return symbols;
        return inForce;
    }

  private:
    static bool isLatin(std::span<const xkb_keysym_t> symbols) {
        if (symbols.empty()) return false;
        const xkb_keysym_t symbol = symbols[0];
        const bool isFunction = (symbol >= 0xfd00 && symbol <= 0xffff) || symbol >= 0x1000'0000;
        return symbol <= 0xff || isFunction;
    }

    bool isConnected() const { return connection_ && !xcb_connection_has_error(connection_.get()); }

    bool hasChanged() {
        bool changed = false;
        while (const auto event = owned(xcb_poll_for_event(connection_.get()))) {
            const std::uint8_t type = event->response_type & 0x7f;
            changed |= type == XCB_MAPPING_NOTIFY || type == xkbFirstEvent_;
        }
        return changed;
    }

    void readKeymap() {
        keymap_.reset();
        if (isConnected() && context_) {
            const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection_.get());
            keymap_.reset(xkb_x11_keymap_new_from_device(context_.get(), connection_.get(), device,
                                                         XKB_KEYMAP_COMPILE_NO_FLAGS));
        }
        if (!keymap_) keymap_ = keymapOfEnvironment(context_.get()), group_ = 0;
    }

    std::span<const xkb_keysym_t> symbolsOf(xkb_keycode_t key, xkb_layout_index_t layout) const {
        const xkb_layout_index_t count = keymap_ ? xkb_keymap_num_layouts_for_key(keymap_.get(), key) : 0;
        if (count == 0) return {};
        layout %= count;
        const auto symbols = symbolsAtLevel(key, layout, 0);
        // A key of the number pad moves the cursor on its first level and has its digit on the second.
        const bool isOnPad =
            symbols.size() == 1 && symbols[0] >= XKB_KEY_KP_Home && symbols[0] <= XKB_KEY_KP_Delete;
        return isOnPad ? symbolsAtLevel(key, layout, 1) : symbols;
    }

    std::span<const xkb_keysym_t> symbolsAtLevel(xkb_keycode_t key, xkb_layout_index_t layout,
                                                 xkb_level_index_t level) const {
        const xkb_keysym_t *symbols = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap_.get(), key, layout, level, &symbols);
        return {symbols, static_cast<std::size_t>(count)};
    }

    std::string display_;
    Context context_;
    Connection connection_;  // none: the environment's keyboard
    std::uint8_t xkbFirstEvent_ = 0;
    Keymap keymap_;  // none where xkbcommon finds no description of the keyboard
    xkb_layout_index_t group_ = 0;
};

/// The keyboard as it is now, for the holder of this mutex.
std::mutex mutex;

const Keyboard &currentKeyboard() {
    static std::unique_ptr<Keyboard> keyboard;
    const char *environment = std::getenv("DISPLAY");
    const std::string display = environment ? environment : "";
    if (!keyboard || keyboard->display() != display || keyboard->isCutOff())
        keyboard = std::make_unique<Keyboard>(display);
    keyboard->refresh();
    return *keyboard;
}

xkb_keycode_t keycodeOf(std::uint16_t inputCode) {
    return static_cast<xkb_keycode_t>(inputCode) + kInputCodeToKeycode;
}

bool isReadable(std::uint32_t character) {
    return character >= 0x20 && (character < 0x7f || character > 0x9f);
}

}  // namespace

std::string textOfKey(std::uint16_t inputCode) {
    const std::lock_guard lock(mutex);
    std::string text;
    for (const xkb_keysym_t symbol : currentKeyboard().symbolsOf(keycodeOf(inputCode))) {
        char character[8] = "";
        if (!isReadable(xkb_keysym_to_utf32(symbol))) continue;
        if (xkb_keysym_to_utf8(symbol, character, sizeof character) > 0) text += character;
    }
    return text;
}

std::string symbolNameOfKey(std::uint16_t inputCode) {
    const std::lock_guard lock(mutex);
    const auto symbols = currentKeyboard().latinSymbolsOf(keycodeOf(inputCode));
    char name[64] = "";
    if (!symbols.empty()) xkb_keysym_get_name(symbols[0], name, sizeof name);
    return name;
}

}  // namespace hotkey
