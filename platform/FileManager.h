#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// What reading a whole text file found.
struct FileText {
    enum class State {
        kText,        // `text` holds it
        kMissing,     // there is no such file
        kNotText,     // it was read to its end and is certainly no text, not UTF-8
        kUnreadable,  // it could not be read, now or ever: `problem` says why; a good text may be in it
    };
    State state = State::kMissing;
    std::optional<std::string> text;
    std::string problem;  // a clause about the file, in words; empty if there is a text, or no file
};

// Local files, read whole and written whole. May be used from any thread; a program that writes a file that
// others write, too, holds its FileLock. A symbolic link is followed, a dangling one to the file that it
// names. Only std::bad_alloc is thrown, and not by textAtPath.
class FileManager {
  public:
    // Reads the file at `path` as UTF-8 text. Never blocks: what is no file (a folder, a pipe, a device, a
    // socket) is unreadable, and so is a text too big for the memory.
    FileText textAtPath(const std::filesystem::path &path) const;

    // False also where that cannot be told.
    bool fileExistsAtPath(const std::filesystem::path &path) const;

    // Creates or replaces the file at `path` with `contents`, readable by its owner alone (mode 0600, where
    // the file system knows modes); a missing folder is made, but not that of a link's target, which may be
    // on a disk that is away. The bytes go to a new file in the same folder, are flushed to the disk, and
    // then take the old file's place in one step: at every instant the path holds either the whole old or the
    // whole new contents. Returns an empty text, or the reason of a failure in words, with the old file as it
    // was.
    std::string createFileAtPath(const std::filesystem::path &path, std::string_view contents) const;

    // Creates an empty file unless something is there, in one step: it never replaces what another program
    // has just written. Returns as createFileAtPath does.
    std::string createFileIfMissing(const std::filesystem::path &path) const;

    // Moves the file at `path` to a dated name beside it that is not taken yet. Returns that name, or nothing
    // if it could not be moved (it then stands where it was).
    std::optional<std::filesystem::path> setAside(const std::filesystem::path &path) const;

    // Removes what writes of this file left beside it when their programs were killed, if it has not been
    // touched for `age`. Zero only with the file's lock held: every other write is over then.
    void removeLeftovers(const std::filesystem::path &path, std::chrono::seconds age) const;
};

// The lock that a program holds from reading a file to having written it, so that no other program's or
// thread's change comes in between: a file beside it, NAME.lock, which stays. The kernel releases the lock of
// a program that is killed. Readers need none. Any thread; throws only std::bad_alloc.
class FileLock {
  public:
    static constexpr std::chrono::seconds kLimit{10};

    // Takes the lock of the file at `path`, whose folder is made if missing. Blocks for as long as another
    // one holds it, up to `limit`.
    explicit FileLock(const std::filesystem::path &path, std::chrono::milliseconds limit = kLimit);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // Why the file must not be changed now, a clause in words; empty if it may be.
    const std::string &problem() const { return problem_; }
    // False also where there is no problem but a file system that has no locks.
    bool isHeld() const { return isHeld_; }

  private:
    int descriptor_ = -1;
    bool isHeld_ = false;
    std::string problem_;
};
