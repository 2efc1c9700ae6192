#include "support/StorageProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <thread>

#include "FTPManager/FTPManager.h"
#include "LogCapture.h"
#include "support/Listener.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

mode_t modeOf(const std::filesystem::path &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

/// A client that speaks to the server by hand, so that it can end in the middle.
class ByHand {
  public:
    explicit ByHand(std::uint16_t port) : control_(connectTo(port)) {
        expect("220");
        say(std::string("USER ") + StorageProcess::kUser, "331");
        say(std::string("PASS ") + StorageProcess::kPassword, "230");
        say("TYPE I", "200");
    }
    ~ByHand() {
        closeData();
        closeControl();
    }

    // The code of the last line before the server hangs up.
    static std::string lastReplyTo(const std::string &lines, std::uint16_t port) {
        const int control = connectTo(port);
        send(control, lines.data(), lines.size(), MSG_NOSIGNAL);
        std::string reply;
        for (char c = 0; recv(control, &c, 1, 0) == 1; reply += c)
            if (reply.ends_with('\n')) reply.clear();
        close(control);
        return reply.substr(0, 3);
    }

    std::string say(const std::string &command, const std::string &expectedCode) {
        const std::string line = command + "\r\n";
        send(control_, line.data(), line.size(), MSG_NOSIGNAL);
        return expect(expectedCode);
    }

    void beginUpload(const std::string &path, std::string_view part) {
        const std::string passive = say("EPSV", "229");
        data_ = connectTo(static_cast<std::uint16_t>(std::stoi(passive.substr(passive.find("|||") + 3))));
        say("STOR " + path, "1");
        EXPECT_EQ(send(data_, part.data(), part.size(), MSG_NOSIGNAL), static_cast<ssize_t>(part.size()));
    }

    void closeControl() { close(std::exchange(control_, -1)); }
    void closeData() { close(std::exchange(data_, -1)); }
    void resetData() {
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        setsockopt(data_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        closeData();
    }

    std::string expect(const std::string &code) {
        std::string line;
        char c = 0;
        while (recv(control_, &c, 1, 0) == 1 && c != '\n') line += c;
        EXPECT_THAT(line, testing::StartsWith(code));
        return line;
    }

  private:
    int control_ = -1;
    int data_ = -1;
};

class Storage : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(storage.port(), 0); }

    bool upload(std::string_view text, const std::string &folder = "/htdocs") {
        FMServer server = FMServer::serverWithDestination("127.0.0.1" + folder, StorageProcess::kUser,
                                                          StorageProcess::kPassword);
        server.port = storage.port();
        return manager.uploadData(text, "n", &server);
    }

    std::vector<std::string> namesInFolder() const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(storage.listsFolder()))
            names.push_back(entry.path().filename());
        return names;
    }

    /// Until nothing is left of an upload that has failed; false after 10 s.
    bool waitForTidyFolder() const {
        const auto limit = std::chrono::steady_clock::now() + 10s;
        while (namesInFolder().size() > 1) {
            if (std::chrono::steady_clock::now() > limit) return false;
            std::this_thread::yield();
        }
        return true;
    }

    StorageProcess storage;
    FTPManager manager;
    LogCapture log;
};

TEST_F(Storage, ServesOnlyItsListsAndOnlyToItsUser) {
    EXPECT_TRUE(upload("text"));
    EXPECT_EQ(contentOf(storage.listsFolder() / "n"), "text");
    EXPECT_EQ(modeOf(storage.listsFolder() / "n"), 0600U);
    EXPECT_EQ(modeOf(storage.listsFolder()), 0700U);
    EXPECT_EQ(contentOf(storage.runtimeFolder() / "storage.port"), std::to_string(storage.port()) + "\n");

    EXPECT_FALSE(upload("x", ""));
    EXPECT_FALSE(upload("x", "/htdocs/.."));
    ByHand client(storage.port());
    client.say("STOR htdocs/.quillery-upload-abc.part", "550");
    client.say("STOR htdocs/folder/n", "550");
    client.say("APPE htdocs/n", "500");
    client.say("PORT 127,0,0,1,200,200", "500");
    client.say("SIZE htdocs/n", "213");

    // An empty folder in a file's place, as web pages once could make one, gives way.
    std::filesystem::remove(storage.listsFolder() / "n");
    std::filesystem::create_directories(storage.listsFolder() / "n/kept");
    EXPECT_FALSE(upload("text"));
    std::filesystem::remove(storage.listsFolder() / "n/kept");
    EXPECT_TRUE(upload("text"));
    EXPECT_THAT(namesInFolder(), ElementsAre("n"));
}

TEST_F(Storage, HearsNothingMoreFromAClientThatDoesNotSpeakFtp) {
    const std::string login =
        std::string("USER ") + StorageProcess::kUser + "\r\nPASS " + StorageProcess::kPassword + "\r\n";
    const std::string orders = login + "DELE htdocs/n\r\nMKD htdocs/folder\r\n";
    const std::vector<std::pair<std::string, std::string>> lastReplies = {
        {"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" + orders, "220"},
        {"USER / HTTP/1.1\r\n" + orders, "220"},
        {"\r\n" + orders, "220"},
        {std::string(5000, 'x') + orders, "220"},
        {login + "Host: 127.0.0.1\r\nPWD\r\n", "230"},
        {login + "GET /\r\nPWD\r\n", "230"},
        {orders + "XMKD htdocs/folder\r\nPWD\r\n", "500"},
    };
    ASSERT_TRUE(upload("text"));
    for (const auto &[lines, reply] : lastReplies)
        EXPECT_EQ(ByHand::lastReplyTo(lines, storage.port()), reply) << lines.substr(0, 100);
    EXPECT_THAT(namesInFolder(), ElementsAre("n"));
}

