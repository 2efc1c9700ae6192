// The personal storage server: who may use it, when it ends, and that a list is the old one or the new one.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <thread>

#include "Client.h"
#include "support/FtpServers.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

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
    ~ByHand() { closeData(), closeControl(); }

    std::string say(const std::string &command, const std::string &expectedCode) {
        const std::string line = command + "\r\n";
        send(control_, line.data(), line.size(), MSG_NOSIGNAL);
        return expect(expectedCode);
    }
    std::string expect(const std::string &code) {
        std::string line;
        char c = 0;
        while (recv(control_, &c, 1, 0) == 1 && c != '\n') line += c;
        EXPECT_THAT(line, StartsWith(code));
        return line;
    }
    /// Gives the port for the data.
    std::uint16_t openData() {
        const std::string passive = say("EPSV", "229");
        return static_cast<std::uint16_t>(std::stoi(passive.substr(passive.find("|||") + 3)));
    }
    void beginUpload(std::uint16_t dataPort, const std::string &path, const std::string &part) {
        data_ = connectTo(dataPort);
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

  private:
    int control_ = -1;
    int data_ = -1;
};

/// The code of the last line before the server hangs up.
std::string lastReplyTo(const std::string &lines, std::uint16_t port) {
    const int control = connectTo(port);
    send(control, lines.data(), lines.size(), MSG_NOSIGNAL);
    std::string reply;
    for (char c = 0; recv(control, &c, 1, 0) == 1; reply += c)
        if (reply.ends_with('\n')) reply.clear();
    close(control);
    return reply.substr(0, 3);
}

class Storage : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(storage.port(), 0); }

    bool upload(std::string_view text, const std::string &folder = "/htdocs") {
        client.server.destination = "127.0.0.1" + folder;
        return client.upload(text);
    }
    std::string stored() const { return contentOf(storage.listsFolder() / "n"); }
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

    const mode_t before_ = umask(0);  // what is private is so without its help
    StorageProcess storage;
    const mode_t none_ = umask(before_);
    Client client{storage.port(), TransportOptions(), StorageProcess::kUser, StorageProcess::kPassword};
    LogCapture log;
};

TEST_F(Storage, ServesOnlyItsListsAndKeepsThemPrivate) {
    EXPECT_TRUE(upload("text"));
    EXPECT_EQ(stored(), "text");
    EXPECT_EQ(contentOf(storage.runtimeFolder() / "storage.port"), std::to_string(storage.port()) + "\n");
    const auto lists = storage.listsFolder(), runtime = storage.runtimeFolder();
    for (const auto &folder : {lists, lists.parent_path(), runtime})
        EXPECT_EQ(modeOf(folder), 0700U) << folder;
    for (const auto &file : {lists / "n", runtime / "storage.port", runtime / "storage.users"})
        EXPECT_EQ(modeOf(file), 0600U) << file;

    EXPECT_FALSE(upload("x", ""));
    EXPECT_FALSE(upload("x", "/htdocs/.."));
    ByHand byHand(storage.port());
    byHand.say("STOR htdocs/.quillery-upload-abc.part", "550");
    byHand.say("STOR htdocs/folder/n", "550");
    byHand.say("APPE htdocs/n", "500");
    byHand.say("PORT 127,0,0,1,200,200", "500");
    byHand.say("SIZE htdocs/n", "213");

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
    ASSERT_TRUE(upload("text"));
    for (const auto &[lines, reply] : std::vector<std::pair<std::string, std::string>>{
             {"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" + orders, "220"},
             {"USER / HTTP/1.1\r\n" + orders, "220"},
             {"\r\n" + orders, "220"},
             {std::string(5000, 'x') + orders, "220"},
             {login + "Host: 127.0.0.1\r\nPWD\r\n", "230"},
             {login + "GET /\r\nPWD\r\n", "230"},
             {orders + "XMKD htdocs/folder\r\nPWD\r\n", "500"}})
        EXPECT_EQ(lastReplyTo(lines, storage.port()), reply) << lines.substr(0, 100);
    EXPECT_THAT(namesInFolder(), ElementsAre("n"));
}

TEST_F(Storage, IsClosedToStrangers) {
    if (getuid() != 0) GTEST_SKIP() << "skip only root can be another user";
    const auto strangerHears = [](std::uint16_t port) {
        const std::string script = "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(port) + " && head -n 1 <&3";
        ChildProcess stranger({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                               "/bin/bash", "-c", script});
        const std::string heard = stranger.readLine();
        EXPECT_EQ(stranger.waitForEnd(), 0);
        return heard;
    };
    EXPECT_THAT(strangerHears(storage.port()), StartsWith("421 "));
    ByHand byHand(storage.port());
    const std::uint16_t dataPort = byHand.openData();
    EXPECT_EQ(strangerHears(dataPort), "");
    byHand.beginUpload(dataPort, "htdocs/n", "the rightful one's");
    byHand.closeData();
    byHand.expect("226");
    EXPECT_EQ(stored(), "the rightful one's");
}

