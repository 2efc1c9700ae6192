#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QObject>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <vector>

#include "hotkey/BackEnd.h"
#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A service that takes every combination, unless told otherwise, and remembers what it holds.
struct Service {
    struct Held {
        std::uint16_t keyCode;
        std::uint32_t modifiers;
        hotkey::HotKeyIdentifier identifier;
    };
    std::map<VkHotKeyRef, Held> held;
    std::string refusal;
    hotkey::BackEnd::ReleasedHandler handler;
    hotkey::BackEnd::LostHandler lost;
    hotkey::BackEnd::RegainedHandler regained;
    std::string purpose;
    int openings = 0;
    VkHotKeyRef lastRef = 100;

    void release(std::uint32_t id) {
        handler({{0x68746B31, id}, {3, 4}, 0x1F00, std::chrono::milliseconds(77)});
    }
};

class FakeBackEnd : public hotkey::BackEnd {
  public:
    explicit FakeBackEnd(Service &service) : service_(service) {}
    void installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) override {
        service_.regained = std::move(regained);
        service_.handler = std::move(released);
        service_.lost = std::move(lost);
    }
    hotkey::Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                             hotkey::HotKeyIdentifier identifier,
                                             const std::string &purpose) override {
        service_.purpose = purpose;
        if (!service_.refusal.empty()) return {std::nullopt, service_.refusal};
        service_.held[++service_.lastRef] = {keyCode, modifiers, identifier};
        return {service_.lastRef, {}};
    }
    void unregisterEventHotKey(VkHotKeyRef ref) override { service_.held.erase(ref); }

  private:
    Service &service_;
};

class Target : public QObject {
    Q_OBJECT
  public:
    std::vector<std::string> calls;

    Q_INVOKABLE void both(const VkKeyEvent &event, const QVariant &object) {
        calls.push_back("both " + std::to_string(event.keyCode) + " " + object.toString().toStdString());
    }
    Q_INVOKABLE void both() { calls.push_back("the shorter one"); }
    Q_INVOKABLE void Save_bar_item(QObject *sender) { calls.push_back(sender ? "a sender" : "no sender"); }
    Q_INVOKABLE int variant(const QVariant &event) {
        calls.push_back("variant " + std::to_string(event.value<VkKeyEvent>().keyCode));
        return 0;
    }
    Q_INVOKABLE void unfit(int) { calls.push_back("unfit"); }
  public slots:
    void plain() { calls.push_back("plain"); }
};

class Registry : public testing::Test {
  protected:
    std::shared_ptr<VkHotKey> add(std::uint16_t keyCode,
                                  std::uint64_t flags = kVkCommandFlag | kVkShiftFlag) {
        return center.registerHotKeyWithKeyCode(keyCode, flags,
                                                [this](const VkKeyEvent &e) { events.push_back(e); });
    }
    std::vector<std::uint16_t> registeredKeyCodes() const {
        std::vector<std::uint16_t> codes;
        for (const auto &hotKey : center.registeredHotKeys()) codes.push_back(hotKey->keyCode());
        return codes;
    }

    Service service;
    VkHotKeyCenter center{[this] {
        ++service.openings;
        return hotkey::OpenedBackEnd{std::make_unique<FakeBackEnd>(service), {}};
    }};
    std::vector<VkKeyEvent> events;
};

TEST(ModifierConversion, KeepsTheFiveModifiersAndDropsTheRest) {
    EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(0x120000), 0x0300u);
    EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(0x40000), 0x1000u);
    EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(0x80000), 0x0800u);
    EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(0x10000), 0x0400u);
    EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(~std::uint64_t{0x1F0000}), 0u);
}

TEST_F(Registry, NumbersSuccessfulRegistrationsOnly) {
    EXPECT_EQ(service.openings, 0);
    const auto first = add(9);
    service.refusal = "taken";
    EXPECT_EQ(add(8), nullptr);
    EXPECT_EQ(center.lastFailure(), "taken");
    EXPECT_FALSE(center.hasRegisteredHotKeyWithKeyCode(8, 0x120000));
    service.refusal.clear();
    const auto second = add(8, 0x120000 | 0x800000 | kVkCapsLockFlag);

    ASSERT_TRUE(first && second);
    EXPECT_EQ(center.lastFailure(), std::nullopt);
    EXPECT_EQ(first->hotKeyID(), 1u);
    EXPECT_EQ(second->hotKeyID(), 2u);
    const Service::Held &held = service.held.at(*second->hotKeyRef());
    EXPECT_EQ(held.keyCode, 8);
    EXPECT_EQ(held.modifiers, 0x0700u);
    EXPECT_EQ(held.identifier.signature, 0x68746B31u);
    EXPECT_EQ(held.identifier.id, 2u);
    EXPECT_EQ(service.openings, 1);

    center.unregisterHotKey(second);
    EXPECT_EQ(center.registerHotKey(second), second);
    EXPECT_EQ(second->hotKeyID(), 3u);
}

