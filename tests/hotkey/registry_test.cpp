// What the centre keeps and tells by itself, whatever the service.

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QObject>
#include <map>
#include <stdexcept>
#include <vector>

#include "hotkey/BackEnd.h"
#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kCommandShift = kVkCommandFlag | kVkShiftFlag;
using Combination = std::pair<std::uint16_t, std::uint32_t>;

/// A service that takes every combination, unless told otherwise. What it holds lives longer than itself.
struct Service {
    std::map<VkHotKeyRef, Combination> held;
    hotkey::HotKeyIdentifier last;
    std::string refusal;
    hotkey::BackEnd::ReleasedHandler released;
    hotkey::BackEnd::LostHandler lost;
    hotkey::BackEnd::RegainedHandler regained;

    void release(std::uint32_t id) { released({{last.signature, id}, {3, 4}, 0x1F00, {}}); }
};

class FakeBackEnd : public hotkey::BackEnd {
  public:
    explicit FakeBackEnd(Service &service) : service_(service) {}
    void installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) override {
        service_.released = std::move(released);
        service_.lost = std::move(lost);
        service_.regained = std::move(regained);
    }
    hotkey::Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                             hotkey::HotKeyIdentifier identifier,
                                             const std::string &) override {
        if (!service_.refusal.empty()) return {std::nullopt, service_.refusal};
        service_.last = identifier;
        const VkHotKeyRef ref = newRef();
        service_.held[ref] = {keyCode, modifiers};
        return {ref, {}};
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
    Registry() {
        hotkey::setLogSink([this](std::string_view line) { log.emplace_back(line); });
    }
    ~Registry() override { hotkey::setLogSink(nullptr); }
    std::shared_ptr<VkHotKey> add(std::uint16_t keyCode, std::uint64_t flags = kCommandShift) {
        return center->registerHotKeyWithKeyCode(keyCode, flags,
                                                 [this](const VkKeyEvent &e) { events.push_back(e); });
    }
    std::vector<std::uint16_t> keyCodes() const {
        std::vector<std::uint16_t> codes;
        for (const auto &hotKey : center->registeredHotKeys()) codes.push_back(hotKey->keyCode());
        return codes;
    }

    Service service;
    int openings = 0;
    std::optional<VkHotKeyCenter> center{std::in_place, [this]() -> hotkey::OpenedBackEnd {
                                             if (++openings == 1) return {nullptr, "not yet"};
                                             return {std::make_unique<FakeBackEnd>(service), {}};
                                         }};
    const std::shared_ptr<VkHotKey> none = add(9);  // there is no service yet
    std::vector<VkKeyEvent> events;
    std::vector<std::string> log;
};

TEST_F(Registry, TakesACombinationOnceAndNumbersSuccessesOnly) {
    EXPECT_FALSE(none);
    EXPECT_EQ(center->lastFailure(), "not yet");
    const auto first = add(9);
    service.refusal = "taken";
    EXPECT_FALSE(add(8));
    EXPECT_EQ(center->lastFailure(), "taken");
    EXPECT_FALSE(center->hasRegisteredHotKeyWithKeyCode(8, kCommandShift));
    service.refusal.clear();
    const auto second = add(8, kCommandShift | 0x800000 | kVkCapsLockFlag);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(center->lastFailure(), std::nullopt);
    EXPECT_EQ(first->hotKeyID(), 1u);
    EXPECT_EQ(service.held.at(*second->hotKeyRef()), Combination(8, 0x0700));
    EXPECT_EQ(service.last.signature, 0x68746B31u);
    EXPECT_EQ(service.last.id, 2u);
    center->unregisterHotKey(second);
    EXPECT_EQ(center->registerHotKey(second), second);
    EXPECT_EQ(second->hotKeyID(), 3u);
    EXPECT_EQ(openings, 2);

    EXPECT_FALSE(add(9));
    EXPECT_THAT(*center->lastFailure(), HasSubstr("already"));
    EXPECT_FALSE(center->registerHotKeyWithKeyCode(9, kCommandShift, nullptr, "plain"));
    EXPECT_FALSE(center->registerHotKey(nullptr));
    EXPECT_TRUE(add(9, kVkCommandFlag));
    auto equal = VkHotKey::hotKeyWithKeyCode(9, kCommandShift, nullptr);
    EXPECT_TRUE(*equal == *first && equal->hash() == (9 ^ kCommandShift));
    EXPECT_EQ(center->registerHotKey(equal), equal);
    EXPECT_FALSE(equal->hotKeyRef());
    EXPECT_EQ(center->registerHotKey(first), first);
    EXPECT_TRUE(first->hotKeyRef());
    equal.reset();  // its end unregisters the combination
    EXPECT_FALSE(center->hasRegisteredHotKeyWithKeyCode(9, kCommandShift));

    center.reset();
    EXPECT_THAT(service.held.size(), 1u) << "the record that an equal one had removed";
    EXPECT_FALSE(second->hotKeyRef());
}

