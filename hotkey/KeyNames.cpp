#include "hotkey/KeyCodes.h"
#include "hotkey/KeyboardLayout.h"
#include "hotkey/VkHotKey.h"
#include "hotkey/VkHotKeyUtilities.h"

namespace {

constexpr std::uint16_t kCommandKey = 55, kShiftKey = 56, kOptionKey = 58, kControlKey = 59;

// In the order in which a combination is written.
constexpr std::pair<std::uint64_t, std::uint16_t> kModifierKeys[] = {{kVkControlFlag, kControlKey},
                                                                     {kVkOptionFlag, kOptionKey},
                                                                     {kVkShiftFlag, kShiftKey},
                                                                     {kVkCommandFlag, kCommandKey}};

}  // namespace

const std::map<int, std::string> &VkKeyCodeToCharacterMap() {
    // Never destroyed, so that it can be asked for until the very end of the process.
    static const auto *const map = new std::map<int, std::string>{
        {36, "↩"},    {48, "⇥"},    {49, "⎵"},    {51, "⌫"},    {53, "⎋"},    {55, "⌘"},    {56, "⇧"},
        {57, "⇪"},    {58, "⌥"},    {59, "⌃"},    {60, "⇧"},    {61, "⌥"},    {62, "⌃"},    {72, "🔊"},
        {73, "🔈"},    {74, "🔇"},    {63, "⌘"},    {122, "F1"},  {120, "F2"},  {99, "F3"},   {118, "F4"},
        {96, "F5"},   {97, "F6"},   {98, "F7"},   {100, "F8"},  {101, "F9"},  {109, "F10"}, {103, "F11"},
        {111, "F12"}, {105, "F13"}, {107, "F14"}, {113, "F15"}, {106, "F16"}, {64, "F17"},  {79, "F18"},
        {80, "F19"},  {90, "F20"},  {117, "⌦"},   {115, "↖"},   {119, "↘"},   {116, "⇞"},   {121, "⇟"},
        {123, "←"},   {124, "→"},   {125, "↓"},   {126, "↑"}};
    return *map;
}

std::string VkStringFromKeyCode(std::uint16_t keyCode, std::uint64_t modifiers) {
    const std::map<int, std::string> &characters = VkKeyCodeToCharacterMap();
    std::string name;
    bool isModifierItself = false;
    for (const auto &[flag, key] : kModifierKeys) {
        if (modifiers & flag) name += characters.at(key);
        isModifierItself |= keyCode == key;
    }
    if (isModifierItself) return name;
    if (const auto found = characters.find(keyCode); found != characters.end()) return name + found->second;
    const std::optional<std::uint16_t> inputCode = hotkey::inputCodeFromKeyCode(keyCode);
    return inputCode ? name + hotkey::textOfKey(*inputCode) : name;
}