TEST_F(Registry, TakesACombinationOnce) {
    const auto original = add(9);
    EXPECT_EQ(add(9), nullptr);
    EXPECT_TRUE(center.lastFailure());
    EXPECT_EQ(center.registerHotKeyWithKeyCode(9, 0x120000, nullptr, "plain"), nullptr);
    EXPECT_NE(add(9, kVkCommandFlag), nullptr);

    auto equal = VkHotKey::hotKeyWithKeyCode(9, 0x120000, nullptr);
    EXPECT_TRUE(*equal == *original && equal->hash() == (9 ^ 0x120000));
    EXPECT_EQ(center.registerHotKey(equal), equal);
    EXPECT_FALSE(equal->hotKeyRef());
    EXPECT_EQ(equal->hotKeyID(), 0u);
    EXPECT_EQ(center.registerHotKey(original), original);
    EXPECT_TRUE(original->hotKeyRef());

    equal.reset();  // its end unregisters the combination
    EXPECT_FALSE(center.hasRegisteredHotKeyWithKeyCode(9, 0x120000));
}

TEST_F(Registry, AnEqualRecordRemovesTheOriginalWhoseEndFreesTheCombination) {
    auto original = add(9);
    const auto fresh = VkHotKey::hotKeyWithKeyCode(9, 0x120000, nullptr);
    center.unregisterHotKey(fresh);
    EXPECT_THAT(center.registeredHotKeys(), IsEmpty());
    EXPECT_TRUE(original->hotKeyRef());
    EXPECT_EQ(service.held.size(), 1u);
    service.release(1);
    EXPECT_THAT(events, IsEmpty());
    original.reset();
    EXPECT_THAT(service.held, IsEmpty());

    add(9);  // held by nobody but the centre, so it ends inside the removal
    center.unregisterHotKey(fresh);
    EXPECT_THAT(service.held, IsEmpty());
}

TEST_F(Registry, UnregistersWhatMatches) {
    Target one, other;
    const auto addTarget = [&](std::uint16_t keyCode, Target &target, const char *action) {
        return center.registerHotKeyWithKeyCode(keyCode, 0, &target, action);
    };
    addTarget(1, one, "plain"), addTarget(2, one, "both"), addTarget(3, one, "both"),
        addTarget(4, other, "plain");
    add(5), add(6), add(7, 0);

    EXPECT_EQ(center.hotKeysMatching([](const VkHotKey &hotKey) { return hotKey.keyCode() > 4; }).size(), 3u);
    center.unregisterHotKeysWithTarget(&one, "both");
    EXPECT_THAT(registeredKeyCodes(), UnorderedElementsAre(1, 4, 5, 6, 7));
    center.unregisterHotKeysWithTarget(&one);
    EXPECT_THAT(registeredKeyCodes(), UnorderedElementsAre(4, 5, 6, 7));
    center.unregisterHotKeyWithKeyCode(5, 0);
    center.unregisterHotKeyWithKeyCode(6, 0x120000);
    EXPECT_THAT(registeredKeyCodes(), UnorderedElementsAre(4, 5, 7));
    center.unregisterHotKeysMatching([](const VkHotKey &hotKey) { return hotKey.modifierFlags() == 0; });
    EXPECT_THAT(registeredKeyCodes(), ElementsAre(5));
    EXPECT_EQ(service.held.size(), 1u);
    add(6);
    center.unregisterAllHotKeys();
    EXPECT_THAT(registeredKeyCodes(), IsEmpty());
    EXPECT_THAT(service.held, IsEmpty());
}

TEST_F(Registry, LogsDoubtfulAndFailedDeliveries) {
    std::vector<std::string> lines;
    hotkey::setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    add(9), add(8)->setHotKeyID(1);
    service.release(1);
    center.registerHotKeyWithKeyCode(7, 0, [](const VkKeyEvent &) { throw std::runtime_error("no paper"); });
    service.release(3);
    hotkey::setLogSink(nullptr);
    EXPECT_EQ(events.size(), 1u);
    EXPECT_THAT(lines, ElementsAre("ERROR!", testing::HasSubstr("no paper")));
}

