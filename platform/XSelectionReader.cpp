#include "platform/XSelectionReader.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/Text.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
template <class T>
using Reply = std::unique_ptr<T, Free>;

// The forms of text that are understood, best first.
constexpr std::array<const char *, 6> kTextTargets = {
    "UTF8_STRING", "text/plain;charset=utf-8", "text/plain;charset=UTF-8", "STRING", "TEXT", "text/plain"};

std::string fromLatin1(std::string_view bytes) {
    return toUtf8(QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size())));
}

class Reader {
  public:
    Reader(const PasteboardLimits &limits, std::stop_token stop)
        : limits_(limits),
          stop_(std::move(stop)),
          end_(Clock::now() + limits.whole),
          connection_(xcb_connect(nullptr, &screenNumber_)) {}
    ~Reader() { xcb_disconnect(connection_); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    PasteboardText read() {
        if (xcb_connection_has_error(connection_)) return {PasteboardText::State::kNoAccess, {}};
        makeWindow();
        const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
            connection_, xcb_get_selection_owner(connection_, atom("CLIPBOARD")), nullptr));
        if (!owner) return {PasteboardText::State::kNoAccess, {}};
        if (owner->owner == XCB_NONE)
            return {.state = PasteboardText::State::kNoText, .text = {}, .isOwned = false};

