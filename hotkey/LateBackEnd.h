#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "hotkey/BackEnd.h"
#include "hotkey/Deliveries.h"

namespace hotkey {

/// Stands for a back end that is still being opened: takes what is registered meanwhile, and hands it over
/// to the one that is there in the end. What cannot be registered with that, or with none, is reported as
/// lost.
class LateBackEnd : public BackEnd {
  public:
    void installEventHandler(ReleasedHandler released, LostHandler lost, RegainedHandler regained) override;
    Registration registerEventHotKey(std::uint16_t keyCode, std::uint32_t modifiers,
                                     HotKeyIdentifier identifier, const std::string &purpose) override;
    void unregisterEventHotKey(VkHotKeyRef ref) override;
    bool isLost() const override;

  protected:
    /// Has it decided from the event loop, where this object may end.
    void decideLater(std::function<OpenedBackEnd()> open);

  private:
    struct Wanted {
        std::uint16_t keyCode;
        std::uint32_t modifiers;
        HotKeyIdentifier identifier;
        std::string purpose;
    };
    void decide(OpenedBackEnd opened);
    VkHotKeyRef ours(VkHotKeyRef ref) const;

    ReleasedHandler releasedHandler_;
    LostHandler lostHandler_;
    RegainedHandler regainedHandler_;
    std::map<VkHotKeyRef, Wanted> wanted_;
    std::map<VkHotKeyRef, VkHotKeyRef> theirs_;  // of what was wanted; later handles are the same
    std::unique_ptr<BackEnd> actual_;
    std::string failure_;  // why there is none
    bool isDecided_ = false;
    Deliveries deliveries_;
};

}  // namespace hotkey