TEST_F(Storage, IsStartedOncePerUserWhereItCanBe) {
    StorageProcess onTakenPort({"--port", std::to_string(storage.port())});
    EXPECT_EQ(onTakenPort.process().waitForEnd(), 1);
    EXPECT_FALSE(std::filesystem::exists(onTakenPort.runtimeFolder() / "storage.port"));
    EXPECT_EQ(StorageProcess({"--folder", "/proc/nothing"}).process().waitForEnd(), 1);

    const auto second = storage.startAnother();
    EXPECT_THAT(second->readLine(), HasSubstr("running on port " + std::to_string(storage.port())));
    EXPECT_EQ(second->waitForEnd(), 0);

    storage.process().sendSignal(SIGTERM);
    EXPECT_EQ(storage.process().waitForEnd(), 0);
    EXPECT_FALSE(std::filesystem::exists(storage.runtimeFolder() / "storage.port"));

    const auto third = storage.startAnother();
    EXPECT_THAT(third->readLine(), HasSubstr("Serving "));
    std::ofstream(storage.listsFolder() / ".quillery-upload-left_over.part") << "half";
    third->sendSignal(SIGKILL);
    ASSERT_EQ(third->waitForEnd(), 128 + SIGKILL);
    const auto fourth = storage.startAnother({"--port", "0"});
    EXPECT_THAT(fourth->readLine(), HasSubstr("Serving "));
    EXPECT_THAT(namesInFolder(), IsEmpty());
    fourth->sendSignal(SIGINT);
    EXPECT_EQ(fourth->waitForEnd(), 0);
}

TEST_F(Storage, EndsWhenNoProgramUsesItAnyMoreAndNothingIsUnderWay) {
    storage.process().sendSignal(SIGTERM);
    ASSERT_EQ(storage.process().waitForEnd(), 0);
    const std::string usersFile = storage.runtimeFolder() / "storage.users";
    const int users = open(usersFile.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(users, LOCK_SH), 0);
    const auto used = storage.startAnother({"--while-used"});
    ASSERT_THAT(used->readLine(), HasSubstr("Serving "));

    StorageProcess busy({"--while-used"});  // by no program that it knows of
    ByHand byHand(busy.port());
    byHand.beginUpload(byHand.openData(), "htdocs/n", "slow");
    EXPECT_EQ(used->waitForEnd(2500ms), std::nullopt) << "longer than it takes to ask twice";
    EXPECT_EQ(busy.process().waitForEnd(0ms), std::nullopt);
    byHand.closeData();
    byHand.expect("226");
    flock(users, LOCK_UN);
    EXPECT_EQ(busy.process().waitForEnd(), 0);
    EXPECT_EQ(used->waitForEnd(), 0);
    EXPECT_EQ(contentOf(busy.listsFolder() / "n"), "slow");
    EXPECT_FALSE(std::filesystem::exists(storage.runtimeFolder() / "storage.port"));
    EXPECT_EQ(flock(users, LOCK_EX | LOCK_NB), 0);
    close(users);
}

TEST_F(Storage, KeepsTheWholeOldFileUntilItHasTheNewOne) {
    const std::vector<std::pair<std::string, std::function<void(ByHand &)>>> cuts = {
        {"as by a killed program", [](ByHand &c) { c.closeControl(), c.closeData(); }},
        {"control connection alone", [](ByHand &c) { c.closeControl(); }},
        {"data connection torn", [](ByHand &c) { c.resetData(), c.expect("426"); }},
        {"aborted", [](ByHand &c) { c.say("ABOR", ""); }},  // 426 or 225: it may come before the data
    };
    ASSERT_TRUE(upload("the old text"));
    for (const auto &[name, cut] : cuts) {
        SCOPED_TRACE(name);
        {
            ByHand byHand(storage.port());
            byHand.beginUpload(byHand.openData(), "htdocs/n", std::string(50'000, 'x'));
            cut(byHand);
        }
        EXPECT_TRUE(waitForTidyFolder());
        EXPECT_EQ(stored(), "the old text");
    }
    const rlimit limit{.rlim_cur = 100'000, .rlim_max = 100'000};  // as a full disk
    ASSERT_EQ(prlimit(storage.process().id(), RLIMIT_FSIZE, &limit, nullptr), 0);
    EXPECT_FALSE(upload(std::string(1'000'000, 'x')));
    EXPECT_TRUE(waitForTidyFolder());
    EXPECT_EQ(stored(), "the old text");

    ByHand byHand(storage.port());
    byHand.beginUpload(byHand.openData(), "htdocs/n", "the new text");
    EXPECT_EQ(stored(), "the old text");
    const auto listed = client.manager.contentsOfServer(&client.server);
    ASSERT_THAT(listed, testing::Optional(testing::SizeIs(1))) << "the unfinished one is not shown";
    EXPECT_EQ(listed->front().name, "n");
    byHand.closeData();
    byHand.expect("226");
    EXPECT_EQ(stored(), "the new text");
}

TEST(StorageFlush, ComesBeforeTheNewFileTakesItsPlaceAndAfterwardsForTheFolder) {
    TemporaryFolder folder;
    // Python runs this first in every program.
    std::ofstream(folder.path() / "sitecustomize.py") << R"(
import os
def told(call, path_of):
    def tell(*arguments):
        with open(os.environ["CALLS"], "a") as file:
            print(call.__name__, os.path.splitext(path_of(*arguments))[1], file=file)
        return call(*arguments)
    return tell
os.fsync = told(os.fsync, lambda descriptor: os.readlink(f"/proc/self/fd/{descriptor}"))
os.rename = told(os.rename, lambda old, new: new)
)";
    const std::string calls = folder.path() / "calls";
    StorageProcess storage({}, {"PYTHONPATH=" + folder.path().string(), "CALLS=" + calls});
    Client client(storage.port(), TransportOptions(), StorageProcess::kUser, StorageProcess::kPassword);
    EXPECT_TRUE(client.upload("text", "list.txt"));
    EXPECT_EQ(contentOf(calls), "fsync .part\nrename .txt\nfsync \n");
}

}  // namespace