TEST_F(Registry, TellsOfALostRegistration) {
    hotkey::setLogSink([](std::string_view) {});
    std::vector<std::string> losses;
    center.setRegistrationLostHandler(
        [&](const std::shared_ptr<VkHotKey> &hotKey, const std::string &reason) {
            losses.push_back(std::to_string(hotKey->keyCode()) + (hotKey->hotKeyRef() ? " kept: " : ": ") +
                             reason);
            throw std::runtime_error("nobody's business");
        });
    center.setPurpose("a test");
    const auto kept = add(9), lost = add(8);
    EXPECT_EQ(service.purpose, "a test");
    const VkHotKeyRef ref = *lost->hotKeyRef();

    service.lost({*kept->hotKeyRef(), "no such key now", true});
    service.release(1);
    EXPECT_EQ(events.size(), 1u);
    center.setRegistrationRegainedHandler(
        [&](const auto &hotKey) { losses.push_back(std::to_string(hotKey->keyCode()) + " again"); });
    service.regained(*kept->hotKeyRef());
    EXPECT_EQ(center.lastFailure(), std::nullopt);
    service.held.erase(ref);
    service.lost({ref, "refused", false});
    EXPECT_EQ(center.lastFailure(), "refused");
    EXPECT_FALSE(lost->hotKeyRef());
    EXPECT_THAT(registeredKeyCodes(), ElementsAre(9));
    service.lost({ref, "refused", false});  // of what is no longer registered
    EXPECT_THAT(losses, ElementsAre("9 kept: no such key now", "9 again", "8: refused"));
    EXPECT_EQ(center.registerHotKey(lost), lost);
    EXPECT_EQ(center.lastFailure(), std::nullopt);
    hotkey::setLogSink(nullptr);
}

TEST_F(Registry, CallsTheActionItsTargetRespondsToOrElseTheTask) {
    auto target = std::make_unique<Target>();
    std::uint32_t id = 0;
    for (const char *action : {"both", "Save_bar_item", "variant", "plain", "unfit", "missing"}) {
        center.registerHotKeyWithKeyCode(static_cast<std::uint16_t>(++id), 0, target.get(), action, "x");
        service.release(id);
    }
    EXPECT_THAT(target->calls, ElementsAre("both 1 x", "no sender", "variant 3", "plain"));
    target.reset();
    service.release(1);  // does nothing now
    EXPECT_EQ(center.hotKeysMatching([](const VkHotKey &hotKey) { return !hotKey.target(); }).size(), id);

    std::weak_ptr<VkHotKey> watched;
    watched =
        center.registerHotKeyWithKeyCode(60, 0, [&, token = std::string("kept")](const VkKeyEvent &event) {
            center.unregisterHotKeyWithKeyCode(60, 0);
            events.push_back(event);
            EXPECT_EQ(token, "kept");
        });
    service.release(id + 1);
    EXPECT_EQ(events.size(), 1u);
    EXPECT_TRUE(watched.expired());
}

TEST_F(Registry, DescribesAHotKey) {
    Target target;
    const auto byAction = center.registerHotKeyWithKeyCode(9, 0x1F0000, &target, "plain");
    EXPECT_THAT(
        byAction->description(),
        testing::MatchesRegex("<VkHotKey: 0x[0-9a-f]+>\n\t\\(key: 9\n\tflags: \\(NSControlKeyMask \\| "
                              "NSCommandKeyMask \\| NSShiftKeyMask \\| NSAlternateKeyMask\\)\n\tinvokes: "
                              "\\[<.*Target: 0x[0-9a-f]+> plain\\]\\)"));
    EXPECT_THAT(add(8, 0)->description(), testing::EndsWith("(key: 8\n\tflags: ()\n\tinvokes: (block))"));
}

TEST(Center, EndsBeforeItsHotKeysAndLooksForAServiceUntilThereIsOne) {
    Service service;
    std::shared_ptr<VkHotKey> hotKey;
    {
        VkHotKeyCenter center([&service]() -> hotkey::OpenedBackEnd {
            if (++service.openings == 1) return {nullptr, "not yet"};
            return {std::make_unique<FakeBackEnd>(service), {}};
        });
        EXPECT_EQ(center.registerHotKeyWithKeyCode(8, 0, nullptr), nullptr);
        EXPECT_EQ(center.lastFailure(), "not yet");
        hotKey = center.registerHotKeyWithKeyCode(8, 0, nullptr);
        ASSERT_TRUE(hotKey);
    }
    EXPECT_THAT(service.held, IsEmpty());
    EXPECT_FALSE(hotKey->hotKeyRef());
}

TEST(Center, GoesOnWithoutAnApplicationAndWithoutADisplay) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    VkHotKeyCenter &center = VkHotKeyCenter::sharedHotKeyCenter();
    EXPECT_EQ(center.registerHotKeyWithKeyCode(8, 0x120000, nullptr), nullptr);
    EXPECT_THAT(*center.lastFailure(), testing::HasSubstr("main thread"));
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    EXPECT_EQ(center.registerHotKeyWithKeyCode(8, 0x120000, nullptr), nullptr);
    EXPECT_THAT(*center.lastFailure(), testing::HasSubstr("DISPLAY is not set"));
}

}  // namespace

#include "registry_test.moc"
