#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "FTPManager/FTPManager.h"
#include "LogCapture.h"
#include "support/ScriptedFtpServer.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr TransportLimits kLimits{.connectTimeout = 2s, .idleTimeout = 500ms};
/// The idle limit once or twice, in whole seconds, and a margin for a busy machine.
constexpr std::chrono::seconds kLongestOperation{8};

/// More than one buffer.
const std::string kContent(100'000, 'x');

/// One server that misbehaves once, and a client of it.
struct Case {
    explicit Case(const Fault &fault, TlsMode tls = TlsMode::kOff)
        : server(Faults{fault}),
          manager(
              std::make_shared<FTPTransport>(TransportOptions{.limits = kLimits, .tls = tls, .caFile = {}})) {
        descriptor.port = server.port();
        server.setFile("htdocs/there", kContent);
        server.setFile("htdocs/old.txt", "old");
    }

    ScriptedFtpServer server;
    FMServer descriptor = FMServer::serverWithDestination("127.0.0.1/htdocs", "u", "p");
    FTPManager manager;
    TemporaryFolder local;
};

/// An operation, the points that it passes, and whether its success is one.
struct Operation {
    std::string name;
    std::vector<std::string> points;
    std::function<bool(Case &)> run;
    std::function<bool(Case &)> isTrue;
};

const std::vector<std::string> kLogin = {"greeting", "USER", "PASS"};

const std::vector<Operation> kOperations = {
    {"upload",
     {"PWD", "EPSV", "TYPE", "STOR", "data", "done"},
     [](Case &c) { return c.manager.uploadData(kContent, "new", &c.descriptor); },
     [](Case &c) { return c.server.file("htdocs/new") == kContent; }},
    {"download",
     {"PWD", "EPSV", "TYPE", "SIZE", "RETR", "data", "done"},
     [](Case &c) { return c.manager.downloadFile("there", c.local.path(), &c.descriptor); },
     [](Case &c) { return contentOf(c.local.path() / "there") == kContent; }},
    {"listing",
     {"PWD", "CWD", "EPSV", "TYPE", "LIST", "data", "done"},
     [](Case &c) {
         const auto contents = c.manager.contentsOfServer(&c.descriptor);
         return contents && contents->size() == 2;
     },
     [](Case &) { return true; }},
    {"new folder",
     {"PWD", "MKD"},
     [](Case &c) { return c.manager.createNewFolder("folder", &c.descriptor); },
     [](Case &c) { return c.server.hasFolder("htdocs/folder"); }},
    {"text",
     {"PWD", "EPSV", "TYPE", "RETR", "data", "done"},
     [](Case &c) {
         const auto url = "ftp://u:p@127.0.0.1:" + std::to_string(c.server.port()) + "/htdocs/there";
         const FTPTransport transport(TransportOptions{.limits = kLimits, .tls = {}, .caFile = {}});
         const auto text = stringWithContentsOfURL(url, transport);
         return text == kContent;
     },
     [](Case &) { return true; }},
    {"upload of a file",
     {"PWD", "EPSV", "TYPE", "STOR", "data", "done"},
     [](Case &c) {
         std::ofstream(c.local.path() / "new") << kContent;
         return c.manager.uploadFile(c.local.path() / "new", &c.descriptor);
     },
     [](Case &c) { return c.server.file("htdocs/new") == kContent; }},
    // Judged by the first characters of what the server says: they may succeed without a deed.
    {"permissions",
     {"CWD", "SITE", "QUIT"},
     [](Case &c) { return c.manager.chmodFileNamed("old.txt", 644, &c.descriptor); },
     [](Case &) { return true; }},
    {"login",
     {"QUIT"},
     [](Case &c) { return c.manager.checkLogin(&c.descriptor); },
     [](Case &) { return true; }},
    {"deletion",
     {"CWD", "DELE", "QUIT"},
     [](Case &c) { return c.manager.deleteFileNamed("old.txt", &c.descriptor); },
     [](Case &) { return true; }},
};

struct Misdeed {
    std::string name;
    Fault fault;
};

std::vector<Misdeed> misdeedsAt(const std::string &point) {
    std::vector<Misdeed> misdeeds = {
        {"closes", {.at = point, .hangsUp = true}},
        {"resets", {.at = point, .resets = true}},
        {"stalls", {.at = point, .stalls = true}},
    };
    if (point == "data") return misdeeds;
    for (const auto &[name, reply] : std::vector<std::pair<std::string, std::string>>{
             {"refuses", "550 No."},
             {"is busy", "450 Not now."},
             {"closes down", "421 Good night."},
             {"talks nonsense", "what?\r\n\r\n   \r\n-1 No code"},
             {"talks binary", std::string("\xFF\xF4\0\x01\xFE", 5)},
             {"gives an impossible code", "999 Beyond."},
             {"answers another question", "227 Passive (1,2,3)"},
             {"never ends its lines", "230-" + std::string(70'000, 'x')}}) {
        misdeeds.push_back({name, {.at = point, .reply = reply, .hangsUp = reply.starts_with("421")}});
    }
    return misdeeds;
}

std::string runWithFault(const Operation &operation, Fault fault) {
    fault.times = 1;
    Case c(fault);
    const Clock::time_point start = Clock::now();
    const bool succeeded = operation.run(c);
    if (Clock::now() - start > kLongestOperation) return "hung";
    if (succeeded && !operation.isTrue(c)) return "reported a success that was none";
    if (operation.name == "download" && !succeeded && std::filesystem::exists(c.local.path() / "there"))
        return "left a part of a file";
    if (!c.manager.uploadData("next", "next", &c.descriptor)) return "spoilt the next upload";
    if (c.server.file("htdocs/next") != "next") return "left the server in another folder";
    if (!c.manager.contentsOfServer(&c.descriptor)) return "spoilt the next listing";
    return {};
}

/// Runs each of the cases, several at a time, since most of them wait.
void runAll(const std::vector<std::function<void()>> &cases) {
    constexpr int kThreads = 12;
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < cases.size(); index = next++) cases[index]();
        });
    }
}

