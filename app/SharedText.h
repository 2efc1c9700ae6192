#pragma once

#include <string>
#include <string_view>

// How a text that a user sends to another is marked with its sender. The mark is a part of the entry.
namespace SharedText {

inline std::string inList(std::string_view sender, std::string_view text) {
    return "Shared from(" + std::string(sender) + ")" + std::string(text);
}

inline std::string inSharedFile(std::string_view sender, std::string_view text) {
    return "(" + std::string(sender) + ")" + std::string(text);
}

}  // namespace SharedText
