#include "hotkey/X11BackEnd.h"

#include <QCoreApplication>
#include <QObject>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <map>
#include <vector>

#include <xcb/xcb.h>
// A field of this C header is called `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "hotkey/KeyCodes.h"
#include "hotkey/Log.h"
#include "hotkey/X11Modifiers.h"

namespace hotkey {
namespace {

using States = std::vector<std::uint16_t>;

template <typename T>
using CPointer = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
CPointer<T> owned(T *allocated) {
    return {allocated, &std::free};
}

struct Disconnect {
    void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

constexpr std::uint16_t kInputCodeToKeycode = 8;  // X key codes count from here
constexpr std::uint16_t kModifierBits = 0xff;     // of an event's state; above are the pointer's buttons

// While a combination is held its release is usually reported. It is not when the grab ended before, for
// instance with the key of another combination that was held, too; so the keys are looked at now and then. A
// person does not notice this delay.
constexpr std::chrono::milliseconds kHeldKeysCheckInterval{40};

constexpr const char *kConnectionLost = "the connection to the X server was lost";

/// Switches this connection to detectable auto-repeat, so that a held key has one release, and asks for
/// notices of a changed keyboard. Returns the first event number of the extension, 0 if it is not there.
std::uint8_t startXkb(xcb_connection_t *connection) {
    const auto use = xcb_xkb_use_extension(connection, XCB_XKB_MAJOR_VERSION, XCB_XKB_MINOR_VERSION);
    const auto used = owned(xcb_xkb_use_extension_reply(connection, use, nullptr));
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(connection, &xcb_xkb_id);
    if (!used || !used->supported || !extension || !extension->present) return 0;

    constexpr std::uint32_t kRepeat = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
    const auto set = xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD, kRepeat, kRepeat, 0, 0, 0);
    const auto flags = owned(xcb_xkb_per_client_flags_reply(connection, set, nullptr));
    if (!flags || !(flags->value & kRepeat)) return 0;

    constexpr std::uint16_t kEvents = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    constexpr std::uint16_t kParts = XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    xcb_xkb_select_events(connection, XCB_XKB_ID_USE_CORE_KBD, kEvents, 0, kEvents, kParts, kParts, nullptr);
    return extension->first_event;
}

class X11BackEnd final : public BackEnd {
  public:
    X11BackEnd(Connection connection, xcb_window_t root, std::uint8_t xkbFirstEvent, X11Modifiers modifiers)
        : connection_(std::move(connection)),
          root_(root),
          xkbFirstEvent_(xkbFirstEvent),
          modifiers_(modifiers),
          notifier_(xcb_get_file_descriptor(connection_.get()), QSocketNotifier::Read) {
        QObject::connect(&notifier_, &QSocketNotifier::activated, &context_, [this] { readEvents(); });
        heldKeysCheck_.setInterval(kHeldKeysCheckInterval);
        QObject::connect(&heldKeysCheck_, &QTimer::timeout, &context_, [this] { findMissedReleases(); });
        readEvents();  // whatever came along with the first replies
    }

    void installEventHandler(ReleasedHandler handler) override { handler_ = std::move(handler); }

    Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                     HotKeyIdentifier identifier) override {
        readEvents();
        if (isLost()) return {std::nullopt, kConnectionLost};

        const std::optional<std::uint16_t> inputCode = inputCodeFromKeyCode(keyCode);
        const int keycode = inputCode ? *inputCode + kInputCodeToKeycode : 0;
        const xcb_setup_t *setup = xcb_get_setup(connection_.get());
        if (!inputCode || keycode < setup->min_keycode || keycode > setup->max_keycode)
            return {std::nullopt, "no key of this keyboard has the key code " + std::to_string(keyCode)};

        HotKey hotKey{static_cast<xcb_keycode_t>(keycode), modifiers, identifier,
                      modifiers_.statesFor(modifiers)};
        if (hotKey.states.empty())
            return {std::nullopt, "this keyboard lacks the Command (Super) or the Option (Alt) key"};
        if (isTakenByOurselves(hotKey))
            return {std::nullopt, "this program has registered the combination already"};

        std::string failure = grab(hotKey.keycode, hotKey.states);
        readEvents();
        if (isLost()) return {std::nullopt, kConnectionLost};
        if (!failure.empty()) return {std::nullopt, std::move(failure)};
        hotKeys_.emplace(++lastRef_, std::move(hotKey));
        return {lastRef_, {}};
    }

    void unregisterEventHotKey(VkHotKeyRef ref) override {
        const auto hotKey = hotKeys_.find(ref);
        if (hotKey == hotKeys_.end()) return;
        ungrab(hotKey->second.keycode, hotKey->second.states);
        hotKeys_.erase(hotKey);
        std::erase_if(held_, [ref](const auto &held) { return held.second.ref == ref; });
        readEvents();
    }

