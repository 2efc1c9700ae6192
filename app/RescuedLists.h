#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/FileManager.h"

// Copies of lists whose texts may be lost otherwise: a list that is written anew although it could not be
// read, a text that was announced as saved and did not reach its list, a file that was set aside.
//
// The copies are dated files in one folder of the user's, readable by the user alone, at most kMostFiles and
// kMostBytes of them; the oldest go first, the latest always stays. A list's copy is written over for as long
// as it only grows, so many failures in a row do not push the other copies out.
//
// May be used from any thread.
class RescuedLists {
  public:
    static constexpr std::size_t kMostFiles = 20;
    static constexpr std::uintmax_t kMostBytes = 64ULL * 1024 * 1024;

    enum class Reason {
        kNotRead,     // the list is written anew although it could not be read
        kSetAside,    // the same, and it lies on the server under another name, which `copy` tells
        kNotWritten,  // the list could not be written
        kCutShort,    // a program ended before it had written the list, here or on the server
    };
    // Told of each copy, on the thread that made it, with the copy's path.
    using Tell = std::function<void(const std::filesystem::path &copy, Reason reason)>;

    RescuedLists(std::filesystem::path folder, Tell tell);
    ~RescuedLists();
    RescuedLists(const RescuedLists &) = delete;
    RescuedLists &operator=(const RescuedLists &) = delete;

    const std::filesystem::path &folder() const { return folder_; }

    // The whole text of the list `name` as it was read or written last.
    void remember(const std::string &name, std::shared_ptr<const std::string> text, bool isWritten);

    void letGo(const std::string &name);

    // Keeps what is known of the list, together with the texts that did not reach it. Nothing happens where
    // the copy is there already. False if nothing is known, or it could not be kept.
    bool keep(const std::string &name, Reason reason);
    // Keeps `bytes`, which were read as this list, or as what was set aside of it. False if they could not be
    // kept.
    bool keepBytes(const std::string &name, std::string_view bytes);
    // Keeps `entry`, which did not reach the list, in front of what is known of it. False if it could not be
    // kept.
    bool keepEntry(const std::string &name, std::string_view entry);

    // Keeps `text`, in the form of a list, for as long as it is on its way to the list, so that the end of
    // this program does not lose it. Returns its file, which forget() removes; empty if it could not be kept.
    // Nothing is told. The file is locked until then: other programs of the user leave it alone.
    std::filesystem::path keepMeanwhile(const std::string &name, std::string_view text);
    void forget(const std::filesystem::path &meanwhile);
    // Keeps such a file for good.
    void stay(const std::filesystem::path &meanwhile, Reason reason);
    // forget(), unless its text is nowhere else: where not even a copy could be written, on a full disk, it
    // is all that there is of the text, and stays.
    void settle(const std::filesystem::path &meanwhile, bool isSafe);
    // The texts that former programs kept so and did not come to forget stay for good. Whether there are any.
    bool adoptLeftovers();

  private:
    struct List {
        std::shared_ptr<const std::string> known;
        std::string unsaved;         // entries in the form of a list
        std::filesystem::path copy;  // of the two above; empty for none
        bool isKept = false;         // the copy holds all of them
    };

    void makeFolder() const;
    void write(const std::string &name, List &list, Reason reason);
    std::filesystem::path newName(const std::string &list, const char *ending = "") const;
    std::filesystem::path renamedForGood(const std::filesystem::path &meanwhile) const;
    void removeOldest(const std::filesystem::path &latest) const;

    const std::filesystem::path folder_;
    const Tell tell_;
    const FileManager files_{};
    std::mutex mutex_;
    std::map<std::string, List> lists_;
    std::map<std::filesystem::path, int> meanwhile_;  // the descriptors that hold the locks
};
