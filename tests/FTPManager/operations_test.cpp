// What each operation sends, gives back and leaves behind, with servers that behave well or refuse.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <latch>
#include <thread>

#include "Client.h"
#include "support/ScriptedFtpServer.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

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
    std::vector<std::string> commandsOf(const std::function<bool()> &operation) {
        scripted.forgetCommands();
        EXPECT_TRUE(operation());
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
    ASSERT_EQ(mkfifo(localFile("pipe").c_str(), 0600), 0);
    for (const std::string name : {"absent", "in", "pipe", ""})
        EXPECT_FALSE(manager.uploadFile(localFile(name), &server)) << name;
    EXPECT_FALSE(manager.downloadFile("n", localFile("absent"), &server));
    EXPECT_FALSE(manager.downloadFile("in", local.path(), &server)) << "a folder is in the way";

    for (const std::string url : {"ftp://h/a%0D", "ftp://h/f/", "ftp://h/f/%2e%2e", "file:///etc/passwd"})
        EXPECT_EQ(textWithContentsOfURL(url, *client.transport).state, FTPText::State::kRefused) << url;
    for (const std::string name : {"", "..", "a/b", "a\r\nDELE x"})
        EXPECT_EQ(renameFileAtURL(client.url("n"), name, *client.transport), false) << name;
    EXPECT_EQ(scripted.connectionCount(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(localFile("in")));
}

TEST_F(Operations, ReportLocalFailuresAndLeaveNoPart) {
    EXPECT_FALSE(manager.uploadFile("/proc/self/mem", &server)) << "can be opened and not read";
    ASSERT_TRUE(scripted.waitUntilAt("end"));
    EXPECT_EQ(scripted.file("htdocs/mem"), std::nullopt);

    scripted.setFile("htdocs/n", "content");
    // One that is always full, and one whose last bytes cannot be kept.
    std::filesystem::create_symlink("/dev/full", localFile("n"));
    for (const bool isLate : {false, true}) {
        closingFails = isLate;
        EXPECT_FALSE(manager.downloadFile("n", local.path(), &server));
        closingFails = false;
        EXPECT_FALSE(std::filesystem::is_symlink(localFile("n")) || std::filesystem::exists(localFile("n")));
    }
    std::ofstream(localFile("absent")) << "what was there before";
    EXPECT_FALSE(manager.downloadFile("absent", local.path(), &server));
    EXPECT_FALSE(std::filesystem::exists(localFile("absent")));
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
        {{.at = "done", .reply = "451 Disk trouble."}, kFailed, false},
        {{.at = "RETR", .reply = opening + "(8 bytes)."}, kFailed, false},
        {{.at = "RETR", .reply = opening + "(7 bytes)"}, kText, true},
        {{.at = "SIZE", .reply = "213 900"}, kText, false},
        {{.at = "SIZE", .reply = "213 many"}, kText, true},
        {{.at = ""}, kNotText, true, "half a sign \xE2\x82"},
        {{.at = ""}, kText, true, ""},
        {{.at = ""}, kTooLarge, true, std::string(101, 'x')},
    };
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
        const TemporaryFolder local;
        EXPECT_EQ(client.manager.downloadFile("n", local.path(), &client.server), row.isWhole);
        EXPECT_EQ(std::filesystem::exists(local.path() / "n"), row.isWhole);
        EXPECT_EQ(contentOf(local.path() / "n"), row.isWhole ? row.content : "");
    }
}

TEST(Existence, IsDoubtedIfTheAnswerIsNotClear) {
    using Answer = std::optional<bool>;
    const std::vector<std::tuple<Fault, Answer, Answer>> rows = {
        {{.at = ""}, true, false},
        {{.at = "SIZE", .reply = "502 Not here."}, true, false},
        {{.at = "SIZE", .reply = "450 Not now."}, {}, {}},
        {{.at = "PASS", .reply = "530 No."}, {}, {}}};
    for (const auto &[fault, exists, absentExists] : rows) {
        SCOPED_TRACE(fault.at + " " + fault.reply);
        ScriptedFtpServer server(Faults{fault});
        server.setFile("htdocs/n", std::string(1'000'000, 'x'));
        Client client(server.port());
        EXPECT_EQ(fileExistsAtURL(client.url("n"), *client.transport), exists);
        EXPECT_EQ(fileExistsAtURL(client.url("absent"), *client.transport), absentExists);
    }
}

TEST_F(Operations, ShareAConnectionOfOneLoginOnly) {
    ASSERT_TRUE(client.upload("text"));
    FTPManager another(client.transport);
    EXPECT_TRUE(another.uploadFile(localFile("file"), &server));
    EXPECT_EQ(scripted.file("htdocs/file"), "content");
    EXPECT_EQ(client.read(), "text");
    EXPECT_EQ(renameFileAtURL(client.url("n"), "m", *client.transport), true);
    EXPECT_EQ(scripted.connectionCount(), 1);
    server.password = "another";
    EXPECT_TRUE(client.upload("x"));
    EXPECT_EQ(scripted.connectionCount(), 2);
}

