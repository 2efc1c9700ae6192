#include "platform/WaylandSelection.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <wayland-client.h>

#include <qpa/qplatformnativeinterface.h>
#include <QGuiApplication>
#include <QWindow>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Descriptor.h"
#include "platform/Text.h"

namespace {

using Clock = std::chrono::steady_clock;

// The forms of text that are understood, best first.
constexpr std::array<const char *, 6> kTextTypes = {
    "text/plain;charset=utf-8", "text/plain;charset=UTF-8", "UTF8_STRING", "text/plain", "TEXT", "STRING"};
constexpr std::chrono::milliseconds kStartLimit{500};
constexpr int kTick = 100;  // ms between two looks at the limits

// Whether there is something to read by `end`.
bool waitForInput(int descriptor, Clock::time_point end, const std::stop_token &stop) {
    while (!stop.stop_requested()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) return false;
        pollfd wanted = {descriptor, POLLIN, 0};
        const int found = poll(&wanted, 1, static_cast<int>(std::min<long long>(left, kTick)));
        if (found > 0) return true;
        if (found < 0 && errno != EINTR) return false;
    }
    return false;
}

}  // namespace

// What the compositor tells of the clipboard. Its events lie in a queue of their own, which is gone through
// when Qt has read some and before each use, under the mutex.
class WaylandSelection::Device {
  public:
    explicit Device(wl_display *display)
        : display_(display),
          queue_(wl_display_create_queue(display)),
          ofQueue_(static_cast<wl_display *>(wl_proxy_create_wrapper(display))) {
        wl_proxy_set_queue(reinterpret_cast<wl_proxy *>(ofQueue_), queue_);
        registry_ = wl_display_get_registry(ofQueue_);
        static const wl_registry_listener kRegistry = {onGlobal, [](void *, wl_registry *, std::uint32_t) {}};
        wl_registry_add_listener(registry_, &kRegistry, this);
    }

