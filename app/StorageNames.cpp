#include "app/StorageNames.h"

#include <array>
#include <ctime>
#include <random>

namespace {

std::string named(std::string_view user, std::string_view kind) {
    std::string name(user);
    name += '_';
    name += kind;
    name += ".txt";
    return name;
}

}  // namespace

std::string StorageNames::clipList(std::string_view user) {
    return "." + named(user, "Quillery");
}
std::string StorageNames::username(std::string_view user) {
    return named(user, "Username");
}
std::string StorageNames::password(std::string_view user) {
    return named(user, "Password");
}
std::string StorageNames::fullname(std::string_view user) {
    return named(user, "Fullname");
}
std::string StorageNames::email(std::string_view user) {
    return named(user, "Email");
}
std::string StorageNames::contacts(std::string_view user) {
    return named(user, "Contacts");
}
std::string StorageNames::shared(std::string_view user) {
    return named(user, "shared");
}

std::string StorageNames::unread(std::string_view file) {
    const std::time_t now = std::time(nullptr);
    std::tm utc = {};
    gmtime_r(&now, &utc);
    std::array<char, 32> date = {};
    std::strftime(date.data(), date.size(), "%Y-%m-%d-%H%M%S", &utc);
    std::string name(file);
    ((name += ".unread-") += date.data()) += '-';
    return name += std::to_string(std::random_device()());  // other programs may do the same at the same time
}

std::filesystem::path StorageNames::localClipList(const std::filesystem::path &home) {
    return home / "Documents" / ".Quillery.txt";
}

std::filesystem::path StorageNames::localClipListOf(std::string_view user,
                                                    const std::filesystem::path &home) {
    return home / "Documents" / clipList(user);
}
