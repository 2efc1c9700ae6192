#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileManager.h"

// The list on this machine: reading it, and changes. Each change reads the file, changes it and writes it
// whole under one lock, which other programs respect, too, so that none overwrites another's; the file holds
// either the old or the new list at every instant.
//
// A file that is there but is certainly no text is set aside before anything is written, and a line on
// standard error says so. One that cannot be read for any other reason stays: nothing is written then.
//
// May be used from any thread, the UI thread included, and throws nothing: a list that the memory does not
// suffice for is a problem in words. A change waits for its file work and up to FileLock::kLimit for each
// change before it.
class LocalList {
  public:
    using Text = std::shared_ptr<const std::string>;

    struct Reading {
        FileText::State state = FileText::State::kMissing;
        Text text;            // null unless there is one
        std::string problem;  // as in FileText
    };

    struct Change {
        Text old;  // what the list was; null if there was none that could be read
        bool isWritten = false;
        std::string problem;  // why a list that should have been written was not, in words
        // Where a list that was no text is kept now, and what this program last knew of it (may be null).
        std::optional<std::filesystem::path> setAside;
        Text lastKnown;
    };

    // Reads the list as it is.
    Reading read(const std::filesystem::path &path);

    // Puts `entry` in front. A list that does not exist begins as the entry alone.
    Change add(const std::filesystem::path &path, std::string_view entry);

    // Takes out every occurrence of `entry` followed by the terminator. No list becomes an empty one.
    Change remove(const std::filesystem::path &path, std::string_view entry);

    // Puts `entry` in front unless it occurs already. Writes nothing, and reports no problem, where there is
    // no list that can be read.
    Change addUnlessThere(const std::filesystem::path &path, std::string_view entry);

    // Makes it an empty list.
    Change empty(const std::filesystem::path &path);

    // Makes an empty list where there is no file, and never replaces one that comes meanwhile. Returns why
    // there is none now, in words; nothing if there is one.
    std::string createIfMissing(const std::filesystem::path &path);

    // The last text of the list that was read or written through this object; null if there was none.
    Text lastKnown() const;

  private:
    // The new text for an old one, which is null if there is no list that is text; nothing if the list is to
    // stay.
    using Edit = std::function<std::optional<std::string>(const Text &old)>;
    Change change(const std::filesystem::path &path, const Edit &edit);
    void changeLocked(const std::filesystem::path &path, const Edit &edit, Change &change);
    Reading readText(const std::filesystem::path &path);
    void remember(const Text &text);

    FileManager files_;
    std::mutex mutex_;  // for file systems without locks
    bool isTidy_ = false;
    mutable std::mutex lastKnownMutex_;
    Text lastKnown_;
};