    ~Device() {
        for (const auto &[offer, types] : offers_) wl_data_offer_destroy(offer);
        if (device_) wl_data_device_destroy(device_);
        if (manager_) wl_data_device_manager_destroy(manager_);
        if (seat_) wl_seat_destroy(seat_);
        wl_registry_destroy(registry_);
        wl_proxy_wrapper_destroy(ofQueue_);
        wl_event_queue_destroy(queue_);
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    // Takes up all that the compositor has said by now. False if it does not answer.
    bool catchUp(Clock::time_point end, const std::stop_token &stop) {
        const std::scoped_lock lock(mutex_);
        bool isAnswered = false;
        static const wl_callback_listener kDone = {
            [](void *answered, wl_callback *, std::uint32_t) { *static_cast<bool *>(answered) = true; }};
        const std::unique_ptr<wl_callback, decltype(&wl_callback_destroy)> callback(wl_display_sync(ofQueue_),
                                                                                    wl_callback_destroy);
        wl_callback_add_listener(callback.get(), &kDone, &isAnswered);
        while (!isAnswered) {
            if (wl_display_prepare_read_queue(display_, queue_) != 0) {
                if (wl_display_dispatch_queue_pending(display_, queue_) < 0) return false;
                continue;
            }
            wl_display_flush(display_);
            if (!waitForInput(wl_display_get_fd(display_), end, stop)) {
                wl_display_cancel_read(display_);
                return false;
            }
            if (wl_display_read_events(display_) < 0) return false;
            if (wl_display_dispatch_queue_pending(display_, queue_) < 0) return false;
        }
        return true;
    }

    // What Qt has read for this queue since. Does not wait.
    void takeUpEvents() {
        const std::unique_lock lock(mutex_, std::try_to_lock);  // a reader does the same
        if (lock) wl_display_dispatch_queue_pending(display_, queue_);
    }

    // Has the owner write the text into a pipe; `pipe` is the end to read. What is known without the owner
    // is returned.
    std::optional<PasteboardText> ask(int &pipe) {
        const std::scoped_lock lock(mutex_);
        if (!wasTold_) return PasteboardText{.state = PasteboardText::State::kNoAccess, .text = {}};
        if (!selection_)
            return PasteboardText{.state = PasteboardText::State::kNoText, .text = {}, .isOwned = false};
        const std::set<std::string> &types = offers_[selection_];
        const auto *type =
            std::ranges::find_if(kTextTypes, [&](const char *one) { return types.contains(one); });
        if (type == kTextTypes.end()) return PasteboardText{};
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return PasteboardText{.state = PasteboardText::State::kNoAnswer, .text = {}};
        wl_data_offer_receive(selection_, *type, ends[1]);
        wl_display_flush(display_);
        close(ends[1]);
        pipe = ends[0];
        return std::nullopt;
    }

  private:
    static void onGlobal(void *self, wl_registry *registry, std::uint32_t name, const char *interface,
                         std::uint32_t) {
        auto &device = *static_cast<Device *>(self);
        const std::string_view offered = interface;
        if (offered == wl_seat_interface.name && !device.seat_) {
            device.seat_ = static_cast<wl_seat *>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
        } else if (offered == wl_data_device_manager_interface.name && !device.manager_) {
            device.manager_ = static_cast<wl_data_device_manager *>(
                wl_registry_bind(registry, name, &wl_data_device_manager_interface, 1));
        }
        if (device.device_ || !device.seat_ || !device.manager_) return;
        device.device_ = wl_data_device_manager_get_data_device(device.manager_, device.seat_);
        wl_data_device_add_listener(device.device_, &kDevice, self);
    }

    static void onOffer(void *self, wl_data_device *, wl_data_offer *offer) {
        static_cast<Device *>(self)->offers_[offer] = {};
        wl_data_offer_add_listener(offer, &kOffer, self);
    }

    static void onType(void *self, wl_data_offer *offer, const char *type) {
        static_cast<Device *>(self)->offers_[offer].insert(type);
    }

    static void onSelection(void *self, wl_data_device *, wl_data_offer *offer) {
        auto &device = *static_cast<Device *>(self);
        device.wasTold_ = true;
        device.drop(std::exchange(device.selection_, offer));
    }

    static void onDragEnter(void *self, wl_data_device *, std::uint32_t, wl_surface *, wl_fixed_t, wl_fixed_t,
                            wl_data_offer *offer) {
        auto &device = *static_cast<Device *>(self);
        device.drop(std::exchange(device.dragged_, offer));
    }

    static void onDragLeave(void *self, wl_data_device *) {
        auto &device = *static_cast<Device *>(self);
        device.drop(std::exchange(device.dragged_, nullptr));
    }

    void drop(wl_data_offer *offer) {
        if (!offer) return;
        offers_.erase(offer);
        wl_data_offer_destroy(offer);
    }

    static constexpr wl_data_device_listener kDevice = {
        onOffer,     onDragEnter,
        onDragLeave, [](void *, wl_data_device *, std::uint32_t, wl_fixed_t, wl_fixed_t) {},
        onDragLeave,  // a drop
        onSelection,
    };
    // The rest comes with later versions of the protocol only.
    static constexpr wl_data_offer_listener kOffer = {onType, nullptr, nullptr};

    wl_display *const display_;  // Qt's
    wl_event_queue *const queue_;
    wl_display *const ofQueue_;
    wl_registry *registry_ = nullptr;
    std::mutex mutex_;
    wl_seat *seat_ = nullptr;
    wl_data_device_manager *manager_ = nullptr;
    wl_data_device *device_ = nullptr;
    std::map<wl_data_offer *, std::set<std::string>> offers_;  // with the types of each
    wl_data_offer *selection_ = nullptr;
    wl_data_offer *dragged_ = nullptr;
    bool wasTold_ = false;  // what the clipboard holds, or that it is empty
};

WaylandSelection::WaylandSelection(std::unique_ptr<Device> device) : device_(std::move(device)) {
    // Each change of the focus brings events, which would pile up until the next read.
    QObject::connect(qGuiApp, &QGuiApplication::focusWindowChanged, &context_,
                     [this] { device_->takeUpEvents(); });
}

WaylandSelection::~WaylandSelection() = default;

std::unique_ptr<WaylandSelection> WaylandSelection::ofThisDesktop() {
    if (!QGuiApplication::platformName().startsWith(u"wayland")) return nullptr;
    auto *display = static_cast<wl_display *>(
        QGuiApplication::platformNativeInterface()->nativeResourceForIntegration("wl_display"));
    if (!display) return nullptr;
    auto device = std::make_unique<Device>(display);
    // A compositor may tell of the clipboard only who has asked before the focus came: so the device is to be
    // there before the first window. The first answer brings what to ask, the second that it was asked.
    const auto end = Clock::now() + kStartLimit;
    for (int i = 0; i < 2; ++i) device->catchUp(end, {});
    return std::unique_ptr<WaylandSelection>(new WaylandSelection(std::move(device)));
}

PasteboardText WaylandSelection::read(const PasteboardLimits &limits, const std::stop_token &stop) const {
    if (!device_->catchUp(Clock::now() + limits.silence, stop)) return {PasteboardText::State::kNoAnswer, {}};
    int pipe = -1;
    if (auto known = device_->ask(pipe)) return *known;
    return readPipe(pipe, limits, stop);
}

PasteboardText readPipe(int descriptor, const PasteboardLimits &limits, const std::stop_token &stop) {
    const Descriptor pipe(descriptor);
    const auto end = Clock::now() + limits.whole;
    try {
        std::string bytes;
        std::string room(64UL * 1024, '\0');
        while (waitForInput(pipe.get(), std::min(Clock::now() + limits.silence, end), stop)) {
            const ssize_t count = ::read(pipe.get(), room.data(), room.size());
            if (count < 0) break;
            // Nothing at all is what comes from an owner that has ended.
            if (count == 0 && bytes.empty()) return {PasteboardText::State::kRefused, {}};
            if (count == 0)
                return {PasteboardText::State::kText, isValidUtf8(bytes) ? bytes : toUtf8(toQString(bytes))};
            bytes.append(room.data(), static_cast<std::size_t>(count));
            if (bytes.size() > limits.bytes) return {PasteboardText::State::kTooLarge, {}};
        }
        return {PasteboardText::State::kNoAnswer, {}};
    } catch (const std::bad_alloc &) {
        return {PasteboardText::State::kTooLarge, {}};
    }
}
