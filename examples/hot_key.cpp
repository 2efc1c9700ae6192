// hot_key [MODIFIERS] [KEY CODE...]: takes combinations for itself, Super+Shift+C by default, and prints a
// line each time one is pressed in whatever program. Return gives them back, and takes them again. Modifiers
// begin with 0x: 0x120000 is Super+Shift, 0xC0000 is Ctrl+Alt. Key codes name places on the keyboard: 8 is C,
// 9 is V, 122 is F1.
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "hotkey/VkHotKeyCenter.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

std::string nameOf(const VkHotKey &hotKey) {
    return VkStringFromKeyCode(hotKey.keyCode(), hotKey.modifierFlags());
}

void take(const std::shared_ptr<VkHotKey> &hotKey) {
    VkHotKeyCenter &center = VkHotKeyCenter::sharedHotKeyCenter();
    const bool isTaken = center.registerHotKey(hotKey) != nullptr;
    if (isTaken) std::printf("Press %s; Ctrl+C in this terminal ends it\n", nameOf(*hotKey).c_str());
    if (!isTaken)
        std::printf("%s is not to be had: %s\n", nameOf(*hotKey).c_str(), center.lastFailure()->c_str());
}

}  // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);  // hot keys come from its event loop
    std::setbuf(stdout, nullptr);

    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::uint64_t modifiers = kVkCommandFlag | kVkShiftFlag;  // Super is Command here, and Alt is Option
    if (!arguments.empty() && arguments.front().starts_with("0x")) {
        modifiers = std::strtoull(arguments.front().c_str(), nullptr, 16);
        arguments.erase(arguments.begin());
    }
    if (arguments.empty()) arguments.emplace_back("8");

    VkHotKeyCenter &center = VkHotKeyCenter::sharedHotKeyCenter();
    center.setPurpose("Print a line");  // shown by desktops that ask whether the program may have it
    center.setRegistrationLostHandler([](const auto &hotKey, const std::string &reason) {
        std::printf("%s is lost: %s\n", nameOf(*hotKey).c_str(), reason.c_str());
    });
    center.setRegistrationRegainedHandler(
        [](const auto &hotKey) { std::printf("%s is back\n", nameOf(*hotKey).c_str()); });

    std::vector<std::shared_ptr<VkHotKey>> hotKeys;
    for (const std::string &argument : arguments) {
        const auto keyCode = static_cast<std::uint16_t>(std::atoi(argument.c_str()));
        hotKeys.push_back(
            VkHotKey::hotKeyWithKeyCode(keyCode, modifiers, [keyCode, modifiers](const VkKeyEvent &) {
                std::printf("%s was pressed\n", VkStringFromKeyCode(keyCode, modifiers).c_str());
            }));
        take(hotKeys.back());
    }
    if (center.registeredHotKeys().empty()) return 1;

    QSocketNotifier typed(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&typed, &QSocketNotifier::activated, [&] {
        char letter = 0;
        if (read(STDIN_FILENO, &letter, 1) != 1) return typed.setEnabled(false);
        if (letter != '\n') return;
        const bool areTaken = !center.registeredHotKeys().empty();
        if (areTaken) center.unregisterAllHotKeys();
        for (const auto &hotKey : hotKeys)
            if (!areTaken) take(hotKey);
    });
    return QCoreApplication::exec();
}
