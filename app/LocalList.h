#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileManager.h"

// Changes of the list on this machine. Each reads the file, changes it and writes it whole under one lock, so
// that none overwrites another's; the file holds either the old or the new list at every instant. A file that
// is there but cannot be read is set aside before anything is written, and a line on standard error says so.
//
// May be used from any thread, the UI thread included: nothing here waits for another thread but for its file
// work.
class LocalList {
  public:
    struct Change {
        std::optional<std::string> old;  // what the list was; nothing if there was none that could be read
        bool isWritten = false;
        std::string problem;  // why a list that should have been written was not, in words
    };

    // Puts `entry` in front. A list that does not exist begins as the entry alone.
    Change add(const std::filesystem::path &path, std::string_view entry);

    // Takes out every occurrence of `entry` followed by the terminator. No list becomes an empty one.
    Change remove(const std::filesystem::path &path, std::string_view entry);

    // Puts `entry` in front unless it occurs already. Writes nothing where there is no list that can be read.
    Change addUnlessThere(const std::filesystem::path &path, std::string_view entry);

    // Makes it an empty list, whatever it was. Returns why that failed, in words; nothing if it did not.
    std::string empty(const std::filesystem::path &path);

  private:
    std::string replace(const std::filesystem::path &path, const FileText &old, const std::string &text);

    FileManager files_;
    std::mutex mutex_;
};
