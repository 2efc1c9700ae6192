// What the client makes of servers that misbehave: every operation, at every point, with every misdeed.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "Client.h"
#include "support/ScriptedFtpServer.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr TransportLimits kQuick{.connectTimeout = 2s, .idleTimeout = 500ms};
/// The idle limit once or twice, in whole seconds, and a margin for a busy machine.
constexpr std::chrono::seconds kLongestOperation{8};
constexpr std::chrono::milliseconds kAtOnce{1500};
/// More than one buffer.
const std::string kContent(100'000, 'x');

/// A server with these faults, and a client of it.
struct Case {
    explicit Case(const Faults &faults, const TransportLimits &limits = kQuick, TlsMode tls = TlsMode::kOff)
        : server(faults), client(server.port(), limits, tls) {
        server.setFile("htdocs/there", kContent);
        server.setFile("htdocs/old.txt", "old");
    }

    ScriptedFtpServer server;
    Client client;
    FMServer &at = client.server;
    FTPManager &manager = client.manager;
    TemporaryFolder local;
    std::size_t listed = 0;
};

enum class Kind { kTransfer, kText, kCommand };

/// An operation, the points that it passes, and whether its success is one.
struct Operation {
    std::string name;
    Kind kind;
    std::string points;
    std::function<bool(Case &, const std::stop_token &)> run;
    std::function<bool(Case &)> isTrue = [](Case &) { return true; };
};

const std::vector<Operation> kOperations = {
    {"upload", Kind::kTransfer, "PWD EPSV TYPE STOR data done",
     [](Case &c, auto &stop) { return c.client.upload(kContent, "new", stop); },
     [](Case &c) { return c.server.file("htdocs/new") == kContent; }},
    {"download", Kind::kTransfer, "PWD EPSV TYPE SIZE RETR data done",
     [](Case &c, auto &stop) { return c.manager.downloadFile("there", c.local.path(), &c.at, stop); },
     [](Case &c) { return contentOf(c.local.path() / "there") == kContent; }},
    {"listing", Kind::kTransfer, "PWD CWD EPSV TYPE LIST data done",
     [](Case &c, auto &stop) {
         const auto entries = c.manager.contentsOfServer(&c.at, stop);
         c.listed = entries ? entries->size() : 0;
         return entries.has_value();
     },
     [](Case &c) { return c.listed == 2; }},
    {"new folder", Kind::kTransfer, "PWD MKD",
     [](Case &c, auto &stop) { return c.manager.createNewFolder("folder", &c.at, stop); },
     [](Case &c) { return c.server.hasFolder("htdocs/folder"); }},
    {"new name", Kind::kText, "PWD RNFR RNTO",
     [](Case &c, auto &stop) {
         return renameFileAtURL(c.client.url("old.txt"), "new", *c.client.transport, stop) == true;
     },
     [](Case &c) { return c.server.file("htdocs/new") == "old" && !c.server.file("htdocs/old.txt"); }},
    {"text", Kind::kText, "PWD EPSV TYPE RETR data done",
     [](Case &c, auto &stop) { return c.client.readText("there", stop).text == kContent; }},
    // Judged by the first characters of what the server says: it may succeed without a deed.
    {"deletion", Kind::kCommand, "CWD DELE QUIT",
     [](Case &c, auto &stop) { return c.manager.deleteFile("old.txt", &c.at, stop); }},
};

/// What has to come of an operation.
enum class Wanted {
    kHonest,  ///< success only if it is one
    kFailure,
    kSuccess,
    kGivenUp,  ///< it is cancelled when the server is at that point
};

struct Misdeed {
    std::string name;
    Fault fault;
    Wanted wanted = Wanted::kHonest;
    TlsMode tls = TlsMode::kOff;
    bool mayFailTheNext = false;
};

const std::map<std::string, std::string> kUsualReplies = {
    {"greeting", "220 Ready."},  {"USER", "331 Password?"}, {"PASS", "230 Welcome."},
    {"PWD", "257 \"/\" is it."}, {"CWD", "250 There."},     {"TYPE", "200 Well."},
    {"STOR", "150 Send."},       {"RETR", "150 Here."},     {"LIST", "150 Here."},
    {"done", "226 Done."}};

/// Where the client can go on in another way after a refusal, or need not care.
const std::set<std::string> kDispensable = {"PWD", "TYPE", "EPSV", "SIZE", "LIST", "RNFR", "QUIT"};

std::vector<Misdeed> misdeedsAt(const std::string &point, Kind kind) {
    const Wanted refused = kDispensable.contains(point) ? Wanted::kHonest : Wanted::kFailure;
    // The reply may be lost with the connection, which counts for a command's end.
    const Wanted closedDown = kind == Kind::kCommand ? Wanted::kHonest : refused;
    std::vector<Misdeed> misdeeds = {
        {"closes", {.at = point, .hangsUp = true}},
        {"stalls", {.at = point, .stalls = true}},
        {"is given up", {.at = point, .stalls = true}, Wanted::kGivenUp},
    };
    if (point == "data") return misdeeds;
    for (const auto &[name, reply, wanted] : std::vector<std::tuple<std::string, std::string, Wanted>>{
             {"refuses", "550 No.", refused},
             {"is busy", "450 Not now.", refused},
             {"closes down", "421 Good night.", closedDown},
             {"talks nonsense", "what?\r\n\r\n   \r\n-1 No code", Wanted::kHonest},
             {"never ends its lines", "230-" + std::string(70'000, 'x'), Wanted::kHonest}})
        misdeeds.push_back(
            {name, {.at = point, .reply = reply, .hangsUp = reply.starts_with("421")}, wanted});
    const auto usual = kUsualReplies.find(point);
    if (usual == kUsualReplies.end()) return misdeeds;
    const std::string code = usual->second.substr(0, 3);
    const std::string manyLines =
        code + "-Well,\r\n 550 is no answer,\r\n\r\n" + code + "-nor this,\r\n" + usual->second;
    misdeeds.push_back({"says much", {.at = point, .reply = manyLines}, Wanted::kSuccess});
    if (kind == Kind::kCommand) return misdeeds;  // judged by the pieces that arrive
    for (const std::string surplus : {"226 And done.", "257 And made.", "550 Or not.", "331 Again?"}) {
        for (const TlsMode tls : {TlsMode::kOff, TlsMode::kTry}) {
            const Fault fault{.at = point, .reply = usual->second + "\r\n" + surplus};
            misdeeds.push_back({"adds " + surplus, fault, Wanted::kHonest, tls, true});
        }
    }
    return misdeeds;
}

/// What is wrong with the next operations of a client; empty if nothing is.
std::string nextIsSpoilt(Case &c, bool mayFail) {
    for (int i = 0; mayFail && i < 3; ++i) {
        if (c.client.upload("0", "0") && c.server.file("htdocs/0") != "0")
            return "stored a file that is none";
    }
    if (!c.client.upload("next", "next")) return "spoilt the next upload";
    if (c.server.file("htdocs/next") != "next") return "left the server in another folder";
    if (!c.manager.contentsOfServer(&c.at)) return "spoilt the next listing";
    return {};
}

/// What is wrong; empty if nothing is.
std::string runWith(const Operation &operation, const Misdeed &misdeed) {
    const bool isGivenUp = misdeed.wanted == Wanted::kGivenUp;
    Fault fault = misdeed.fault;
    if (misdeed.wanted != Wanted::kSuccess) fault.times = 1;
    Case c({fault}, isGivenUp ? TransportLimits() : kQuick, misdeed.tls);
    std::stop_source stop;
    std::atomic<Clock::time_point> gaveUpAt = Clock::now();
    std::jthread givingUp([&] {
        if (!isGivenUp) return;
        EXPECT_TRUE(c.server.waitUntilAt(fault.at));
        gaveUpAt = Clock::now();
        stop.request_stop();
    });
    const bool succeeded = operation.run(c, stop.get_token());
    const auto taken = Clock::now() - gaveUpAt.load();
    givingUp.join();

    if (taken > (isGivenUp ? kAtOnce : kLongestOperation)) return "hung";
    if (succeeded && (misdeed.wanted == Wanted::kFailure || isGivenUp)) return "succeeded";
    if (!succeeded && misdeed.wanted == Wanted::kSuccess) return "failed";
    if (succeeded && !operation.isTrue(c)) return "reported a success that was none";
    if (!succeeded && std::filesystem::exists(c.local.path() / "there")) return "left a part of a file";
    return nextIsSpoilt(c, misdeed.mayFailTheNext);
}

TEST(MisbehavingServer, NeitherHangsNorDeceivesNorSpoilsWhatComesNext) {
    LogCapture log;
    std::vector<std::function<void()>> cases;
    for (const Operation &operation : kOperations) {
        std::istringstream points("greeting USER PASS " + operation.points);
        for (std::string point; points >> point;) {
            for (const Misdeed &misdeed : misdeedsAt(point, operation.kind)) {
                cases.emplace_back([&operation, point, misdeed] {
                    EXPECT_EQ(runWith(operation, misdeed), "")
                        << operation.name << ": the server " << misdeed.name << " at " << point;
                });
            }
        }
    }
    // Several at a time, since most of them wait.
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 32; ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < cases.size(); index = next++) cases[index]();
        });
    }
    threads.clear();
}

TEST(EarlyReply, IsNoConfirmationOfAnUpload) {
    LogCapture log;
    for (const TlsMode tls : {TlsMode::kOff, TlsMode::kTry}) {
        // Said together with the first reply, before the file has come; what follows is a refusal.
        Case c({{.at = "STOR", .reply = "150 Send.\r\n226 Stored.", .times = 1},
                {.at = "done", .reply = "552 No room.", .times = 1}},
               kQuick, tls);
        EXPECT_FALSE(c.client.upload(kContent));
        EXPECT_TRUE(c.client.upload(kContent) || c.client.upload(kContent));
    }
}

/// A connection that was used before, and what comes of the next request.
struct WarmCase {
    enum Request { kUpload, kRead, kNewFolder };
    std::string name;
    Faults faults;
    Request request = kUpload;
    bool succeeds = true;
    int connections = 2;
    int requests = 2;  ///< that the server has got, the first upload's included
    TransportLimits limits = {.idleTimeout = 500ms};
    std::optional<std::string> farewell = {};  ///< said by the server before it closes the idle connection
};

TEST(WarmConnection, ThatIsOfNoUseIsReplacedOnceAndNothingIsDoneTwice) {
    using W = WarmCase;
    const auto once = [](Fault fault) {
        fault.times = 1;
        fault.skip = fault.at == "MKD" ? 0 : 1;
        return Faults{fault};
    };
    const std::string bye = "421 Good night.";
    const TransportLimits quickReuse{.idleTimeout = 60s, .reuseTimeout = 400ms};
    const Faults goodbyes = {{.at = "EPSV", .reply = bye, .hangsUp = true, .skip = 1, .times = 2}};
    const std::vector<WarmCase> rows = {
        {.name = "closed with a word", .faults = {}, .farewell = bye},
        {.name = "closed before a read", .faults = {}, .request = W::kRead, .requests = 1, .farewell = bye},
        {"cut at the next command", once({.at = "EPSV", .hangsUp = true})},
        {"cut at the second command", once({.at = "STOR", .hangsUp = true}), W::kUpload, true, 2, 3},
        {"silent", once({.at = "EPSV", .stalls = true}), W::kUpload, true, 2, 2, quickReuse},
        {"slow, but not silent", once({.at = "STOR", .delay = 700ms}), W::kUpload, true, 1, 2, quickReuse},
        {"closed for good", goodbyes, W::kUpload, false, 2, 1},
        {"cut behind the bytes", once({.at = "done", .hangsUp = true}), W::kUpload, false, 1, 2},
        {"cut at a new folder", once({.at = "MKD", .hangsUp = true}), W::kNewFolder, false, 1, 1},
    };
    LogCapture log;
    for (const WarmCase &row : rows) {
        SCOPED_TRACE(row.name);
        Case c(row.faults, row.limits);
        ASSERT_TRUE(c.client.upload("1"));
        if (row.farewell) c.server.hangUpWith(*row.farewell);
        const bool isFolder = row.request == W::kNewFolder, isRead = row.request == W::kRead;
        EXPECT_EQ(isFolder ? c.manager.createNewFolder("f", &c.at)
                  : isRead ? c.client.read() == "1"
                           : c.client.upload("2"),
                  row.succeeds);
        EXPECT_EQ(c.server.connectionCount(), row.connections);
        const auto isAsked = [&](const auto &line) { return line.starts_with(isFolder ? "MKD" : "STOR"); };
        EXPECT_EQ(std::ranges::count_if(c.server.commands(), isAsked), row.requests);
        EXPECT_TRUE(c.client.upload("3"));
        EXPECT_EQ(c.server.file("htdocs/n"), "3");
    }
}

/// Gives a transfer up in its middle.
class GivesUp : public FTPManagerDelegate {
  public:
    void ftpManagerUploadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        if (progress && progress->fileSizeProcessed >= 10'000'000) giveUp();
    }
    void ftpManagerDownloadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        ftpManagerUploadProgressDidChange(progress);
    }
    std::function<void()> giveUp;
};

