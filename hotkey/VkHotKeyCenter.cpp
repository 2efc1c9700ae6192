#include "hotkey/VkHotKeyCenter.h"

#include <exception>

#include "hotkey/BackEnd.h"
#include "hotkey/Log.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

constexpr std::uint32_t kHotKeySignature = 0x68746B31;  // 'htk1'

std::uint64_t cocoaModifiersFromService(std::uint32_t mask) {
    std::uint64_t flags = 0;
    if (mask & hotkey::kServiceControl) flags |= kVkControlFlag;
    if (mask & hotkey::kServiceCommand) flags |= kVkCommandFlag;
    if (mask & hotkey::kServiceShift) flags |= kVkShiftFlag;
    if (mask & hotkey::kServiceOption) flags |= kVkOptionFlag;
    if (mask & hotkey::kServiceCapsLock) flags |= kVkCapsLockFlag;
    return flags;
}

VkHotKeyCenter::Predicate hasCombination(std::uint16_t keyCode, std::uint64_t modifierFlags) {
    return [=](const VkHotKey &hotKey) {
        return hotKey.keyCode() == keyCode && hotKey.modifierFlags() == modifierFlags;
    };
}

/// Beyond these calls is the event loop, which must not see an exception of a client's.
template <typename Call>
void callClient(Call call) {
    try {
        call();
    } catch (const std::exception &error) {
        hotkey::logLine(std::string("hot key: the action failed: ") + error.what());
    } catch (...) {
        hotkey::logLine("hot key: the action failed");
    }
}

}  // namespace

/// Receives every released combination of the service; 0 means handled, and no event is ever passed on.
std::int32_t vk_hotKeyHandler(const hotkey::ReleasedEvent &event, VkHotKeyCenter &center) {
    const VkHotKeySet matching = center.hotKeysMatching(
        [&event](const VkHotKey &hotKey) { return hotKey.hotKeyID() == event.identifier.id; });
    if (matching.size() > 1) hotkey::logLine("ERROR!");
    if (matching.empty()) return 0;
    const std::shared_ptr<VkHotKey> hotKey = *matching.begin();

    VkKeyEvent keyUp;
    keyUp.location = event.location;
    keyUp.modifierFlags = cocoaModifiersFromService(event.modifiers);
    keyUp.timestamp = event.timestamp;
    keyUp.keyCode = hotKey->keyCode();

    callClient([&] { hotKey->invokeWithEvent(keyUp); });
    return 0;
}

VkHotKeyCenter &VkHotKeyCenter::sharedHotKeyCenter() {
    // Never destroyed: hot keys held by other static objects may outlive any order of destruction.
    static VkHotKeyCenter *const center = new VkHotKeyCenter(hotkey::openBackEndOfSession);
    return *center;
}

VkHotKeyCenter::VkHotKeyCenter(BackEndOpener opener)
    : opener_(std::move(opener)), self_(std::make_shared<VkHotKeyCenter *>(this)) {}

VkHotKeyCenter::~VkHotKeyCenter() {
    unregisterAllHotKeys();
}

std::shared_ptr<VkHotKey> VkHotKeyCenter::registerHotKeyWithKeyCode(std::uint16_t keyCode,
                                                                    std::uint64_t modifierFlags,
                                                                    QObject *target,
                                                                    std::optional<std::string> action,
                                                                    QVariant object) {
    if (hasRegisteredHotKeyWithKeyCode(keyCode, modifierFlags)) {
        lastFailure_ = "the combination is registered already";
        return nullptr;
    }
    std::shared_ptr<VkHotKey> hotKey(new VkHotKey);
    hotKey->_setTarget(target);
    hotKey->_setAction(std::move(action));
    hotKey->_setObject(std::move(object));
    hotKey->_setKeyCode(keyCode);
    hotKey->_setModifierFlags(modifierFlags);
    return _registerHotKey(hotKey);
}

std::shared_ptr<VkHotKey> VkHotKeyCenter::registerHotKeyWithKeyCode(std::uint16_t keyCode,
                                                                    std::uint64_t modifierFlags,
                                                                    VkHotKey::Task task) {
    if (hasRegisteredHotKeyWithKeyCode(keyCode, modifierFlags)) {
        lastFailure_ = "the combination is registered already";
        return nullptr;
    }
    return _registerHotKey(VkHotKey::hotKeyWithKeyCode(keyCode, modifierFlags, std::move(task)));
}

std::shared_ptr<VkHotKey> VkHotKeyCenter::registerHotKey(const std::shared_ptr<VkHotKey> &hotKey) {
    if (!hotKey) {
        lastFailure_ = "there is no hot key to register";
        return nullptr;
    }
    return _registerHotKey(hotKey);
}