TEST(Misbehaviour, AtAnyPointNeitherHangsNorDeceivesNorSpoilsWhatComesNext) {
    LogCapture log;
    std::vector<std::function<void()>> cases;
    for (const Operation &operation : kOperations) {
        std::vector<std::string> points = kLogin;
        points.insert(points.end(), operation.points.begin(), operation.points.end());
        for (const std::string &point : points) {
            for (const Misdeed &misdeed : misdeedsAt(point)) {
                cases.emplace_back([&operation, point, misdeed] {
                    EXPECT_EQ(runWithFault(operation, misdeed.fault), "")
                        << operation.name << ": the server " << misdeed.name << " at " << point;
                });
            }
        }
    }
    runAll(cases);
}

TEST(OddButRightReplies, AreUnderstood) {
    const std::vector<std::pair<std::string, std::string>> usual = {
        {"greeting", "220 Ready."}, {"USER", "331 Password?"}, {"PASS", "230 Welcome."},
        {"CWD", "250 There."},      {"TYPE", "200 Well."},     {"done", "226 Done."},
        {"STOR", "150 Send."},      {"RETR", "150 Here."},     {"LIST", "150 Here."}};
    std::vector<std::function<void()>> cases;
    for (const Operation &operation : kOperations) {
        for (const auto &[point, reply] : usual) {
            const std::string code = reply.substr(0, 3);
            const std::string manyLines =
                code + "-Well,\r\n 550 is no answer,\r\n\r\n" + code + "-nor this,\r\n";
            for (const Fault &fault :
                 {Fault{.at = point, .dribbles = true}, Fault{.at = point, .reply = manyLines + reply},
                  Fault{.at = point, .reply = manyLines + reply, .dribbles = true}}) {
                const bool isJudgedByPieces = operation.points.back() == "QUIT" && fault.dribbles;
                if (isJudgedByPieces) continue;
                cases.emplace_back([&operation, fault] {
                    Case c(fault);
                    EXPECT_TRUE(operation.run(c) && operation.isTrue(c))
                        << operation.name << " at " << fault.at << ": " << fault.reply << fault.dribbles;
                });
            }
        }
    }
    runAll(cases);
}

TEST(SurplusReply, NeverPassesForTheNext) {
    LogCapture log;
    std::vector<std::function<void()>> cases;
    for (const auto &[point, reply] :
         std::vector<std::pair<std::string, std::string>>{{"PASS", "230 Welcome."},
                                                          {"PWD", "257 \"/\" is the folder."},
                                                          {"TYPE", "200 Well."},
                                                          {"done", "226 Done."},
                                                          {"STOR", "150 Send."}}) {
        for (const std::string surplus : {"226 And done.", "257 And made.", "550 Or not.", "331 Again?"}) {
            for (const TlsMode tls : {TlsMode::kOff, TlsMode::kTry}) {
                cases.emplace_back([=] {
                    Case c({.at = point, .reply = reply + "\r\n" + surplus, .times = 1}, tls);
                    // A name for each: one that has failed may still be stored late.
                    for (const std::string name : {"0", "1", "2", "3"}) {
                        if (c.manager.createNewFolder(name, &c.descriptor)) {
                            EXPECT_TRUE(c.server.hasFolder("htdocs/" + name)) << point << " " << surplus;
                        }
                        if (c.manager.uploadData(name, name, &c.descriptor)) {
                            EXPECT_EQ(c.server.file("htdocs/" + name), name) << point << " " << surplus;
                        }
                    }
                    EXPECT_TRUE(c.manager.uploadData("last", "n", &c.descriptor)) << point << " " << surplus;
                    EXPECT_EQ(c.server.file("htdocs/n"), "last");
                });
            }
        }
    }
    runAll(cases);
}

TEST(EarlyReply, IsNoConfirmationOfAnUpload) {
    LogCapture log;
    for (const TlsMode tls : {TlsMode::kOff, TlsMode::kTry}) {
        Case c({.at = "STOR", .reply = "150 Send.\r\n226 Stored.", .times = 1}, tls);
        // Said together with the first reply, before the file has come; what follows may be a refusal.
        EXPECT_FALSE(c.manager.uploadData(kContent, "new", &c.descriptor));
        EXPECT_TRUE(c.manager.uploadData(kContent, "new", &c.descriptor));
    }
}

}  // namespace