TEST_F(Registry, LosesTheOriginalToAnEqualRecordAndFreesItAtItsEnd) {
    auto original = add(9);
    const auto equal = VkHotKey::hotKeyWithKeyCode(9, kCommandShift, nullptr);
    center->unregisterHotKey(equal);
    EXPECT_THAT(keyCodes(), IsEmpty());
    EXPECT_EQ(service.held.size(), 1u);
    service.release(1);
    EXPECT_THAT(events, IsEmpty());
    original.reset();
    EXPECT_THAT(service.held, IsEmpty());
    add(9);  // held by nobody but the centre, so it ends inside the removal
    center->unregisterHotKey(equal);
    EXPECT_THAT(service.held, IsEmpty());
}

TEST_F(Registry, UnregistersWhatMatches) {
    Target one, other;
    const std::vector<std::tuple<int, Target *, std::string>> targets = {
        {1, &one, "plain"}, {2, &one, "both"}, {3, &one, "both"}, {4, &other, "plain"}};
    for (const auto &[keyCode, target, action] : targets)
        center->registerHotKeyWithKeyCode(static_cast<std::uint16_t>(keyCode), 0, target, action);
    add(5), add(6), add(7, 0);
    EXPECT_EQ(center->hotKeysMatching([](const VkHotKey &hotKey) { return hotKey.keyCode() > 4; }).size(),
              3u);
    center->unregisterHotKeysWithTarget(&one, "both");
    EXPECT_THAT(keyCodes(), UnorderedElementsAre(1, 4, 5, 6, 7));
    center->unregisterHotKeysWithTarget(&one);
    EXPECT_THAT(keyCodes(), UnorderedElementsAre(4, 5, 6, 7));
    center->unregisterHotKeyWithKeyCode(5, 0);
    center->unregisterHotKeyWithKeyCode(6, kCommandShift);
    EXPECT_THAT(keyCodes(), UnorderedElementsAre(4, 5, 7));
    center->unregisterHotKeysMatching([](const VkHotKey &hotKey) { return hotKey.modifierFlags() == 0; });
    EXPECT_THAT(keyCodes(), ElementsAre(5));
    EXPECT_EQ(service.held.size(), 1u);
    center->unregisterAllHotKeys();
    EXPECT_THAT(service.held, IsEmpty());
}