        const auto targets = convert(atom("TARGETS"));
        if (!targets.answered) return {PasteboardText::State::kNoAnswer, {}};
        bool hasText = !targets.bytes;
        for (const char *name : kTextTargets) {
            const xcb_atom_t target = atom(name);
            // An owner that does not tell its targets is asked for the plain ones all the same.
            if (!targets.bytes ? (target != atom("UTF8_STRING") && target != XCB_ATOM_STRING)
                               : !holds(*targets.bytes, target)) {
                continue;
            }
            hasText = true;
            const auto text = convert(target);
            if (text.isTooLarge) return {PasteboardText::State::kTooLarge, {}};
            if (!text.answered) return {PasteboardText::State::kNoAnswer, {}};
            if (!text.bytes) continue;
            return {PasteboardText::State::kText, decoded(*text.bytes, text.type)};
        }
        return {hasText ? PasteboardText::State::kRefused : PasteboardText::State::kNoText, {}};
    }

  private:
    struct Conversion {
        bool answered = false;  // the owner said all that it had to say in time
        bool isTooLarge = false;
        std::optional<std::string> bytes;  // what it sent, unless it refused
        xcb_atom_t type = XCB_NONE;
    };

    static bool holds(const std::string &atoms, xcb_atom_t wanted) {
        for (std::size_t at = 0; at + sizeof wanted <= atoms.size(); at += sizeof wanted) {
            xcb_atom_t one = XCB_NONE;
            std::memcpy(&one, atoms.data() + at, sizeof one);
            if (one == wanted) return true;
        }
        return false;
    }

    std::string decoded(const std::string &bytes, xcb_atom_t type) {
        if (type == XCB_ATOM_STRING) return fromLatin1(bytes);
        return isValidUtf8(bytes) ? bytes : toUtf8(toQString(bytes));
    }

    xcb_atom_t atom(std::string_view name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
        return reply ? reply->atom : XCB_NONE;
    }

    void makeWindow() {
        auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection_));
        for (int i = 0; i < screenNumber_ && screen.rem > 1; ++i) xcb_screen_next(&screen);
        window_ = xcb_generate_id(connection_);
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen.data->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
        property_ = atom("QUILLERY_CLIPBOARD");
    }

    // The next event before the time limit, or nothing.
    Reply<xcb_generic_event_t> nextEvent() {
        const auto end = std::min(Clock::now() + limits_.silence, end_);
        for (;;) {
            // First: an owner that never ends always has an event waiting.
            if (stop_.stop_requested() || Clock::now() >= end_) return nullptr;
            if (auto *event = xcb_poll_for_event(connection_)) return Reply<xcb_generic_event_t>(event);
            if (xcb_connection_has_error(connection_)) return nullptr;
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0) return nullptr;
            pollfd descriptor = {xcb_get_file_descriptor(connection_), POLLIN, 0};
            poll(&descriptor, 1, static_cast<int>(std::min<long long>(left, 100)));
        }
    }

    bool waitForNewProperty() {
        while (auto event = nextEvent()) {
            if ((event->response_type & 0x7F) != XCB_PROPERTY_NOTIFY) continue;
            const auto *notify = reinterpret_cast<xcb_property_notify_event_t *>(event.get());
            if (notify->atom == property_ && notify->state == XCB_PROPERTY_NEW_VALUE) return true;
        }
        return false;
    }

    // Takes the property off the window, appends it to `bytes`, up to what is read at most, and returns its
    // type, or none if there is no property. Nothing if the X server did not give it.
    std::optional<xcb_atom_t> takeProperty(std::string &bytes) {
        constexpr std::uint32_t kWordsAtOnce = 256 * 1024;
        xcb_atom_t type = XCB_NONE;
        for (std::uint32_t offset = 0;; offset += kWordsAtOnce) {
            const Reply<xcb_get_property_reply_t> reply(
                xcb_get_property_reply(connection_,
                                       xcb_get_property(connection_, 0, window_, property_,
                                                        XCB_GET_PROPERTY_TYPE_ANY, offset, kWordsAtOnce),
                                       nullptr));
            if (!reply) return std::nullopt;
            if (reply->type == XCB_NONE) break;
            type = reply->type;
            bytes.append(static_cast<const char *>(xcb_get_property_value(reply.get())),
                         static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
            if (reply->bytes_after == 0 || bytes.size() > limits_.bytes) break;
        }
        xcb_delete_property(connection_, window_, property_);
        xcb_flush(connection_);
        return type;
    }

    Conversion convert(xcb_atom_t target) {
        Conversion result;
        xcb_convert_selection(connection_, window_, atom("CLIPBOARD"), target, property_, XCB_CURRENT_TIME);
        xcb_flush(connection_);
        for (;;) {
            const auto event = nextEvent();
            if (!event) return result;
            if ((event->response_type & 0x7F) != XCB_SELECTION_NOTIFY) continue;
            const auto *notify = reinterpret_cast<xcb_selection_notify_event_t *>(event.get());
            if (notify->target != target) continue;  // a late answer to the question before
            result.answered = true;
            if (notify->property == XCB_NONE) return result;
            break;
        }
        std::string bytes;
        std::optional<xcb_atom_t> type = takeProperty(bytes);
        if (type == atom("INCR")) {
            result.type = target;
            bytes.clear();
            // Parts follow, each when the one before has been taken off; an empty one is the end.
            for (std::size_t before = 0; bytes.size() <= limits_.bytes; before = bytes.size()) {
                type = waitForNewProperty() ? takeProperty(bytes) : std::nullopt;
                if (!type || bytes.size() == before) break;
                if (*type != XCB_NONE) result.type = *type;
            }
        } else {
            result.type = type.value_or(XCB_NONE);
        }
        result.answered = type.has_value();
        result.isTooLarge = bytes.size() > limits_.bytes;
        if (result.answered && result.type != XCB_NONE) result.bytes = std::move(bytes);
        return result;
    }

    PasteboardLimits limits_;
    std::stop_token stop_;
    Clock::time_point end_;
    int screenNumber_ = 0;
    xcb_connection_t *connection_;
    xcb_window_t window_ = XCB_NONE;
    xcb_atom_t property_ = XCB_NONE;
};

}  // namespace

PasteboardText readXSelection(const PasteboardLimits &limits, std::stop_token stop) {
    try {
        return Reader(limits, std::move(stop)).read();
    } catch (const std::bad_alloc &) {
        return {PasteboardText::State::kTooLarge, {}};
    }
}
