#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// What reading a whole text file found.
struct FileText {
    enum class State {
        kText,        // `text` holds it
        kMissing,     // there is no such file
        kNotText,     // it is there but is not UTF-8
        kUnreadable,  // it is there (or may be) but could not be read; `problem` says why
    };
    State state = State::kMissing;
    std::optional<std::string> text;
    std::string problem;

    // Something is there that a write would destroy without anybody having read it.
    bool mustBeSetAside() const { return state == State::kNotText || state == State::kUnreadable; }
};

// Local files, read whole and written whole. May be used from any thread; calls on the same path are for the
// caller to keep apart. Nothing throws.
class FileManager {
  public:
    // Reads the file at `path` as UTF-8 text.
    FileText textAtPath(const std::filesystem::path &path) const;

    bool fileExistsAtPath(const std::filesystem::path &path) const;

    // Creates or replaces the file at `path` with `contents`, readable by its owner alone (mode 0600); a
    // missing folder is made. The bytes go to a new file in the same folder, are flushed to the disk, and
    // then take the old file's place in one step: at every instant the path holds either the whole old or the
    // whole new contents. Where `path` is a symbolic link, the file it points to is replaced. Returns an
    // empty text, or the reason of a failure in words, with the old file as it was.
    std::string createFileAtPath(const std::filesystem::path &path, std::string_view contents) const;

    // Moves the file at `path` to a dated name beside it that is not taken yet. Returns that name, or nothing
    // if it could not be moved (it then stands where it was).
    std::optional<std::filesystem::path> setAside(const std::filesystem::path &path) const;
};