  private:
    struct HotKey {
        xcb_keycode_t keycode;
        std::uint32_t modifiers;  // service mask
        HotKeyIdentifier identifier;
        States states;  // those that are grabbed; empty while the keyboard or another program leaves none
    };
    struct HeldKey {
        VkHotKeyRef ref;
        bool wasPressedAgain;  // by auto-repeat, since the last look at the keys
    };

    bool isLost() const { return xcb_connection_has_error(connection_.get()) != 0; }

    bool isTakenByOurselves(const HotKey &wanted) const {
        return std::ranges::any_of(hotKeys_, [&](const auto &entry) {
            const HotKey &other = entry.second;
            return other.keycode == wanted.keycode &&
                   std::ranges::find_first_of(other.states, wanted.states) != other.states.end();
        });
    }

    /// Grabs the key in all the states, or in none and says why.
    std::string grab(xcb_keycode_t keycode, const States &states) {
        std::vector<xcb_void_cookie_t> requests;
        for (const std::uint16_t state : states)
            requests.push_back(xcb_grab_key_checked(connection_.get(), false, root_, state, keycode,
                                                    XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        States granted;
        std::string failure;
        for (std::size_t i = 0; i < states.size(); ++i) {
            const auto error = owned(xcb_request_check(connection_.get(), requests[i]));
            if (!error)
                granted.push_back(states[i]);
            else if (error->error_code == XCB_ACCESS)
                failure = "another program has taken the combination";
            else
                failure =
                    "the X server refused the combination with error " + std::to_string(error->error_code);
        }
        if (!failure.empty()) ungrab(keycode, granted);
        return failure;
    }

    void ungrab(xcb_keycode_t keycode, const States &states) {
        std::vector<xcb_void_cookie_t> requests;
        for (const std::uint16_t state : states)
            requests.push_back(xcb_ungrab_key_checked(connection_.get(), keycode, root_, state));
        for (const xcb_void_cookie_t request : requests) owned(xcb_request_check(connection_.get(), request));
    }

    /// Handles all events that are there. To be called after everything that waits for a reply, too: the
    /// events that arrived with the reply are no longer in the socket, where the notifier would see them.
    void readEvents() {
        bool keyboardChanged = false;
        do {
            if (keyboardChanged) adaptToKeyboard();
            keyboardChanged = false;
            while (const auto event = owned(xcb_poll_for_event(connection_.get())))
                keyboardChanged |= handleEvent(*event);
        } while (keyboardChanged);

        if (isLost() && notifier_.isEnabled()) {
            notifier_.setEnabled(false);  // its socket stays readable for ever
            held_.clear();
            logLine(std::string("hot key: ") + kConnectionLost);
        }
        if (held_.empty()) heldKeysCheck_.stop();
    }

    /// Returns whether the keyboard may have changed.
    bool handleEvent(const xcb_generic_event_t &event) {
        const std::uint8_t type = event.response_type & 0x7f;
        if (type == XCB_KEY_PRESS)
            handlePress(reinterpret_cast<const xcb_key_press_event_t &>(event));
        else if (type == XCB_KEY_RELEASE)
            handleRelease(reinterpret_cast<const xcb_key_release_event_t &>(event));
        return type == XCB_MAPPING_NOTIFY || type == xkbFirstEvent_;
    }

    void handlePress(const xcb_key_press_event_t &event) {
        lastEventTime_ = event.time;
        if (const auto held = held_.find(event.detail); held != held_.end()) {
            held->second.wasPressedAgain = true;
            return;
        }
        for (const auto &[ref, hotKey] : hotKeys_) {
            if (hotKey.keycode != event.detail) continue;
            if (std::ranges::find(hotKey.states, event.state & kModifierBits) == hotKey.states.end())
                continue;
            held_.emplace(event.detail, HeldKey{ref, false});
            if (!heldKeysCheck_.isActive()) heldKeysCheck_.start();
            return;
        }
    }

    void handleRelease(const xcb_key_release_event_t &event) {
        lastEventTime_ = event.time;
        const auto held = held_.find(event.detail);
        if (held == held_.end()) return;
        fire(held->second.ref, {event.root_x, event.root_y}, event.state, event.time);
        held_.erase(held);
    }

    void findMissedReleases() {
        for (auto &[keycode, held] : held_) held.wasPressedAgain = false;
        const auto keysRequest = xcb_query_keymap(connection_.get());
        const auto pointerRequest = xcb_query_pointer(connection_.get(), root_);
        const auto keys = owned(xcb_query_keymap_reply(connection_.get(), keysRequest, nullptr));
        const auto pointer = owned(xcb_query_pointer_reply(connection_.get(), pointerRequest, nullptr));
        readEvents();  // a release that is reported is not missed
        if (!keys || !pointer) return;

        std::erase_if(held_, [&](const auto &entry) {
            const auto &[keycode, held] = entry;
            const bool isDown = keys->keys[keycode / 8] & (1 << (keycode % 8));
            if (isDown || held.wasPressedAgain) return false;
            fire(held.ref, {pointer->root_x, pointer->root_y}, pointer->mask, lastEventTime_);
            return true;
        });
        if (held_.empty()) heldKeysCheck_.stop();
    }

    /// Leaves the hot key for the event loop to deliver: its handler may run an event loop of its own, for
    /// instance for an alert, and neither the events read together with this one nor later ones should wait
    /// for its end.
    void fire(VkHotKeyRef ref, QPoint location, std::uint16_t state, xcb_timestamp_t time) {
        const bool isAwaited = !released_.empty();
        released_.push_back({hotKeys_.at(ref).identifier, location, modifiers_.serviceMaskFor(state),
                             std::chrono::milliseconds(time)});
        if (!isAwaited) deliverSoon();
    }

    void deliverSoon() {
        QMetaObject::invokeMethod(
            &context_, [this] { deliverOne(); }, Qt::QueuedConnection);
    }

    void deliverOne() {
        const ReleasedEvent event = released_.front();
        released_.pop_front();
        // Asked for anew each time: GLib's event loop, when it runs inside another, leaves out what was
        // queued before.
        if (!released_.empty()) deliverSoon();
        const ReleasedHandler handler = handler_;  // may end this object
        if (handler) handler(event);
    }

    /// Follows modifiers that moved: takes the new states of every hot key, then gives back the old ones.
    void adaptToKeyboard() {
        const std::optional<X11Modifiers> current = readX11Modifiers(connection_.get());
        if (!current || *current == modifiers_) return;
        modifiers_ = *current;
        for (auto &[ref, hotKey] : hotKeys_) {
            const States wanted = modifiers_.statesFor(hotKey.modifiers);
            const std::string failure = grab(hotKey.keycode, without(wanted, hotKey.states));
            ungrab(hotKey.keycode, failure.empty() ? without(hotKey.states, wanted) : hotKey.states);
            hotKey.states = failure.empty() ? wanted : States{};
            if (!hotKey.states.empty()) continue;
            logLine("hot key: a change of the keyboard took a combination away" +
                    (failure.empty() ? std::string() : ": " + failure));
        }
    }

    static States without(const States &states, const States &removed) {
        States left;
        for (const std::uint16_t state : states)
            if (std::ranges::find(removed, state) == removed.end()) left.push_back(state);
        return left;
    }

    Connection connection_;
    xcb_window_t root_;
    std::uint8_t xkbFirstEvent_;
    X11Modifiers modifiers_;
    ReleasedHandler handler_;
    std::map<VkHotKeyRef, HotKey> hotKeys_;
    VkHotKeyRef lastRef_ = 0;
    std::map<xcb_keycode_t, HeldKey> held_;
    std::deque<ReleasedEvent> released_;  // not delivered yet
    xcb_timestamp_t lastEventTime_ = 0;
    QObject context_;
    QSocketNotifier notifier_;
    QTimer heldKeysCheck_;
};

}  // namespace

OpenedBackEnd openX11BackEnd(const std::string &display) {
    const auto failed = [](std::string reason) { return OpenedBackEnd{nullptr, std::move(reason)}; };
    const QCoreApplication *application = QCoreApplication::instance();
    if (!application || application->thread() != QThread::currentThread())
        return failed("hot keys need the main thread of a running application");

    const char *environment = std::getenv("DISPLAY");
    const std::string name = !display.empty() ? display : environment ? environment : "";
    if (name.empty())
        return failed(std::getenv("WAYLAND_DISPLAY") ? "this Wayland session has no X server"
                                                     : "there is no X server: DISPLAY is not set");
    int screenNumber = 0;
    Connection connection(xcb_connect(name.c_str(), &screenNumber));
    if (xcb_connection_has_error(connection.get())) return failed("cannot connect to the X server " + name);

    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    while (screenNumber-- > 0 && screens.rem > 1) xcb_screen_next(&screens);
    const std::uint8_t xkbFirstEvent = startXkb(connection.get());
    if (xkbFirstEvent == 0) return failed("the X server " + name + " lacks the keyboard extension XKB");
    const std::optional<X11Modifiers> modifiers = readX11Modifiers(connection.get());
    if (!modifiers) return failed(kConnectionLost);
    return {
        std::make_unique<X11BackEnd>(std::move(connection), screens.data->root, xkbFirstEvent, *modifiers),
        {}};
}

}  // namespace hotkey
