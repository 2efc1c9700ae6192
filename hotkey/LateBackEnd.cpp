#include "hotkey/LateBackEnd.h"

#include <algorithm>
#include <utility>

namespace hotkey {

void LateBackEnd::installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) {
    releasedHandler_ = std::move(released);
    lostHandler_ = std::move(lost);
    regainedHandler_ = std::move(regained);
}

Registration LateBackEnd::registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                              HotKeyIdentifier identifier, const std::string &purpose) {
    if (isDecided_) {
        if (!actual_) return {std::nullopt, failure_};
        return actual_->registerEventHotKey(keyCode, modifiers, identifier, purpose);
    }
    const VkHotKeyRef ref = newRef();
    wanted_[ref] = {keyCode, modifiers, identifier, purpose};
    return {ref, {}};
}

void LateBackEnd::unregisterEventHotKey(VkHotKeyRef ref) {
    wanted_.erase(ref);
    const auto node = theirs_.extract(ref);
    if (actual_) actual_->unregisterEventHotKey(node ? node.mapped() : ref);
}

bool LateBackEnd::isLost() const {
    return isDecided_ && (!actual_ || actual_->isLost());
}

void LateBackEnd::decideLater(std::function<OpenedBackEnd()> open) {
    deliveries_.post([this, open = std::move(open)] { decide(open()); });
}

void LateBackEnd::decide(OpenedBackEnd opened) {
    isDecided_ = true;
    actual_ = std::move(opened.backEnd);
    failure_ = std::move(opened.failure);
    if (actual_) {
        actual_->installEventHandler(
            releasedHandler_,
            [this, handler = lostHandler_](LossNotice notice) {
                notice.ref = ours(notice.ref);
                if (handler) handler(notice);  // may end this object
            },
            [this, handler = regainedHandler_](VkHotKeyRef ref) {
                if (handler) handler(ours(ref));
            });
    }
    for (const auto &[ref, wanted] : std::exchange(wanted_, {})) {
        Registration registration{std::nullopt, failure_};
        if (actual_)
            registration = actual_->registerEventHotKey(wanted.keyCode, wanted.modifiers, wanted.identifier,
                                                        wanted.purpose);
        if (registration.ref) {
            theirs_[ref] = *registration.ref;
        } else {
            deliveries_.post([handler = lostHandler_, notice = LossNotice{ref, registration.failure, false}] {
                if (handler) handler(notice);
            });
        }
    }
}

VkHotKeyRef LateBackEnd::ours(VkHotKeyRef ref) const {
    const auto found =
        std::ranges::find_if(theirs_, [ref](const auto &entry) { return entry.second == ref; });
    return found == theirs_.end() ? ref : found->first;
}

}  // namespace hotkey