std::shared_ptr<VkHotKey> VkHotKeyCenter::_registerHotKey(const std::shared_ptr<VkHotKey> &hotKey) {
    lastFailure_.reset();
    if (const auto equal = _registeredHotKeys.find(hotKey); equal != _registeredHotKeys.end()) {
        if (*equal != hotKey) lastFailure_ = "the combination is registered already";
        hotKey->center_ = self_;
        return hotKey;
    }
    if (!openBackEnd()) return nullptr;

    const hotkey::Registration registration = backEnd_->registerEventHotKey(
        hotKey->keyCode(), VkCarbonModifierFlagsFromCocoaModifiers(hotKey->modifierFlags()),
        {kHotKeySignature, _nextHotKeyID}, purpose_);
    if (!registration.ref) {
        lastFailure_ = registration.failure;
        return nullptr;
    }
    hotKey->setHotKeyRef(registration.ref);
    hotKey->setHotKeyID(_nextHotKeyID++);
    hotKey->center_ = self_;
    _registeredHotKeys.insert(hotKey);
    return hotKey;
}

bool VkHotKeyCenter::openBackEnd() {
    // A lost service is looked for anew once everyone has heard of the loss.
    if (backEnd_ && backEnd_->isLost() && registeredHotKeys().empty()) backEnd_.reset();
    if (backEnd_) return true;
    hotkey::OpenedBackEnd opened = opener_();
    if (!opened.backEnd) {
        lastFailure_ = std::move(opened.failure);
        return false;
    }
    backEnd_ = std::move(opened.backEnd);
    backEnd_->installEventHandler(
        [this](const hotkey::ReleasedEvent &event) { vk_hotKeyHandler(event, *this); },
        [this](const hotkey::LossNotice &notice) { registrationLost(notice); },
        [this](VkHotKeyRef ref) { registrationRegained(ref); });
    return true;
}

std::shared_ptr<VkHotKey> VkHotKeyCenter::hotKeyOfRef(VkHotKeyRef ref) const {
    const VkHotKeySet found =
        hotKeysMatching([ref](const VkHotKey &hotKey) { return hotKey.hotKeyRef() == ref; });
    return found.empty() ? nullptr : *found.begin();
}

void VkHotKeyCenter::registrationRegained(VkHotKeyRef ref) {
    const std::shared_ptr<VkHotKey> hotKey = hotKeyOfRef(ref);
    if (!hotKey) return;
    lastFailure_.reset();
    const RegistrationRegainedHandler handler = regainedHandler_;  // may set another
    if (handler) callClient([&] { handler(hotKey); });
}

void VkHotKeyCenter::registrationLost(const hotkey::LossNotice &notice) {
    const std::shared_ptr<VkHotKey> hotKey = hotKeyOfRef(notice.ref);
    if (!hotKey) return;
    hotkey::logLine("hot key: " + notice.reason);
    lastFailure_ = notice.reason;
    if (!notice.isKept) {
        hotKey->setHotKeyRef(std::nullopt);
        unregisterRecord(*hotKey);
    }
    const RegistrationLostHandler handler = lostHandler_;  // may set another
    if (handler) callClient([&] { handler(hotKey, notice.reason); });
}

bool VkHotKeyCenter::hasRegisteredHotKeyWithKeyCode(std::uint16_t keyCode,
                                                    std::uint64_t modifierFlags) const {
    return !hotKeysMatching(hasCombination(keyCode, modifierFlags)).empty();
}

VkHotKeySet VkHotKeyCenter::hotKeysMatching(const Predicate &predicate) const {
    VkHotKeySet matching;
    if (!predicate) return matching;
    for (const auto &hotKey : _registeredHotKeys)
        if (predicate(*hotKey)) matching.insert(hotKey);
    return matching;
}

VkHotKeySet VkHotKeyCenter::registeredHotKeys() const {
    return hotKeysMatching([](const VkHotKey &hotKey) { return hotKey.hotKeyRef().has_value(); });
}

void VkHotKeyCenter::unregisterHotKey(const std::shared_ptr<VkHotKey> &hotKey) {
    if (hotKey) unregisterRecord(*hotKey);
}

void VkHotKeyCenter::unregisterRecord(VkHotKey &hotKey) {
    if (hotKey.hotKeyRef()) {
        if (backEnd_) backEnd_->unregisterEventHotKey(*hotKey.hotKeyRef());
        hotKey.setHotKeyRef(std::nullopt);
    }
    // The removed record may end here, which brings its own unregistration: the set must be whole by then.
    if (const auto equal = _registeredHotKeys.find(hotKey); equal != _registeredHotKeys.end())
        const auto removed = _registeredHotKeys.extract(equal);
}

void VkHotKeyCenter::unregisterHotKeysMatching(const Predicate &predicate) {
    for (const auto &hotKey : hotKeysMatching(predicate)) unregisterHotKey(hotKey);
}

void VkHotKeyCenter::unregisterHotKeysWithTarget(const QObject *target) {
    unregisterHotKeysMatching([target](const VkHotKey &hotKey) { return hotKey.target() == target; });
}

void VkHotKeyCenter::unregisterHotKeysWithTarget(const QObject *target,
                                                 const std::optional<std::string> &action) {
    unregisterHotKeysMatching(
        [&](const VkHotKey &hotKey) { return hotKey.target() == target && hotKey.action() == action; });
}

void VkHotKeyCenter::unregisterHotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags) {
    unregisterHotKeysMatching(hasCombination(keyCode, modifierFlags));
}

void VkHotKeyCenter::unregisterAllHotKeys() {
    for (const auto &hotKey : VkHotKeySet(_registeredHotKeys)) unregisterHotKey(hotKey);
}