TEST_F(Registry, TellsOfLossesAndOfDoubtfulAndFailedDeliveries) {
    std::vector<std::string> told;
    center->setRegistrationLostHandler([&](const auto &hotKey, const std::string &reason) {
        told.push_back(std::to_string(hotKey->keyCode()) + (hotKey->hotKeyRef() ? " kept " : " ") + reason);
        throw std::runtime_error("no paper");
    });
    center->setRegistrationRegainedHandler(
        [&](const auto &hotKey) { told.push_back(std::to_string(hotKey->keyCode()) + " again"); });
    const auto kept = add(9), lost = add(8);
    const VkHotKeyRef ref = lost->hotKeyRef().value();
    service.lost({*kept->hotKeyRef(), "no such key now", true});
    service.release(1);
    service.regained(*kept->hotKeyRef());
    EXPECT_EQ(center->lastFailure(), std::nullopt);
    service.lost({ref, "refused", false});
    EXPECT_EQ(center->lastFailure(), "refused");
    EXPECT_THAT(keyCodes(), ElementsAre(9));
    service.lost({ref, "refused", false});  // of what is no longer registered
    EXPECT_THAT(told, ElementsAre("9 kept no such key now", "9 again", "8 refused"));
    EXPECT_THAT(log, testing::Contains(HasSubstr("no paper")));
    EXPECT_EQ(center->registerHotKey(lost), lost);

    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].keyCode, 9);
    EXPECT_EQ(events[0].modifierFlags, 0x1F0000u);
    log.clear();
    lost->setHotKeyID(1);
    service.release(1);
    EXPECT_EQ(events.size(), 2u);
    EXPECT_THAT(log, ElementsAre("ERROR!"));
}

TEST_F(Registry, CallsTheActionItsTargetRespondsToOrElseTheTask) {
    auto target = std::make_unique<Target>();
    std::shared_ptr<VkHotKey> hotKey;
    std::uint32_t id = 0;
    for (const char *action : {"both", "Save_bar_item", "variant", "unfit", "missing", "plain"}) {
        hotKey = center->registerHotKeyWithKeyCode(static_cast<std::uint16_t>(++id), 0x1F0000, target.get(),
                                                   action, "x");
        service.release(id);
    }
    EXPECT_THAT(target->calls, ElementsAre("both 1 x", "no sender", "variant 3", "plain"));
    EXPECT_THAT(
        hotKey->description(),
        testing::MatchesRegex("<VkHotKey: 0x[0-9a-f]+>\n\t\\(key: 6\n\tflags: \\(NSControlKeyMask \\| "
                              "NSCommandKeyMask \\| NSShiftKeyMask \\| NSAlternateKeyMask\\)\n\tinvokes: "
                              "\\[<.*Target: 0x[0-9a-f]+> plain\\]\\)"));
    EXPECT_THAT(add(8, 0)->description(), testing::EndsWith("(key: 8\n\tflags: ()\n\tinvokes: (block))"));
    target.reset();
    service.release(1);  // does nothing now

    const std::weak_ptr<VkHotKey> watched =
        center->registerHotKeyWithKeyCode(60, 0, [&, token = std::string("kept")](const VkKeyEvent &event) {
            center->unregisterHotKeyWithKeyCode(60, 0);
            events.push_back(event);
            EXPECT_EQ(token, "kept");
        });
    service.release(id + 2);
    EXPECT_EQ(events.size(), 1u);
    EXPECT_TRUE(watched.expired());
}

TEST(Modifiers, AreFiveAndTheRestIsDropped) {
    for (const auto &[flags, mask] : std::map<std::uint64_t, std::uint32_t>{
             {0x120000, 0x0300}, {0x40000, 0x1000}, {0x80000, 0x0800}, {0x10000, 0x0400}, {~0x1F0000ull, 0}})
        EXPECT_EQ(VkCarbonModifierFlagsFromCocoaModifiers(flags), mask);
}

TEST(SharedCenter, GoesOnWithoutAnApplicationAndWithoutADisplay) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    VkHotKeyCenter &shared = VkHotKeyCenter::sharedHotKeyCenter();
    EXPECT_FALSE(shared.registerHotKeyWithKeyCode(8, kCommandShift, nullptr));
    EXPECT_THAT(*shared.lastFailure(), HasSubstr("main thread"));
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    EXPECT_FALSE(shared.registerHotKeyWithKeyCode(8, kCommandShift, nullptr));
    EXPECT_THAT(*shared.lastFailure(), HasSubstr("DISPLAY is not set"));
}

}  // namespace

#include "registry_test.moc"
