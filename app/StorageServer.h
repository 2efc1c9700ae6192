#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "FTPManager/FTPManager.h"
#include "FTPManager/TurnQueue.h"
#include "app/RescuedLists.h"
#include "platform/PersonalStorage.h"

class ServerFile;

// The storage server with its files. Hands out one file at a time to each operation, in the order in which
// the operations asked: a read never sees a file that this program is writing, and no change of a list is
// overwritten by another one of this program's.
//
// May be used from any thread; everything that it is given outlives it.
class StorageServer : public std::enable_shared_from_this<StorageServer> {
  public:
    struct Place {
        std::string host;
        FMServer descriptor;
        // Where the server is this machine's own: makes sure that it runs. Empty otherwise.
        std::function<PersonalStorage::Result(const std::stop_token &)> personalStorage;
        // A read that fails for a reason that may pass is tried again after each of these.
        std::vector<std::chrono::milliseconds> pauses;
    };

    StorageServer(std::shared_ptr<FTPTransport> transport, FTPManager &manager, Place place,
                  RescuedLists &rescued);

    // Takes the next place in the queue for the file `name` in the remote directory. Quick; asks nothing of
    // the server.
    std::shared_ptr<ServerFile> file(const std::string &name);
    // The same for a list, whose texts are remembered, and kept on this machine where they may be lost.
    std::shared_ptr<ServerFile> list(const std::string &name);

    const std::string &host() const { return place_.host; }
    bool isPersonal() const { return static_cast<bool>(place_.personalStorage); }

  private:
    friend class ServerFile;
    std::optional<FMServer> find(const std::stop_token &stop) const;
    std::optional<std::string> urlOf(const std::string &name, const std::stop_token &stop) const;
    fm::TurnQueue &queueOf(const std::string &name);

    const std::shared_ptr<FTPTransport> transport_;
    FTPManager &manager_;
    const Place place_;
    RescuedLists &rescued_;
    std::mutex queuesMutex_;
    std::map<std::string, fm::TurnQueue> queues_;  // none ever goes
};

// One operation's hold on one file of the server, from StorageServer::file or list until release() or its
// end. Each call first waits until the operations that asked before have let go. Blocks; a request to `stop`
// ends it soon. Used by one thread at a time.
class ServerFile {
  public:
    ServerFile(std::shared_ptr<StorageServer> server, std::string name, bool isList);
    ServerFile(const ServerFile &) = delete;
    ServerFile &operator=(const ServerFile &) = delete;

    // The whole text, or null. A read that fails for a reason that may pass is repeated after each of the
    // server's pauses.
    std::shared_ptr<const std::string> read(const std::stop_token &stop = {});

    // Whether the file is there; nothing if the server does not tell.
    std::optional<bool> exists(const std::stop_token &stop = {});

    // Makes `text` the whole file. False if the server has not confirmed it. A list that read() could not
    // read gets another name on the server before, if that can rename, and is fetched from there if that
    // goes. What else is known of it, and of one that is not written, is kept on this machine. A list that is
    // too large to be read is not written.
    bool replace(std::string text, const std::stop_token &stop = {});

    // Writes the list with `entry` in front of what read() gave. Should that fail, the entry is kept on this
    // machine.
    bool putInFront(const std::string &entry);
    // From now until putInFront() has ended, the end of this program does not lose the entry.
    void announce(std::string_view entry);

    // Nothing needs to be known of the list any more: it is another user's.
    void forgetText();

    // Lets the next operation have the file.
    void release() { turn_.reset(); }

  private:
    FTPText readFile(const std::string &name, const std::stop_token &stop) const;
    std::optional<bool> rename(const std::string &from, const std::string &to) const;
    void remove(const std::string &name) const;
    bool write(const std::string &text, const std::stop_token &stop);
    bool writeAndSetAside(const std::string &text, const std::stop_token &stop);
    bool upload(const std::string &text, const std::string &name, const std::stop_token &stop) const;
    void keepMeanwhile(std::string_view text);

    const std::shared_ptr<StorageServer> server_;
    const std::string name_;
    const bool isList_;
    std::optional<fm::TurnQueue::Turn> turn_;
    bool wasRead_ = false;
    FTPText::State state_ = FTPText::State::kCancelled;  // of the last read
    std::shared_ptr<const std::string> text_;
    std::string bytes_;  // which are no text
    std::filesystem::path meanwhile_;
};
