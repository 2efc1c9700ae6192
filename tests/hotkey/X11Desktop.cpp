#include "hotkey/X11Desktop.h"

#include <xcb/xtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <vector>
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

namespace {

template <typename T>
std::unique_ptr<T, void (*)(void *)> owned(T *allocated) {
    return {allocated, &std::free};
}

constexpr int kModifierCount = 8;

}  // namespace

bool waitUntil(const std::function<bool()> &condition) {
    const QDeadlineTimer limit(10'000);
    QTimer wakeUp;
    wakeUp.start(10);
    while (!condition()) {
        if (limit.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

OtherXServer::OtherXServer() {
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start("Xvfb", {"-displayfd", "1", "-screen", "0", "64x64x24", "-nolisten", "tcp"});
    waitUntil([this] { return process.canReadLine(); });
    display = ":" + process.readLine().trimmed().toStdString();
}

X11Desktop::X11Desktop(const std::string &display)
    : connection_(xcb_connect(display.empty() ? nullptr : display.c_str(), nullptr), &xcb_disconnect),
      originalModifiers_(nullptr, &std::free) {
    xcb_connection_t *c = connection_.get();
    root_ = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    owned(xcb_xkb_use_extension_reply(c, xcb_xkb_use_extension(c, 1, 0), nullptr));
    originalModifiers_.reset(xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr));
}

X11Desktop::~X11Desktop() {
    if (xcb_connection_has_error(connection_.get())) return;
    for (int key = 0; key < 256; ++key)
        if (isDown_[key]) release({static_cast<std::uint8_t>(key)});
    lockModifiers(0);
    lockGroup(0);
    xcb_set_modifier_mapping(connection_.get(), originalModifiers_->keycodes_per_modifier,
                             xcb_get_modifier_mapping_keycodes(originalModifiers_.get()));
    sync();
}

void X11Desktop::fakeInput(std::uint8_t type, std::uint8_t detail, std::int16_t x, std::int16_t y) {
    xcb_test_fake_input(connection_.get(), type, detail, XCB_CURRENT_TIME, root_, x, y, 0);
    sync();
}

void X11Desktop::sync() {
    owned(xcb_get_input_focus_reply(connection_.get(), xcb_get_input_focus(connection_.get()), nullptr));
}

void X11Desktop::press(std::initializer_list<std::uint8_t> keys) {
    for (const std::uint8_t key : keys) isDown_[key] = true, fakeInput(XCB_KEY_PRESS, key);
}

void X11Desktop::release(std::initializer_list<std::uint8_t> keys) {
    for (const std::uint8_t key : keys) isDown_[key] = false, fakeInput(XCB_KEY_RELEASE, key);
}

void X11Desktop::movePointer(std::int16_t x, std::int16_t y) {
    fakeInput(XCB_MOTION_NOTIFY, 0, x, y);
}

void X11Desktop::lockModifiers(std::uint16_t mask) {
    xcb_xkb_latch_lock_state(connection_.get(), XCB_XKB_ID_USE_CORE_KBD, 0xff,
                             static_cast<std::uint8_t>(mask), 0, 0, 0, 0, 0);
    sync();
}

void X11Desktop::lockGroup(std::uint8_t group) {
    xcb_xkb_latch_lock_state(connection_.get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, group, 0, 0, 0);
    sync();
}

std::uint16_t X11Desktop::modifierState() {
    const auto pointer = owned(
        xcb_query_pointer_reply(connection_.get(), xcb_query_pointer(connection_.get(), root_), nullptr));
    return pointer->mask & 0xff;
}

void X11Desktop::putOnModifier(int modifier, std::initializer_list<std::uint8_t> keys) {
    const auto old = owned(xcb_get_modifier_mapping_reply(
        connection_.get(), xcb_get_modifier_mapping(connection_.get()), nullptr));
    const std::size_t oldWidth = old->keycodes_per_modifier, width = oldWidth + keys.size();
    std::vector<xcb_keycode_t> codes(kModifierCount * width);
    for (std::size_t row = 0; row < kModifierCount; ++row)
        for (std::size_t i = 0; i < oldWidth; ++i) {
            const xcb_keycode_t key = xcb_get_modifier_mapping_keycodes(old.get())[row * oldWidth + i];
            if (std::ranges::find(keys, key) == keys.end()) codes[row * width + i] = key;
        }
    std::ranges::copy(keys, codes.begin() + static_cast<std::ptrdiff_t>((modifier + 2) * width + oldWidth));
    const auto request =
        xcb_set_modifier_mapping(connection_.get(), static_cast<std::uint8_t>(width), codes.data());
    owned(xcb_set_modifier_mapping_reply(connection_.get(), request, nullptr));
}

bool X11Desktop::grab(std::uint16_t modifiers, std::uint8_t key) {
    return !owned(xcb_request_check(connection_.get(),
                                    xcb_grab_key_checked(connection_.get(), false, root_, modifiers, key,
                                                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
}

void X11Desktop::ungrab(std::uint16_t modifiers, std::uint8_t key) {
    owned(xcb_request_check(connection_.get(),
                            xcb_ungrab_key_checked(connection_.get(), key, root_, modifiers)));
}

void X11Desktop::focusOwnWindow() {
    const xcb_window_t window = xcb_generate_id(connection_.get());
    const std::uint32_t values[] = {true, XCB_EVENT_MASK_KEY_PRESS};
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window, root_, 0, 0, 50, 50, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_map_window(connection_.get(), window);
    xcb_set_input_focus(connection_.get(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    sync();
}

int X11Desktop::pressesSeen(std::uint8_t key) {
    sync();
    while (const auto event = owned(xcb_poll_for_event(connection_.get())))
        if ((event->response_type & 0x7f) == XCB_KEY_PRESS)
            ++pressesSeen_[reinterpret_cast<xcb_key_press_event_t &>(*event).detail];
    return pressesSeen_[key];
}
