// hot_key [KEY CODE]: takes Super+Shift and a key for itself, Super+Shift+C by default, and prints a line
// each time the combination is pressed in whatever program. Key codes name places on the keyboard: 8 is C, 9
// is V, 122 is F1.
#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);  // hot keys come from its event loop
    std::setbuf(stdout, nullptr);

    const auto keyCode = static_cast<std::uint16_t>(argc > 1 ? std::atoi(argv[1]) : 8);
    const std::uint64_t modifiers =
        kVkCommandFlag | kVkShiftFlag;  // Super is Command here, and Alt is Option
    const std::string name = VkStringFromKeyCode(keyCode, modifiers);

    VkHotKeyCenter &center = VkHotKeyCenter::sharedHotKeyCenter();
    center.setPurpose("Print a line");  // shown by desktops that ask whether the program may have it
    center.setRegistrationLostHandler([&](const auto &, const std::string &reason) {
        std::printf("%s is lost: %s\n", name.c_str(), reason.c_str());
    });
    const auto hotKey = center.registerHotKeyWithKeyCode(
        keyCode, modifiers, [&](const VkKeyEvent &) { std::printf("%s was pressed\n", name.c_str()); });
    if (!hotKey) {
        std::printf("%s is not to be had: %s\n", name.c_str(), center.lastFailure()->c_str());
        return 1;
    }
    std::printf("Press %s; Ctrl+C in this terminal ends it\n", name.c_str());
    return QCoreApplication::exec();
}
