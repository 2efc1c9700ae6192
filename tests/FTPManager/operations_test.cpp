// What each operation sends, gives back and leaves behind, with servers that behave well or refuse.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

#include "Client.h"
#include "FTPManager/ControlConnection.h"
#include "support/ScriptedFtpServer.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;
using Clock = std::chrono::steady_clock;

constexpr TransportLimits kQuick{.connectTimeout = 2s, .idleTimeout = 500ms, .mostTextBytes = 100};
std::atomic<bool> closingFails = false;

}  // namespace

// Linked in the place of close, to fail as it does when a late write fails.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __real_close(int descriptor);
extern "C" int __wrap_close(int descriptor) {
    struct stat status {};
    const bool isFile = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const int result = __real_close(descriptor);
    return isFile && closingFails ? -1 : result;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class Operations : public testing::Test {
  protected:
    Operations() { std::ofstream(localFile("file")) << "content"; }

    std::filesystem::path localFile(const std::string &name) const { return local.path() / name; }
    std::vector<std::string> commandsOf(const std::function<bool()> &operation, bool succeeds = true) {
        scripted.forgetCommands();
        EXPECT_EQ(operation(), succeeds);
        return scripted.commands();
    }

    ScriptedFtpServer scripted;
    Client client{scripted.port(), kQuick};
    FMServer &server = client.server;
    FTPManager &manager = client.manager;
    TemporaryFolder local;
    LogCapture log;
};

TEST_F(Operations, SendNothingAndLeaveNothingForBadInput) {
    using Name = std::optional<std::string>;
    struct Call {
        const char *name;
        std::function<bool(const Name &, const FMServer *)> run;
        enum { kFile, kLine, kNone } takes;
    };
    const std::vector<Call> calls = {
        {"download", [&](auto &name, auto *to) { return manager.downloadFile(name, localFile("in"), to); },
         Call::kFile},
        {"text",
         [&](auto &name, auto *to) {
             return manager.uploadData(name ? std::optional("x") : std::nullopt, name.value_or("n"), to);
         },
         Call::kFile},
        {"folder", [&](auto &name, auto *to) { return manager.createNewFolder(name, to); }, Call::kFile},
        {"delete", [&](auto &name, auto *to) { return manager.deleteFileNamed(name, to); }, Call::kLine},
        {"delete nested", [&](auto &name, auto *to) { return manager.deleteFile(name, to); }, Call::kLine},
        {"chmod", [&](auto &name, auto *to) { return manager.chmodFileNamed(name, 644, to); }, Call::kLine},
        {"list", [&](auto &, auto *to) { return manager.contentsOfServer(to).has_value(); }, Call::kNone},
        {"login", [&](auto &, auto *to) { return manager.checkLogin(to); }, Call::kNone},
        {"upload", [&](auto &, auto *to) { return manager.uploadFile(localFile("file"), to); }, Call::kNone},
    };
    std::vector<FMServer> badServers(8, server);
    badServers[0].username = "u\r\nDELE x";
    badServers[1].username = "u\rDELE x";
    badServers[2].password = "p\r";
    badServers[3].password = "p\0"s;
    badServers[4].password.reset();
    badServers[5].destination = "127.0.0.1/htdocs\r\nDELE x";
    badServers[6].port = 65536 + server.port;
    badServers[7].port = 0;
    std::filesystem::create_directory(localFile("in"));
    for (const Call &call : calls) {
        SCOPED_TRACE(call.name);
        for (const FMServer &bad : badServers) EXPECT_FALSE(call.run("n", &bad)) << &bad - &badServers[0];
        EXPECT_FALSE(call.run("n", nullptr));
        std::vector<Name> badNames = {std::nullopt, "a\r\nDELE x", "a\rDELE x", "a\nDELE x", "a\0"s, "a\xFF"};
        if (call.takes == Call::kFile) badNames.insert(badNames.end(), {"", ".", "..", "a/b", "/etc/passwd"});
        if (call.takes == Call::kNone) badNames.clear();
        for (const Name &name : badNames) EXPECT_FALSE(call.run(name, &server)) << name.value_or("(none)");
    }
    for (const std::int32_t mode : {-1, 778, 1000}) EXPECT_FALSE(manager.chmodFileNamed("n", mode, &server));
    EXPECT_FALSE(manager.deleteFileNamed(std::string(249, '.'), &server)) << "longer than the line buffer";
    badServers[0] = server;
    badServers[0].destination = "127.0.0.1?x";
    EXPECT_FALSE(manager.uploadFile(localFile("file"), &badServers[0])) << "the port would be none";

    EXPECT_FALSE(manager.uploadFile(std::nullopt, &server));
    ASSERT_EQ(mkfifo(localFile("pipe").c_str(), 0600), 0);
    for (const std::string name : {"absent", "in", "pipe", ""})
        EXPECT_FALSE(manager.uploadFile(localFile(name), &server)) << name;
    EXPECT_FALSE(manager.downloadFile("n", std::nullopt, &server));
    EXPECT_FALSE(manager.downloadFile("n", localFile("absent"), &server));
    EXPECT_FALSE(manager.downloadFile("n", localFile("file"), &server)) << "no folder";
    EXPECT_FALSE(manager.downloadFile("in", local.path(), &server)) << "a folder is in the way";
    EXPECT_FALSE(manager.downloadFile("n", "/proc", &server)) << "nobody may write there";

    for (const std::string url :
         {"ftp://h/a%0D", "ftp://h", "ftp://h/f/", "ftp://h/f/%2e%2e", "file:///etc/passwd"})
        EXPECT_EQ(textWithContentsOfURL(url, *client.transport).state, FTPText::State::kRefused) << url;
    EXPECT_EQ(scripted.connectionCount(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(localFile("in")));
    EXPECT_EQ(contentOf(localFile("file")), "content");
    EXPECT_EQ(manager.fileSizeOf(localFile("file")), 7U);
    EXPECT_EQ(manager.fileSizeOf(localFile("absent")), 0U);
}

TEST_F(Operations, ReportLocalFailuresAndLeaveNoPart) {
    // A file that can be opened and not read.
    EXPECT_FALSE(manager.uploadFile("/proc/self/mem", &server));
    EXPECT_THAT(log.take(), ElementsAre("ftp stream failed: error while reading data"));
    ASSERT_TRUE(scripted.waitUntilAt("end"));
    EXPECT_EQ(scripted.file("htdocs/mem"), std::nullopt);

    scripted.setFile("htdocs/n", "content");
    // One that is always full, and one whose last bytes cannot be kept.
    std::filesystem::create_symlink("/dev/full", localFile("n"));
    for (const bool isLate : {false, true}) {
        closingFails = isLate;
        EXPECT_FALSE(manager.downloadFile("n", local.path(), &server));
        closingFails = false;
        EXPECT_THAT(log.take(), ElementsAre("ftp stream failed: error while writing data"));
        EXPECT_FALSE(std::filesystem::is_symlink(localFile("n")) || std::filesystem::exists(localFile("n")));
    }
    std::ofstream(localFile("absent")) << "what was there before";
    EXPECT_FALSE(manager.downloadFile("absent", local.path(), &server));
    EXPECT_FALSE(std::filesystem::exists(localFile("absent")));
    const mode_t before = umask(0022);
    EXPECT_TRUE(manager.downloadFile("n", local.path(), &server));
    umask(before);
    EXPECT_EQ(contentOf(localFile("n")), "content");
    struct stat status {};
    EXPECT_EQ(stat(localFile("n").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

class Recorder : public FTPManagerDelegate {
  public:
    explicit Recorder(FTPManager &manager) : manager_(manager) { manager_.delegate = this; }
    ~Recorder() override { manager_.delegate = nullptr; }
    void ftpManagerUploadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        told[FTPManagerAction::kUpload].push_back(progress);
    }
    void ftpManagerDownloadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        told[manager_.action()].push_back(progress);
    }
    std::map<FTPManagerAction, std::vector<std::optional<FTPProgress>>> told;

  private:
    FTPManager &manager_;
};

TEST_F(Operations, TellTheirProgress) {
    Recorder recorder(manager);
    ASSERT_TRUE(client.upload(std::string(70'000, 'x')));
    ASSERT_TRUE(manager.downloadFile("n", local.path(), &server));
    EXPECT_EQ(recorder.told[FTPManagerAction::kUpload].size(), 3U);
    for (const auto action : {FTPManagerAction::kUpload, FTPManagerAction::kDownload}) {
        std::uint64_t sum = 0;
        for (const auto &progress : recorder.told[action]) {
            ASSERT_TRUE(progress);
            EXPECT_EQ(progress->fileSize, 70'000U);
            EXPECT_LE(progress->bytesProcessed, 32768U);
            if (progress->fileSizeProcessed > 0) sum += progress->bytesProcessed;
            EXPECT_EQ(progress->fileSizeProcessed, sum);
            EXPECT_FLOAT_EQ(progress->progress, static_cast<float>(sum) / 70'000);
        }
        EXPECT_EQ(sum, 70'000U);
    }
    EXPECT_EQ(recorder.told[FTPManagerAction::kDownload].at(0)->fileSizeProcessed, 0U) << "before a byte";
    EXPECT_EQ(manager.progress(), std::nullopt);
    EXPECT_EQ(manager.action(), FTPManagerAction::kFinished);
}

/// What a server says to one request, and what comes of reading a file as text and of its download.
TEST(Reading, SaysWhyThereIsNoTextAndTakesNoPartForTheWhole) {
    using enum FTPText::State;
    struct Row {
        Fault fault;
        FTPText::State state;
        bool isWhole;  ///< and the download succeeds
        std::string content = "content";
    };
    const std::string opening = "150 Opening BINARY mode data connection for n(9 bytes) ";
    const std::vector<Row> rows = {
        {{.at = "RETR", .reply = "550 No."}, kRefused, false},
        {{.at = "PASS", .reply = "530 No."}, kRefused, false},
        {{.at = "PASS", .reply = "430 Not now."}, kFailed, false},
        {{.at = "RETR", .reply = "450 Not now."}, kFailed, false},
        {{.at = "greeting", .reply = "421 Too many clients.", .hangsUp = true}, kFailed, false},
        {{.at = "data", .hangsUp = true}, kFailed, false},
        {{.at = "done", .reply = "551 Disk trouble."}, kFailed, false},
        {{.at = "done", .reply = "451 Disk trouble."}, kFailed, false},
        {{.at = "RETR", .reply = opening + "(8 bytes)."}, kFailed, false},
        {{.at = "RETR", .reply = opening + "(7 bytes)"}, kText, true},
        {{.at = "RETR", .reply = opening + "(3 bytes)."}, kText, true},
        {{.at = "RETR", .reply = "150 Opening ASCII mode data connection for n (8 bytes)."}, kText, true},
        {{.at = "RETR", .reply = "150 n (900 bytes) follows."}, kText, true},
        {{.at = "SIZE", .reply = "213 3"}, kText, true},
        {{.at = "SIZE", .reply = "213 900"}, kText, false},
        {{.at = "SIZE", .reply = "213 0"}, kText, true},
        {{.at = "SIZE", .reply = "550 No."}, kText, true},
        {{.at = "SIZE", .reply = "213 many"}, kText, true},
        {{.at = "SIZE", .reply = "213 99999999999999999999"}, kText, true},
        {{.at = ""}, kNotText, true, "half a sign \xE2\x82"},
        {{.at = ""}, kNotText, true, "a\xC0\x80"},
        {{.at = ""}, kText, true, ""},
        {{.at = ""}, kText, true, std::string(100, 'x')},
        {{.at = ""}, kTooLarge, true, std::string(101, 'x')},
    };
    const std::map<std::string, std::optional<std::uint64_t>> toldSizes = {
        {"213 3", 3}, {"213 900", 900}, {"213 0", {}}, {"550 No.", {}}, {"213 many", {}}};
    LogCapture log;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.fault.at + " " + row.fault.reply + " " + row.content);
        ScriptedFtpServer server(Faults{row.fault});
        server.setFile("htdocs/n", row.content);
        Client client(server.port(), kQuick);
        const FTPText text = client.readText();
        EXPECT_EQ(text.state, row.state);
        EXPECT_EQ(text.text, row.state == kText ? std::optional(row.content) : std::nullopt);
        EXPECT_EQ(text.bytes, row.state == kNotText ? row.content : "");
        TemporaryFolder local;
        Recorder recorder(client.manager);
        EXPECT_EQ(client.manager.downloadFile("n", local.path(), &client.server), row.isWhole);
        EXPECT_EQ(std::filesystem::exists(local.path() / "n"), row.isWhole);
        EXPECT_EQ(contentOf(local.path() / "n"), row.isWhole ? row.content : "");
        if (row.fault.at != "SIZE") continue;
        const auto told = toldSizes.find(row.fault.reply);
        for (const auto &progress : recorder.told[FTPManagerAction::kDownload])
            EXPECT_EQ(progress ? std::optional(progress->fileSize) : std::nullopt,
                      told == toldSizes.end() ? std::nullopt : told->second);
        EXPECT_TRUE(client.upload("x"));
        EXPECT_EQ(server.connectionCount(), 1) << "a refusal costs no connection";
    }
    std::stop_source stopped;
    stopped.request_stop();
    const Client nowhere(Listener(0).port());
    EXPECT_EQ(nowhere.readText().state, kFailed);
    EXPECT_EQ(nowhere.readText("n", stopped.get_token()).state, kCancelled);
}

TEST(Existence, IsAskedWithoutADataConnection) {
    using Answer = std::optional<bool>;
    const std::vector<std::tuple<Fault, Answer, Answer>> rows = {
        {{.at = ""}, true, false},
        {{.at = "TYPE", .reply = "504 No."}, true, false},
        {{.at = "SIZE", .reply = "502 Not here."}, true, false},
        {{.at = "SIZE", .reply = "500 What?"}, true, false},
        {{.at = "SIZE", .reply = "450 Not now."}, {}, {}},
        {{.at = "SIZE", .reply = "553 Not that name."}, {}, {}},
        {{.at = "SIZE", .hangsUp = true}, {}, {}},
        {{.at = "PASS", .reply = "530 No."}, {}, {}}};
    for (const auto &[fault, exists, absentExists] : rows) {
        SCOPED_TRACE(fault.at + " " + fault.reply);
        ScriptedFtpServer server(Faults{fault});
        server.setFile("htdocs/n", std::string(1'000'000, 'x'));
        Client client(server.port());
        EXPECT_EQ(fileExistsAtURL(client.url("n"), *client.transport), exists);
        EXPECT_EQ(fileExistsAtURL(client.url("absent"), *client.transport), absentExists);
        if (!fault.at.empty()) continue;
        EXPECT_THAT(server.commands(), ElementsAre("USER u", "PASS p", "PWD", "TYPE I", "SIZE htdocs/n",
                                                   "TYPE I", "SIZE htdocs/absent"));
        EXPECT_TRUE(client.upload("x"));
        EXPECT_EQ(server.connectionCount(), 1);
    }
}

TEST(DataAddress, ThatTheServerGetsWrongIsNotBelieved) {
    LogCapture log;
    for (const auto &[epsv, pasv, succeeds] : std::vector<std::tuple<std::string, std::string, bool>>{
             {"500 What?", "", true},  // the scripted server tells an address where nobody answers
             {"522 Not that protocol.", "", true},
             {"229 Passive (|||1|)", "500 What?", false},
             {"500 What?", "227 Passive (1,2,3).", false},
             {"500 What?", "227 Passive.", false},
             {"500 What?", "227 Passive (999,999,999,999,999,999).", false},
             {"500 What?", "227 Passive (127,0,0,1,0,1).", false},
             {"500 What?", "229 Passive (|||1|)", false},
             {"500 What?", "200 Yes.", false}}) {
        ScriptedFtpServer scripted(
            Faults{{.at = "EPSV", .reply = epsv, .times = 1}, {.at = "PASV", .reply = pasv, .times = 1}});
        Client client(scripted.port(), kQuick);
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(client.upload("x"), succeeds) << epsv << pasv;
        EXPECT_LT(Clock::now() - start, 5s) << epsv << pasv;
        EXPECT_TRUE(client.upload("x")) << epsv << pasv;
    }
}

TEST_F(Operations, SayNoMoreThanTheyNeedOnAWarmConnection) {
    using Lines = std::vector<std::string>;
    ASSERT_TRUE(client.upload("text"));
    EXPECT_EQ(commandsOf([&] { return client.upload(""); }), (Lines{"EPSV", "STOR htdocs/n"}));
    EXPECT_EQ(commandsOf([&] { return client.read() == ""; }), (Lines{"EPSV", "RETR htdocs/n"}));
    EXPECT_EQ(commandsOf([&] { return client.read("absent").has_value(); }, false),
              (Lines{"EPSV", "RETR htdocs/absent"}));
    EXPECT_EQ(commandsOf([&] { return manager.downloadFile("n", local.path(), &server); }),
              (Lines{"EPSV", "SIZE htdocs/n", "RETR htdocs/n"}));
    FTPManager another(client.transport);
    EXPECT_EQ(commandsOf([&] { return another.uploadFile(localFile("file"), &server); }),
              (Lines{"EPSV", "STOR htdocs/file"}));
    EXPECT_EQ(commandsOf([&] { return manager.createNewFolder("f", &server); }),
              (Lines{"NOOP", "MKD htdocs/f"}));
    EXPECT_FALSE(manager.createNewFolder("f", &server)) << "it is there";
    EXPECT_EQ(scripted.file("htdocs/file"), "content");
    EXPECT_EQ(scripted.connectionCount(), 1);
    server.password = "another";
    EXPECT_TRUE(client.upload("x"));
    EXPECT_EQ(scripted.connectionCount(), 2) << "each login has its own";
}

TEST_F(Operations, SendTheirCommandsAtOnceInTheirOrder) {
    using Lines = std::vector<std::string>;
    struct Row {
        std::function<bool()> run;
        Lines lines;
        bool succeeds = true;
    };
    const auto remove = [this](const std::string &name) {
        return [this, name] { return manager.deleteFileNamed(name, &server); };
    };
    const auto chmod = [this](std::int32_t mode) {
        return [this, mode] { return manager.chmodFileNamed("a b", mode, &server); };
    };
    const std::string longest(248, '.');
    for (const std::string name : {"notes.txt", ".name"}) scripted.setFile("htdocs/" + name, "");
    ASSERT_TRUE(manager.createNewFolder("archive", &server));
    for (const Row &row : {Row{remove("notes.txt"), {"CWD htdocs", "DELE notes.txt"}},
                           Row{remove(".name"), {"CWD htdocs", "DELE .name"}},
                           Row{remove("archive"), {"CWD htdocs", "RMD archive"}},
                           Row{remove("notes.txt"), {"CWD htdocs", "DELE notes.txt"}, false},
                           Row{remove(longest), {"CWD htdocs", "DELE " + longest}, false},
                           Row{chmod(0), {"CWD htdocs", "SITE CHMOD 0 a b"}},
                           Row{chmod(777), {"CWD htdocs", "SITE CHMOD 777 a b"}},
                           Row{[&] { return manager.checkLogin(&server); }, {}}}) {
        Lines lines = row.lines;
        lines.insert(lines.begin(), {"USER u", "PASS p"});
        lines.emplace_back("QUIT");
        EXPECT_EQ(commandsOf(row.run, row.succeeds), lines);
    }
    log.take();
    server.destination = "127.0.0.1";
    EXPECT_THAT(commandsOf(chmod(755)), ElementsAre("USER u", "PASS p", "SITE CHMOD 755 a b", "QUIT"));

    // All of it before any answer.
    Listener mute(1);
    server.port = mute.port();
    EXPECT_FALSE(manager.checkLogin(&server));
    const int caller = accept(mute.descriptor(), nullptr, nullptr);
    char heard[100] = "";
    EXPECT_GT(recv(caller, heard, sizeof heard - 1, 0), 0);
    close(caller);
    EXPECT_STREQ(heard, "USER u\r\nPASS p\r\nQUIT\r\n");
    log.take();

    server.destination = "no host of that name.invalid/x";
    EXPECT_FALSE(manager.checkLogin(&server));
    EXPECT_THAT(log.take(), ElementsAre("host error!"));
    server.destination = "127.0.0.1";
    server.port = 1;
    EXPECT_FALSE(manager.checkLogin(&server));
    EXPECT_THAT(log.take(), ElementsAre("error connecting."));
}

TEST_F(Operations, ListHiddenFilesWhereTheServerCanAndAllOrNothing) {
    struct Row {
        std::string name;
        Faults faults;
        std::optional<std::vector<std::string>> listed = {{"seen"}};
        int connections = 1;
    };
    for (const Row &row : std::vector<Row>{
             {"good", {}, {{".hidden", "seen"}}},
             {"no such file", {{.at = "LIST", .reply = "550 -a: no such file.", .times = 1}}},
             {"what option", {{.at = "LIST", .reply = "501 What option?", .times = 1}}},
             {"-a is a file's name", {{.at = "options"}}},
             {"last line without end", {{.at = "listing"}}, {{".hidden", "seen"}}},
             {"way back unknown", {{.at = "PWD", .reply = "550 Nowhere."}}, {{".hidden", "seen"}}, 2},
             {"busy", {{.at = "LIST", .reply = "450 Not now."}}, {}},
             {"refused late", {{.at = "done", .reply = "451 Trouble.", .times = 1}}, {}, 2}}) {
        SCOPED_TRACE(row.name);
        ScriptedFtpServer listing(row.faults);
        for (const std::string name : {".hidden", "seen"}) listing.setFile("htdocs/" + name, "22");
        Client lister(listing.port(), {.mostListingBytes = 100});
        std::optional<std::vector<std::string>> names;
        if (const auto entries = lister.manager.contentsOfServer(&lister.server)) {
            names.emplace();
            for (const FTPResource &entry : *entries) names->push_back(entry.name);
        }
        EXPECT_EQ(names, row.listed);
        EXPECT_TRUE(lister.upload("x"));
        EXPECT_EQ(listing.file("htdocs/n"), "x") << "the folder is entered for listings only";
        EXPECT_EQ(listing.connectionCount(), row.connections);
        listing.setFile("htdocs/" + std::string(100, 'x'), "");
        EXPECT_EQ(lister.manager.contentsOfServer(&lister.server), std::nullopt) << "too long";
    }
}

TEST(Threads, UseOneClientAtTheSameTime) {
    ScriptedFtpServer server;
    Client client(server.port());
    LogCapture log;
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            FTPManager own(client.transport);
            FTPManager &mine = t % 2 == 0 ? client.manager : own;
            for (std::size_t round = 0; round < 8; ++round) {
                const std::string text(40'000 * round + t, static_cast<char>('a' + t));
                if (!mine.uploadData(text, std::to_string(t), &client.server)) ++failures;
                if (client.read(std::to_string(t)) != text) ++failures;
                static_cast<void>(client.manager.progress());
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Manager, SecondCallerWaitsItsTurnAndCanGiveUp) {
    ScriptedFtpServer scripted(Faults{{.at = "STOR", .stalls = true, .times = 1}});
    Client client(scripted.port());
    std::stop_source giveUpFirst, giveUpSecond;
    std::jthread first([&] { EXPECT_FALSE(client.upload("1", "n", giveUpFirst.get_token())); });
    ASSERT_TRUE(scripted.waitUntilAt("STOR"));
    std::jthread second([&] { EXPECT_FALSE(client.upload("2", "n", giveUpSecond.get_token())); });
    std::jthread third([&] { EXPECT_TRUE(client.upload("3")); });
    giveUpSecond.request_stop();
    second.join();
    EXPECT_TRUE(client.manager.progress()) << "the first one still has the turn";
    giveUpFirst.request_stop();
    first.join();
    third.join();
    EXPECT_EQ(scripted.file("htdocs/n"), "3");
}

TEST(Transport, ThatMustEncryptTellsNoPasswordInPlainText) {
    LogCapture log;
    for (const TlsMode tls : {TlsMode::kRequired, TlsMode::kTry}) {
        ScriptedFtpServer plain;
        Client client(plain.port(), {}, tls);
        const bool mayGoOn = tls == TlsMode::kTry;
        EXPECT_EQ(client.upload("x"), mayGoOn);
        EXPECT_EQ(client.read() == "x", mayGoOn);
        EXPECT_EQ(client.manager.checkLogin(&client.server), mayGoOn);
        EXPECT_FALSE(client.manager.deleteFileNamed("none.txt", &client.server));
        const auto commands = plain.commands();
        EXPECT_TRUE(std::ranges::count(commands, "AUTH TLS") > 0);
        EXPECT_EQ(std::ranges::count(commands, "PASS p") > 0, mayGoOn);
    }
}

TEST(Answers, AreJudgedByTheFirstCharacterOfEachPiece) {
    for (const std::string fine : {"", "\n", "\n220 Ready.\r\n331 Password?\n", "x5\n 5", "150"})
        EXPECT_TRUE(fm::_checkAnswers(fine)) << fine;
    for (const std::string bad : {"5", "\n220 Ready.\r\n530 No.", "\n22\n4", "\n4x", "\n\n\n550"})
        EXPECT_FALSE(fm::_checkAnswers(bad)) << bad;
}

TEST(Answers, AreReadPieceByPieceUntilTheServerClosesOrNeverEnds) {
    using Heard = std::optional<std::string>;
    const auto heard = [](const std::vector<std::string> &pieces, bool closes, int type = SOCK_SEQPACKET) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, ends), 0);
        for (const std::string &piece : pieces) EXPECT_GT(send(ends[1], piece.data(), piece.size(), 0), 0);
        if (closes) close(ends[1]);
        auto answers = fm::_listenLoopForSocket(ends[0], 100ms, 5s);
        close(ends[0]);
        if (!closes) close(ends[1]);
        return answers;
    };
    LogCapture log;
    EXPECT_EQ(heard({}, true), "\n");
    EXPECT_EQ(heard({"220 a\r\n", "2", "50 b\r\n"}, true), "\n220 a\r\n\n2\n50 b\r\n\n");
    EXPECT_EQ(heard({"a\0b"s, "\xFF", "\xC3\xBC"}, true), "\na\n(null)\n\xC3\xBC\n");
    EXPECT_EQ(heard({std::string(300, 'x')}, true, SOCK_STREAM),
              "\n" + std::string(255, 'x') + "\n" + std::string(45, 'x') + "\n");
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(heard({"220 a\r\n", "221 Bye.\r\n"}, false), "\n220 a\r\n\n221 Bye.\r\n")
        << "it does not close";
    EXPECT_EQ(heard({"220 a\r\n"}, false), Heard()) << "it fell silent";
    EXPECT_THAT(log.take(), ElementsAre("Error reading from socket!", "Error reading from socket!"));

    for (const std::string word : {"2", "200 Still here.\r\n"}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        std::jthread talker([&](const std::stop_token &stop) {
            while (!stop.stop_requested() && send(ends[1], word.data(), word.size(), MSG_NOSIGNAL) > 0)
                std::this_thread::yield();
        });
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(fm::_listenLoopForSocket(ends[0], 10s, 200ms), Heard());
        EXPECT_LT(Clock::now() - start, 5s);
        close(ends[0]);
        talker.request_stop();
        talker.join();
        close(ends[1]);
    }
}

}  // namespace
