// What the centre keeps and tells by itself, whatever the service.

#include <gmock/gmock.h>

#include <QObject>
#include <map>
#include <vector>

#include "hotkey/BackEnd.h"
#include "hotkey/VkHotKeyCenter.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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

    Q_INVOKABLE void Save_bar_item(QObject *sender) { calls.push_back(sender ? "a sender" : "no sender"); }
    Q_INVOKABLE void unfit(int) { calls.push_back("unfit"); }
};

class Registry : public testing::Test {
  protected:
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
};

TEST_F(Registry, TakesACombinationOnceAndNumbersSuccessesOnly) {
    EXPECT_FALSE(none);
    EXPECT_EQ(center->lastFailure(), "not yet");
    const auto first = add(9);
    service.refusal = "taken";
    EXPECT_FALSE(add(8));
    EXPECT_EQ(center->lastFailure(), "taken");
    service.refusal.clear();
    const auto second = add(8, kCommandShift | 0x800000 | kVkCapsLockFlag);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(center->lastFailure(), std::nullopt);
    EXPECT_EQ(first->hotKeyID(), 1u);
    EXPECT_EQ(service.held.at(*second->hotKeyRef()), Combination(8, 0x0700));
    EXPECT_EQ(service.last.id, 2u);
    center->unregisterHotKey(second);
    EXPECT_EQ(center->registerHotKey(second), second);
    EXPECT_EQ(second->hotKeyID(), 3u);
    EXPECT_EQ(openings, 2);

    EXPECT_FALSE(add(9));
    EXPECT_THAT(*center->lastFailure(), HasSubstr("already"));
    EXPECT_TRUE(add(9, kVkCommandFlag));
    EXPECT_THAT(keyCodes(), testing::UnorderedElementsAre(8, 9, 9));
    center->unregisterHotKeyWithKeyCode(9, kCommandShift);
    EXPECT_EQ(service.held.size(), 2u);
    center->unregisterAllHotKeys();
    EXPECT_THAT(service.held, testing::IsEmpty());
}

TEST_F(Registry, TellsOfLossesAndOfWhatIsBack) {
    std::vector<std::string> told;
    center->setRegistrationLostHandler([&](const auto &hotKey, const std::string &reason) {
        told.push_back(std::to_string(hotKey->keyCode()) + (hotKey->hotKeyRef() ? " kept " : " ") + reason);
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
    EXPECT_EQ(center->registerHotKey(lost), lost);

    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].keyCode, 9);
    EXPECT_EQ(events[0].modifierFlags, 0x1F0000u);
}

TEST_F(Registry, CallsTheActionItsTargetRespondsToOrElseTheTask) {
    auto target = std::make_unique<Target>();
    for (const std::uint16_t keyCode : {1, 2, 3}) {
        center->registerHotKeyWithKeyCode(keyCode, 0, target.get(),
                                          keyCode == 1   ? "Save_bar_item"
                                          : keyCode == 2 ? "unfit"
                                                         : "missing");
        service.release(keyCode);
    }
    EXPECT_THAT(target->calls, ElementsAre("no sender"));
    target.reset();
    service.release(1);  // does nothing now

    const std::weak_ptr<VkHotKey> watched =
        center->registerHotKeyWithKeyCode(60, 0, [&, token = std::string("kept")](const VkKeyEvent &) {
            center->unregisterHotKeyWithKeyCode(60, 0);
            EXPECT_EQ(token, "kept");
        });
    service.release(4);
    EXPECT_TRUE(watched.expired());
}

}  // namespace

#include "registry_test.moc"
