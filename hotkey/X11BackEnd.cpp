#include "hotkey/X11BackEnd.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "hotkey/Deliveries.h"
#include "hotkey/KeyCodes.h"
#include "hotkey/X11Connection.h"
#include "hotkey/X11Grabs.h"
#include "hotkey/X11Modifiers.h"

namespace hotkey {
namespace {

constexpr std::uint16_t kModifierBits = 0xff;  // of an event's state; above are the pointer's buttons

// While a combination is held its release is usually reported. It is not when the grab ended before, for
// instance with the key of another combination that was held, too; so the keys are looked at now and then. A
// person does not notice this delay.
constexpr std::chrono::milliseconds kHeldKeysCheckInterval{40};

// A keyboard changes in several steps, between which a combination may be away for a moment. Only what stays
// away longer is reported.
constexpr std::chrono::milliseconds kKeyAwayLimit{2000};

constexpr const char *kConnectionLost = "the connection to the X server was lost";
constexpr const char *kModifierMissing = "this keyboard lacks the Command (Super) or the Option (Alt) key";

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
        awayCheck_.setSingleShot(true);
        awayCheck_.setInterval(kKeyAwayLimit);
        QObject::connect(&awayCheck_, &QTimer::timeout, &context_, [this] { reportAway(); });
        readEvents();  // whatever came along with the first replies
    }

    void installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) override {
        releasedHandler_ = std::move(released);
        lostHandler_ = std::move(lost);
        regainedHandler_ = std::move(regained);
    }

    Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                     HotKeyIdentifier identifier, const std::string & /*purpose*/) override {
        readEvents();
        if (isLost()) return {std::nullopt, kConnectionLost};

        const std::optional<std::uint16_t> inputCode = inputCodeFromKeyCode(keyCode);
        const int keycode = inputCode ? *inputCode + kInputCodeToKeycode : 0;
        const xcb_setup_t *setup = xcb_get_setup(connection_.get());
        if (!inputCode || keycode < setup->min_keycode || keycode > setup->max_keycode)
            return {std::nullopt, "no key of this keyboard has the key code " + std::to_string(keyCode)};

        HotKey hotKey{static_cast<xcb_keycode_t>(keycode), modifiers, identifier,
                      modifiers_.statesFor(modifiers)};
        if (hotKey.states.empty()) return {std::nullopt, kModifierMissing};
        if (isTakenByOurselves(hotKey))
            return {std::nullopt, "this program has registered the combination already"};

        std::string failure = grabKey(connection_.get(), root_, hotKey.keycode, hotKey.states);
        readEvents();
        if (isLost()) return {std::nullopt, kConnectionLost};
        if (!failure.empty()) return {std::nullopt, std::move(failure)};
        const VkHotKeyRef ref = newRef();
        hotKeys_.emplace(ref, std::move(hotKey));
        return {ref, {}};
    }

    bool isLost() const override { return xcb_connection_has_error(connection_.get()) != 0; }

    void unregisterEventHotKey(VkHotKeyRef ref) override {
        const auto hotKey = hotKeys_.find(ref);
        if (hotKey == hotKeys_.end()) return;
        ungrabKey(connection_.get(), root_, hotKey->second.keycode, hotKey->second.states);
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
        std::string reasonAway = {};  // why there are none
        bool isReportedAway = false;
    };
    struct HeldKey {
        VkHotKeyRef ref;
        bool wasPressedAgain;  // by auto-repeat, since the last look at the keys
    };

    bool isTakenByOurselves(const HotKey &wanted) const {
        return std::ranges::any_of(hotKeys_, [&](const auto &entry) {
            const HotKey &other = entry.second;
            return other.keycode == wanted.keycode &&
                   std::ranges::find_first_of(other.states, wanted.states) != other.states.end();
        });
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
            for (const auto &[ref, hotKey] : hotKeys_) report({ref, kConnectionLost, false});
            hotKeys_.clear();
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
        const ReleasedEvent event{hotKeys_.at(ref).identifier, location, modifiers_.serviceMaskFor(state),
                                  std::chrono::milliseconds(time)};
        deliveries_.post([event, handler = releasedHandler_] {
            if (handler) handler(event);
        });
    }

    void report(LossNotice notice) {
        deliveries_.post([notice = std::move(notice), handler = lostHandler_] {
            if (handler) handler(notice);
        });
    }

    /// Follows modifiers that moved, and tries again what is away.
    void adaptToKeyboard() {
        const std::optional<X11Modifiers> current = readX11Modifiers(connection_.get());
        if (!current) return;
        const bool haveModifiersMoved = *current != modifiers_;
        modifiers_ = *current;
        for (auto &[ref, hotKey] : hotKeys_)
            if (haveModifiersMoved || hotKey.states.empty()) adapt(ref, hotKey);
        if (std::ranges::any_of(hotKeys_, [](const auto &entry) { return entry.second.states.empty(); }))
            awayCheck_.start();
    }

    /// Takes the states that stand for the combination now, then gives back those that did before.
    void adapt(VkHotKeyRef ref, HotKey &hotKey) {
        const States wanted = modifiers_.statesFor(hotKey.modifiers);
        hotKey.reasonAway = wanted.empty() ? kModifierMissing
                                           : grabKey(connection_.get(), root_, hotKey.keycode,
                                                     without(wanted, hotKey.states));
        const bool isTaken = hotKey.reasonAway.empty();
        ungrabKey(connection_.get(), root_, hotKey.keycode,
                  isTaken ? without(hotKey.states, wanted) : hotKey.states);
        hotKey.states = isTaken ? wanted : States{};
        if (!isTaken || !std::exchange(hotKey.isReportedAway, false)) return;
        deliveries_.post([ref, handler = regainedHandler_] {
            if (handler) handler(ref);
        });
    }

    void reportAway() {
        for (auto &[ref, hotKey] : hotKeys_) {
            if (hotKey.states.empty()) adapt(ref, hotKey);  // another program may have let go of it
            if (!hotKey.states.empty() || hotKey.isReportedAway) continue;
            hotKey.isReportedAway = true;
            report({ref, "a change of the keyboard took the combination away: " + hotKey.reasonAway, true});
        }
        readEvents();
    }

    Connection connection_;
    xcb_window_t root_;
    std::uint8_t xkbFirstEvent_;
    X11Modifiers modifiers_;
    ReleasedHandler releasedHandler_;
    LostHandler lostHandler_;
    RegainedHandler regainedHandler_;
    std::map<VkHotKeyRef, HotKey> hotKeys_;
    std::map<xcb_keycode_t, HeldKey> held_;
    Deliveries deliveries_;
    xcb_timestamp_t lastEventTime_ = 0;
    QObject context_;
    QSocketNotifier notifier_;
    QTimer heldKeysCheck_;
    QTimer awayCheck_;
};

}  // namespace

OpenedBackEnd openX11BackEnd(const std::string &display) {
    const auto failed = [](std::string reason) { return OpenedBackEnd{nullptr, std::move(reason)}; };
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
    if (xkbFirstEvent == 0 || !detectAutoRepeat(connection.get()))
        return failed("the X server " + name + " lacks the keyboard extension XKB");
    const std::optional<X11Modifiers> modifiers = readX11Modifiers(connection.get());
    if (!modifiers) return failed(kConnectionLost);
    return {
        std::make_unique<X11BackEnd>(std::move(connection), screens.data->root, xkbFirstEvent, *modifiers),
        {}};
}

}  // namespace hotkey