TEST_F(Operations, SendTheirCommandsAtOnceInTheirOrder) {
    using Lines = std::vector<std::string>;
    struct Row {
        std::function<bool()> run;
        Lines lines;
    };
    const auto remove = [this](const std::string &name) {
        return [this, name] { return manager.deleteFileNamed(name, &server); };
    };
    const auto chmod = [this](std::int32_t mode) {
        return [this, mode] { return manager.chmodFileNamed("a b", mode, &server); };
    };
    for (const std::string name : {"notes.txt", ".name"}) scripted.setFile("htdocs/" + name, "");
    ASSERT_TRUE(manager.createNewFolder("archive", &server));
    for (const Row &row : {Row{remove("notes.txt"), {"CWD htdocs", "DELE notes.txt"}},
                           Row{remove(".name"), {"CWD htdocs", "DELE .name"}},
                           Row{remove("archive"), {"CWD htdocs", "RMD archive"}},
                           Row{chmod(0), {"CWD htdocs", "SITE CHMOD 0 a b"}},
                           Row{chmod(777), {"CWD htdocs", "SITE CHMOD 777 a b"}},
                           Row{[&] { return manager.checkLogin(&server); }, {}}}) {
        Lines lines = row.lines;
        lines.insert(lines.begin(), {"USER u", "PASS p"});
        lines.emplace_back("QUIT");
        EXPECT_EQ(commandsOf(row.run), lines);
    }
    server.destination = "127.0.0.1";
    EXPECT_THAT(commandsOf(chmod(755)), ElementsAre("USER u", "PASS p", "SITE CHMOD 755 a b", "QUIT"));
}

TEST(Listing, ShowsHiddenFilesWhereTheServerCanAndAllOrNothing) {
    using Names = std::optional<std::vector<std::string>>;
    const Names all = {{".hidden", "seen"}}, seen = {{"seen"}};
    for (const auto &[name, fault, listed] : std::vector<std::tuple<std::string, Fault, Names>>{
             {"good", {}, all},
             {"-a is a file's name", {.at = "options"}, seen},
             {"last line without end", {.at = "listing"}, all},
             {"busy", {.at = "LIST", .reply = "450 Not now."}, {}},
             {"refused late", {.at = "done", .reply = "451 Trouble.", .times = 1}, {}}}) {
        SCOPED_TRACE(name);
        ScriptedFtpServer server({fault});
        for (const std::string file : {".hidden", "seen"}) server.setFile("htdocs/" + file, "22");
        Client client(server.port(), {.mostListingBytes = 100});
        Names names;
        if (const auto entries = client.manager.contentsOfServer(&client.server)) {
            names.emplace();
            for (const FTPResource &entry : *entries) names->push_back(entry.name);
        }
        EXPECT_EQ(names, listed);
        EXPECT_TRUE(client.upload("x"));
        EXPECT_EQ(server.file("htdocs/n"), "x") << "the folder is entered for listings only";
        server.setFile("htdocs/" + std::string(100, 'x'), "");
        EXPECT_EQ(client.manager.contentsOfServer(&client.server), std::nullopt) << "too long";
    }
}

TEST(Threads, UseOneClientAtTheSameTimeAndKeepEightConnections) {
    constexpr int kOwn = 11;
    std::latch allAtOnce(kOwn + 1);  // of those that share a manager one at a time gets so far
    ScriptedFtpServer server(
        {{.at = "STOR", .meanwhile = [&] { allAtOnce.arrive_and_wait(); }, .times = kOwn + 1}});
    Client client(server.port());
    LogCapture log;
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int t = 0; t < kOwn + 3; ++t) {
        threads.emplace_back([&, t] {
            FTPManager own(client.transport);
            FTPManager &mine = t < kOwn ? own : client.manager;
            for (std::size_t round = 0; round < 4; ++round) {
                const std::string text(40'000 * round, static_cast<char>('a' + t));
                if (!mine.uploadData(text, std::to_string(t), &client.server)) ++failures;
                if (client.read(std::to_string(t)) != text) ++failures;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_TRUE(server.waitForOpenConnections(8));
}

TEST(Manager, CallersWaitTheirTurnAndCanGiveUp) {
    ScriptedFtpServer scripted(Faults{{.at = "STOR", .stalls = true, .times = 1}});
    Client client(scripted.port());
    std::stop_source giveUpFirst, giveUpSecond;
    std::jthread first([&] { EXPECT_FALSE(client.upload("1", "n", giveUpFirst.get_token())); });
    ASSERT_TRUE(scripted.waitUntilAt("STOR"));
    std::jthread second([&] { EXPECT_FALSE(client.upload("2", "n", giveUpSecond.get_token())); });
    std::jthread third([&] { EXPECT_TRUE(client.upload("3")); });
    std::this_thread::sleep_for(50ms);  // for the third to wait before the fourth
    std::jthread fourth([&] { EXPECT_TRUE(client.upload("4")); });
    std::this_thread::sleep_for(50ms);
    giveUpSecond.request_stop();
    second.join();
    EXPECT_TRUE(client.manager.progress()) << "the first one still has the turn";
    giveUpFirst.request_stop();
    first.join();
    third.join();
    fourth.join();
    EXPECT_EQ(scripted.file("htdocs/n"), "4") << "each in its turn";
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

}  // namespace
