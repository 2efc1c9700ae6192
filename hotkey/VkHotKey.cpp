#include "hotkey/VkHotKey.h"

#include <QMetaMethod>
#include <sstream>

#include "hotkey/VkHotKeyCenter.h"

namespace {

template <typename T>
bool takes(const QMetaMethod &method, int parameter) {
    return method.parameterMetaType(parameter) == QMetaType::fromType<T>();
}

bool isActionForm(const QMetaMethod &method) {
    const int count = method.parameterCount();
    if (count > 2 || (count == 2 && !takes<QVariant>(method, 1))) return false;
    return count == 0 || takes<VkKeyEvent>(method, 0) || takes<QVariant>(method, 0) ||
           takes<QObject *>(method, 0);
}

/// The member of `target` to call for an action of that name; invalid if the target does not respond to it.
QMetaMethod actionOf(const QObject &target, const std::string &name) {
    // Lets a class that only forward-declares VkKeyEvent be matched, too.
    qRegisterMetaType<VkKeyEvent>();

    const QMetaObject &type = *target.metaObject();
    QMetaMethod best;
    for (int i = type.methodCount() - 1; i >= 0; --i) {  // from the derived class to its bases
        const QMetaMethod method = type.method(i);
        if (method.name() != name.c_str() || !isActionForm(method)) continue;
        if (!best.isValid() || method.parameterCount() > best.parameterCount()) best = method;
    }
    return best;
}

bool callAction(QObject &target, const std::string &name, const VkKeyEvent &event, const QVariant &object) {
    const QMetaMethod method = actionOf(target, name);
    if (!method.isValid()) return false;

    const QVariant eventAsVariant = QVariant::fromValue(event);
    QObject *const noSender = nullptr;
    QGenericArgument first;
    if (method.parameterCount() > 0) {
        if (takes<VkKeyEvent>(method, 0))
            first = Q_ARG(VkKeyEvent, event);
        else if (takes<QVariant>(method, 0))
            first = Q_ARG(QVariant, eventAsVariant);
        else
            first = Q_ARG(QObject *, noSender);
    }
    const QGenericArgument second =
        method.parameterCount() > 1 ? Q_ARG(QVariant, object) : QGenericArgument();
    return method.invoke(&target, Qt::AutoConnection, first, second);
}

std::string joinedFlagNames(std::uint64_t modifierFlags) {
    static constexpr std::pair<std::uint64_t, const char *> kNames[] = {
        {kVkControlFlag, "NSControlKeyMask"},
        {kVkCommandFlag, "NSCommandKeyMask"},
        {kVkShiftFlag, "NSShiftKeyMask"},
        {kVkOptionFlag, "NSAlternateKeyMask"}};
    std::string joined;
    for (const auto &[flag, name] : kNames) {
        if (!(modifierFlags & flag)) continue;
        if (!joined.empty()) joined += " | ";
        joined += name;
    }
    return joined;
}

}  // namespace

VkHotKey::VkHotKey() : center_(VkHotKeyCenter::sharedHotKeyCenter().self_) {}

VkHotKey::~VkHotKey() {
    if (const auto center = center_.lock()) (*center)->unregisterRecord(*this);
}

std::shared_ptr<VkHotKey> VkHotKey::hotKeyWithKeyCode(std::uint16_t keyCode, std::uint64_t modifierFlags,
                                                      Task task) {
    std::shared_ptr<VkHotKey> hotKey(new VkHotKey);
    hotKey->_setTask(std::move(task));
    hotKey->_setKeyCode(keyCode);
    hotKey->_setModifierFlags(modifierFlags);
    return hotKey;
}

void VkHotKey::invokeWithEvent(const VkKeyEvent &event) {
    if (target_ && action_ && callAction(*target_, *action_, event, object_)) return;
    const Task task = task_;  // may release the last reference to this record
    if (task) task(event);
}

std::string VkHotKey::description() const {
    std::ostringstream text;
    text << "<VkHotKey: " << static_cast<const void *>(this) << ">\n\t(key: " << keyCode_ << "\n\tflags: ("
         << joinedFlagNames(modifierFlags_) << ")\n\tinvokes: ";
    if (target_ && action_)
        text << "[<" << target_->metaObject()->className() << ": "
             << static_cast<const void *>(target_.data()) << "> " << *action_ << "]";
    else
        text << "(block)";
    text << ")";
    return text.str();
}