TEST_F(Storage, IsStartedOncePerUser) {
    const auto second = storage.startAnother();
    EXPECT_THAT(second->readLine().value_or(""),
                HasSubstr("running on port " + std::to_string(storage.port())));
    EXPECT_EQ(second->waitForEnd(), 0);

    storage.process().sendSignal(SIGTERM);
    EXPECT_EQ(storage.process().waitForEnd(), 0);
    EXPECT_FALSE(std::filesystem::exists(storage.runtimeFolder() / "storage.port"));

    const auto third = storage.startAnother();
    EXPECT_THAT(third->readLine().value_or(""), HasSubstr("Serving "));
    std::ofstream(storage.listsFolder() / ".quillery-upload-left_over.part") << "half";
    third->sendSignal(SIGKILL);
    ASSERT_EQ(third->waitForEnd(), 128 + SIGKILL);
    const auto fourth = storage.startAnother({"--port", "0"});
    EXPECT_THAT(fourth->readLine().value_or(""), HasSubstr("Serving "));
    EXPECT_THAT(namesInFolder(), ElementsAre());
    fourth->sendSignal(SIGINT);
    EXPECT_EQ(fourth->waitForEnd(), 0);
}

TEST(StorageStart, FailsInWordsOfItsOwn) {
    StorageProcess first;
    StorageProcess second({"--port", std::to_string(first.port())});
    EXPECT_EQ(second.port(), 0);
    EXPECT_EQ(second.process().waitForEnd(), 1);
    EXPECT_FALSE(std::filesystem::exists(second.runtimeFolder() / "storage.port"));
    StorageProcess third({"--folder", "/proc/nothing"});
    EXPECT_EQ(third.process().waitForEnd(), 1);
}

TEST_F(Storage, EndsWhenNoProgramUsesItAnyMore) {
    storage.process().sendSignal(SIGTERM);
    ASSERT_EQ(storage.process().waitForEnd(), 0);
    const std::string usersFile = storage.runtimeFolder() / "storage.users";
    const int users = open(usersFile.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(users, LOCK_SH), 0);
    const auto server = storage.startAnother({"--while-used"});
    ASSERT_THAT(server->readLine().value_or(""), HasSubstr("Serving "));
    EXPECT_EQ(server->waitForEnd(2500ms), std::nullopt) << "longer than it takes to ask twice";
    flock(users, LOCK_UN);
    EXPECT_EQ(server->waitForEnd(), 0);
    EXPECT_FALSE(std::filesystem::exists(storage.runtimeFolder() / "storage.port"));
    EXPECT_EQ(flock(users, LOCK_EX | LOCK_NB), 0);
    close(users);
}

TEST_F(Storage, KeepsTheWholeOldFileWhenAnUploadIsCut) {
    const std::vector<std::pair<std::string, std::function<void(ByHand &)>>> cuts = {
        {"as by a killed program",
         [](ByHand &c) {
             c.closeControl();
             c.closeData();
         }},
        {"control connection alone", [](ByHand &c) { c.closeControl(); }},
        {"data connection torn",
         [](ByHand &c) {
             c.resetData();
             c.expect("426");
         }},
        {"aborted",
         [](ByHand &c) {
             c.say("ABOR", "");  // 426 or 225: it may come before the data
         }},
    };
    ASSERT_TRUE(upload("the old text"));
    for (const auto &[name, cut] : cuts) {
        SCOPED_TRACE(name);
        {
            ByHand client(storage.port());
            client.beginUpload("htdocs/n", std::string(50'000, 'x'));
            cut(client);
        }
        EXPECT_TRUE(waitForTidyFolder());
        EXPECT_EQ(contentOf(storage.listsFolder() / "n"), "the old text");
    }

    ByHand client(storage.port());
    client.beginUpload("htdocs/n", "the new text");
    EXPECT_EQ(contentOf(storage.listsFolder() / "n"), "the old text");
    client.closeData();
    client.expect("226");
    EXPECT_EQ(contentOf(storage.listsFolder() / "n"), "the new text");
}

TEST_F(Storage, KeepsTheWholeOldFileWhenTheDiskIsFull) {
    ASSERT_TRUE(upload("the old text"));
    const rlimit limit{.rlim_cur = 100'000, .rlim_max = 100'000};
    ASSERT_EQ(prlimit(storage.process().id(), RLIMIT_FSIZE, &limit, nullptr), 0);
    EXPECT_FALSE(upload(std::string(1'000'000, 'x')));
    EXPECT_TRUE(waitForTidyFolder());
    EXPECT_EQ(contentOf(storage.listsFolder() / "n"), "the old text");
    EXPECT_TRUE(upload("small enough"));
}

}  // namespace
