#include "hotkey/PortalBackEnd.h"

#include <QTimer>
#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include "hotkey/Deliveries.h"
#include "hotkey/KeyCodes.h"
#include "hotkey/KeyboardLayout.h"
#include "hotkey/LateBackEnd.h"
#include "hotkey/Log.h"
#include "hotkey/Portal.h"

namespace hotkey {
namespace {

// A portal that is restarted is back within this time; only what stays away longer is reported.
constexpr std::chrono::seconds kPortalAwayLimit{5};

/// The combination in the form that desktops agree on, CTRL+LOGO+c; empty if no key gives anything
/// there.
std::string triggerFor(std::uint16_t keyCode, std::uint32_t modifiers) {
    const std::optional<std::uint16_t> inputCode = inputCodeFromKeyCode(keyCode);
    const std::string symbol = inputCode ? symbolNameOfKey(*inputCode) : std::string();
    if (symbol.empty()) return {};
    std::string trigger;
    if (modifiers & kServiceControl) trigger += "CTRL+";
    if (modifiers & kServiceOption) trigger += "ALT+";
    if (modifiers & kServiceCommand) trigger += "LOGO+";
    if (modifiers & kServiceShift) trigger += "SHIFT+";
    return trigger + symbol;
}

class PortalBackEnd final : public BackEnd {
  public:
    explicit PortalBackEnd(std::unique_ptr<Portal> portal) : portal_(std::move(portal)) {
        const auto on = [this](auto signal, auto function) {
            QObject::connect(portal_.get(), signal, portal_.get(), function);
        };
        on(&Portal::pressed, [this](const QString &session, const QString &id) {
            if (HotKey *hotKey = find(session, id)) hotKey->isPressed = true;
        });
        on(&Portal::released, [this](const QString &session, const QString &id, qulonglong milliseconds) {
            fire(session, id, std::chrono::milliseconds(milliseconds));
        });
        on(&Portal::closed, [this](const QString &session) { loseSession(session); });
        on(&Portal::gone, [this] { waitForPortal(); });
        on(&Portal::cameBack, [this] { askForAll(); });
        on(&Portal::busLost, [this] { loseAll("the connection to the session bus was lost"); });
        awayCheck_.setSingleShot(true);
        awayCheck_.setInterval(kPortalAwayLimit);
        QObject::connect(&awayCheck_, &QTimer::timeout, &awayCheck_, [this] { reportAway(); });
    }

    void installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) override {
        releasedHandler_ = std::move(released);
        lostHandler_ = std::move(lost);
        regainedHandler_ = std::move(regained);
    }

    Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                     HotKeyIdentifier identifier, const std::string &purpose) override {
        if (modifiers & kServiceCapsLock)
            return {std::nullopt, "this desktop cannot tie a combination to Caps Lock"};
        const std::string trigger = triggerFor(keyCode, modifiers);
        if (trigger.empty())
            return {std::nullopt, "no key of this keyboard has the key code " + std::to_string(keyCode)};
        // The same in every run: desktops remember by it what the user has chosen.
        const QString id = QStringLiteral("key%1_modifiers%2").arg(keyCode).arg(modifiers);
        if (std::ranges::any_of(hotKeys_, [&](const auto &entry) { return entry.second.id == id; }))
            return {std::nullopt, "this program has registered the combination already"};
        if (isAway_ || !portal_->isConnected()) {
            const std::optional<std::string> failure = portal_->whyUnusable();
            if (failure && !failure->empty()) return {std::nullopt, *failure};
            if (isAway_) awayCheck_.start();
        }

        const VkHotKeyRef ref = newRef();
        hotKeys_[ref] = {identifier, modifiers, id, QString::fromStdString(trigger),
                         QString::fromStdString(purpose.empty() ? "Hot key " + trigger : purpose)};
        if (!isAway_) askFor(ref);  // otherwise that comes with the notice that the portal is back
        return {ref, {}};
    }

    bool isLost() const override { return !portal_->isConnected(); }

    void unregisterEventHotKey(VkHotKeyRef ref) override {
        if (const auto node = hotKeys_.extract(ref)) portal_->closeSession(node.mapped().session);
    }

  private:
    struct HotKey {
        HotKeyIdentifier identifier;
        std::uint32_t modifiers = 0;  // service mask
        QString id, trigger, description;
        QString session = {};  // empty until the portal has given it
        bool isPressed = false, isReportedAway = false;
    };

    /// Every program's signals arrive here: the session tells whether they are ours.
    HotKey *find(const QString &session, const QString &id) {
        const auto found = std::ranges::find_if(hotKeys_, [&](const auto &entry) {
            return entry.second.session == session && entry.second.id == id;
        });
        return found == hotKeys_.end() ? nullptr : &found->second;
    }