TEST(TransferGivenUp, LooksLikeNoEndOfTheFileToTheServer) {
    const std::string large(20'000'000, 'x');
    LogCapture log;
    for (const bool isAborted : {false, true}) {
        SCOPED_TRACE(isAborted);
        Case c({{.at = "data", .delay = 100ms}});  // else all may have come by then
        std::stop_source stop;
        GivesUp delegate;
        delegate.giveUp = [&] {
            EXPECT_FALSE(c.client.upload("x") || c.manager.deleteFile("n", &c.at))
                << "it would wait for itself";
            if (isAborted) c.manager.abort();
            if (!isAborted) stop.request_stop();
        };
        c.manager.delegate = &delegate;
        EXPECT_EQ(c.client.upload(large, "n", stop.get_token()), isAborted);
        ASSERT_TRUE(c.server.waitUntilAt("done"));
        EXPECT_FALSE(c.server.file("htdocs/n"));

        c.server.setFile("htdocs/n", large);
        EXPECT_EQ(c.manager.downloadFile("n", c.local.path(), &c.at, stop.get_token()), isAborted);
        EXPECT_EQ(std::filesystem::exists(c.local.path() / "n"), isAborted) << "what had come stays";
        const std::size_t come = contentOf(c.local.path() / "n").size();
        EXPECT_TRUE(!isAborted || (come > 5'000'000 && come < large.size())) << come;
        c.manager.delegate = nullptr;
    }
}

}  // namespace
