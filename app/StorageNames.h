#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// The names of all files that are kept, on the storage server and on this machine. User names go in exactly
// as they are; whether the result can be a file name on a server is for the FTP client to judge.
namespace StorageNames {

// The remote directory of all files on the server.
inline constexpr std::string_view kRemoteDirectory = "htdocs";

// What the probe writes to see whether the server takes files.
inline constexpr std::string_view kCheckInternet = ".Check_internet";

std::string clipList(std::string_view user);  // the user's saved texts
std::string username(std::string_view user);  // there exactly if the account exists
std::string password(std::string_view user);
std::string fullname(std::string_view user);
std::string email(std::string_view user);
std::string contacts(std::string_view user);
std::string shared(std::string_view user);  // texts shared with the user

// What a file is renamed to on the server when it is written anew although it could not be read. Another name
// with each call.
std::string unread(std::string_view file);

// The list on this machine.
std::filesystem::path localClipList(const std::filesystem::path &home);

// A list of the user's own on this machine. No operation reads or writes it.
std::filesystem::path localClipListOf(std::string_view user, const std::filesystem::path &home);

}  // namespace StorageNames