    void askFor(VkHotKeyRef ref) {
        // A session that is given back, or that of a portal that has ended, may still occupy the first token.
        const QString id = hotKeys_.at(ref).id;
        const int use = ++timesAsked_[id];
        const QString token = use == 1 ? id : QStringLiteral("%1_%2").arg(id).arg(use);
        portal_->createSession(token, [this, ref](const Portal::Answer &answer) { bind(ref, answer); });
    }

    void bind(VkHotKeyRef ref, const Portal::Answer &answer) {
        const QString session = answer.results.value("session_handle").toString();
        const auto found = hotKeys_.find(ref);
        if (found == hotKeys_.end()) return portal_->closeSession(session);  // given back meanwhile
        if (!answer.failure.empty()) return lose(ref, answer.failure);
        HotKey &hotKey = found->second;
        hotKey.session = session;
        portal_->bindShortcut(session, hotKey.id, hotKey.description, hotKey.trigger,
                              [this, ref](const Portal::Answer &bound) {
                                  if (bound.failure.empty())
                                      regain(ref);
                                  else
                                      lose(ref, bound.failure);
                              });
    }

    void regain(VkHotKeyRef ref) {
        const auto found = hotKeys_.find(ref);
        if (found == hotKeys_.end() || !std::exchange(found->second.isReportedAway, false)) return;
        deliveries_.post([ref, handler = regainedHandler_] {
            if (handler) handler(ref);
        });
    }

    void fire(const QString &session, const QString &id, std::chrono::milliseconds time) {
        HotKey *hotKey = find(session, id);
        if (!hotKey || !std::exchange(hotKey->isPressed, false)) return;
        const ReleasedEvent event{hotKey->identifier, {}, hotKey->modifiers, time};
        deliveries_.post([event, handler = releasedHandler_] {
            if (handler) handler(event);
        });
    }

    void report(LossNotice notice) {
        deliveries_.post([notice = std::move(notice), handler = lostHandler_] {
            if (handler) handler(notice);
        });
    }

    void lose(VkHotKeyRef ref, const std::string &reason) {
        const auto node = hotKeys_.extract(ref);
        if (!node) return;
        portal_->closeSession(node.mapped().session);
        report({ref, reason, false});
    }

    void loseSession(const QString &session) {
        const auto found = std::ranges::find_if(
            hotKeys_, [&](const auto &entry) { return entry.second.session == session; });
        if (found == hotKeys_.end()) return;
        found->second.session.clear();
        lose(found->first, "the desktop has ended the hot key");
    }

    void loseAll(const std::string &reason) {
        for (const auto &[ref, hotKey] : std::exchange(hotKeys_, {})) report({ref, reason, false});
    }

    void waitForPortal() {
        isAway_ = true;
        for (auto &[ref, hotKey] : hotKeys_) {
            hotKey.session.clear();
            hotKey.isPressed = false;
        }
        awayCheck_.start();
        logLine("hot key: the desktop portal has ended; waiting for it to come back");
    }

    void askForAll() {
        isAway_ = false;
        awayCheck_.stop();
        for (const auto &[ref, hotKey] : hotKeys_) askFor(ref);
    }

    void reportAway() {
        for (auto &[ref, hotKey] : hotKeys_)
            if (!std::exchange(hotKey.isReportedAway, true))
                report({ref, "the desktop portal has ended and not come back", true});
    }

    std::unique_ptr<Portal> portal_;
    ReleasedHandler releasedHandler_;
    LostHandler lostHandler_;
    RegainedHandler regainedHandler_;
    std::map<VkHotKeyRef, HotKey> hotKeys_;
    std::map<QString, int> timesAsked_;  // by the id of a hot key
    bool isAway_ = false;
    Deliveries deliveries_;
    QTimer awayCheck_;
};

using OtherOpener = std::function<OpenedBackEnd(const std::string &)>;

/// A portal that takes its time to say whether it can be used.
class LatePortalBackEnd final : public LateBackEnd {
  public:
    LatePortalBackEnd(std::unique_ptr<Portal> portal, OtherOpener otherwise) : portal_(std::move(portal)) {
        portal_->findOutWhyUnusable([this, otherwise = std::move(otherwise)](const std::string &failure) {
            decideLater([this, otherwise, failure]() -> OpenedBackEnd {
                if (failure.empty()) return {std::make_unique<PortalBackEnd>(std::move(portal_)), {}};
                portal_.reset();
                return otherwise(failure);
            });
        });
    }

  private:
    std::unique_ptr<Portal> portal_;
};

}  // namespace

OpenedBackEnd openPortalBackEnd(OtherOpener otherwise) {
    auto portal = std::make_unique<Portal>();
    const std::optional<std::string> failure = portal->whyUnusable();
    if (!failure) return {std::make_unique<LatePortalBackEnd>(std::move(portal), std::move(otherwise)), {}};
    if (!failure->empty()) return otherwise(*failure);
    return {std::make_unique<PortalBackEnd>(std::move(portal)), {}};
}

}  // namespace hotkey
