#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "Client.h"
#include "FTPManager/ControlConnection.h"
#include "LogCapture.h"
#include "support/Listener.h"
#include "support/ScriptedFtpServer.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using Clock = std::chrono::steady_clock;

constexpr TransportLimits kQuickLimits{.connectTimeout = 2s, .idleTimeout = 400ms};

class Operations : public testing::Test {
  protected:
    Operations() { std::ofstream(local.path() / "file") << "content"; }

    std::filesystem::path localFile(const std::string &name) const { return local.path() / name; }

    ScriptedFtpServer scripted;
    Client client{scripted.port(), kQuickLimits};
    FMServer &server = client.server;
    FTPManager &manager = client.manager;
    TemporaryFolder local;
    LogCapture log;
};

TEST_F(Operations, SendNothingAndLeaveNothingForBadInput) {
    struct Call {
        const char *name;
        std::function<bool(const std::optional<std::string> &name, const FMServer *server)> run;
        bool takesAnyName = false;
    };
    const std::vector<Call> calls = {
        {"download",
         [&](auto &name, auto *to) { return manager.downloadFile(name, local.path() / "in", to); }},
        {"text",
         [&](auto &name, auto *to) {
             return manager.uploadData(name ? std::optional<std::string_view>("x") : std::nullopt,
                                       name.value_or("n"), to);
         }},
        {"folder", [&](auto &name, auto *to) { return manager.createNewFolder(name, to); }},
        {"delete", [&](auto &name, auto *to) { return manager.deleteFileNamed(name, to); }, true},
        {"delete nested", [&](auto &name, auto *to) { return manager.deleteFile(name, to); }, true},
        {"chmod", [&](auto &name, auto *to) { return manager.chmodFileNamed(name, 644, to); }, true},
        {"list", [&](auto &, auto *to) { return manager.contentsOfServer(to).has_value(); }, true},
        {"login", [&](auto &, auto *to) { return manager.checkLogin(to); }, true},
        {"upload", [&](auto &, auto *to) { return manager.uploadFile(localFile("file"), to); }, true},
    };
    std::filesystem::create_directory(local.path() / "in");
    std::vector<FMServer> badServers(6, server);
    badServers[0].username = "u\r\nDELE x";
    badServers[1].password = std::string("p\0", 2);
    badServers[2].destination = "127.0.0.1/htdocs\r\nDELE x";
    badServers[3].port = 65536 + server.port;
    badServers[4].port = 0;
    badServers[5].password.reset();
    for (const Call &call : calls) {
        SCOPED_TRACE(call.name);
        for (const FMServer &bad : badServers) EXPECT_FALSE(call.run("n", &bad));
        EXPECT_FALSE(call.run("n", nullptr));
        if (call.name == std::string("list") || call.name == std::string("login") ||
            call.name == std::string("upload"))
            continue;
        EXPECT_FALSE(call.run(std::nullopt, &server));
        EXPECT_FALSE(call.run("a\r\nDELE x", &server));
        EXPECT_FALSE(call.run(std::string("a\0", 2), &server));
        if (call.takesAnyName) continue;
        for (const std::string name : {"", ".", "..", "a/b", "/etc/passwd", "a\xFF"})
            EXPECT_FALSE(call.run(name, &server)) << name;
    }
    for (const std::int32_t mode : {-1, 778, 1000}) EXPECT_FALSE(manager.chmodFileNamed("n", mode, &server));
    EXPECT_FALSE(manager.deleteFileNamed(std::string(249, '.'), &server)) << "longer than the line buffer";
    EXPECT_TRUE(fm::controlLines("u", "p", {}, "DELE " + std::string(248, 'x')));
    server.destination = "127.0.0.1?x";
    EXPECT_FALSE(manager.uploadFile(localFile("file"), &server)) << "the port would be none";
    server.destination = "127.0.0.1/htdocs";

    EXPECT_FALSE(manager.uploadFile(std::nullopt, &server));
    ASSERT_EQ(mkfifo(localFile("pipe").c_str(), 0600), 0);
    for (const std::string name : {"absent", "in", "pipe", ""})
        EXPECT_FALSE(manager.uploadFile(localFile(name), &server)) << name;
    EXPECT_FALSE(manager.downloadFile("n", std::nullopt, &server));
    EXPECT_FALSE(manager.downloadFile("n", localFile("absent"), &server));
    EXPECT_FALSE(manager.downloadFile("n", localFile("file"), &server)) << "no folder";
    EXPECT_FALSE(manager.downloadFile("in", local.path(), &server)) << "a folder is in the way";
    EXPECT_FALSE(manager.downloadFile("n", "/proc", &server)) << "nobody may write there";

    EXPECT_EQ(scripted.connectionCount(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(local.path() / "in"));
    EXPECT_EQ(contentOf(localFile("file")), "content");
    EXPECT_EQ(manager.fileSizeOf(localFile("file")), 7U);
    EXPECT_EQ(manager.fileSizeOf(localFile("absent")), 0U);
}

TEST_F(Operations, ReportLocalFailuresAndLeaveNoPart) {
    const std::string kReading = "ftp stream failed: error while reading data";
    const std::string kWriting = "ftp stream failed: error while writing data";
    // A file that can be opened and not read, and one that is always full.
    EXPECT_FALSE(manager.uploadFile("/proc/self/mem", &server));
    EXPECT_THAT(log.take(), ElementsAre(kReading));
    ASSERT_TRUE(scripted.waitUntilAt("end"));
    EXPECT_EQ(scripted.file("htdocs/mem"), std::nullopt);

    std::filesystem::create_symlink("/dev/full", localFile("n"));
    scripted.setFile("htdocs/n", "content");
    EXPECT_FALSE(manager.downloadFile("n", local.path(), &server));
    EXPECT_THAT(log.take(), ElementsAre(kWriting));
    EXPECT_FALSE(std::filesystem::is_symlink(localFile("n")));

    std::ofstream(localFile("absent")) << "what was there before";
    EXPECT_FALSE(manager.downloadFile("absent", local.path(), &server));
    EXPECT_FALSE(std::filesystem::exists(localFile("absent")));
    EXPECT_TRUE(manager.downloadFile("n", local.path(), &server));
    EXPECT_EQ(contentOf(localFile("n")), "content");
}

class Recorder : public FTPManagerDelegate {
  public:
    void ftpManagerUploadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        uploads.push_back(progress);
        if (onProgress) onProgress();
    }
    void ftpManagerDownloadProgressDidChange(const std::optional<FTPProgress> &progress) override {
        downloads.push_back(progress);
        if (onProgress) onProgress();
    }
    std::vector<std::optional<FTPProgress>> uploads;
    std::vector<std::optional<FTPProgress>> downloads;
    std::function<void()> onProgress;
};

TEST_F(Operations, TellTheProgressOfADownload) {
    Recorder recorder;
    manager.delegate = &recorder;
    scripted.setFile("htdocs/n", std::string(70'000, 'x'));
    FTPManagerAction action = FTPManagerAction::kFinished;
    recorder.onProgress = [&] { action = manager.action(); };
    ASSERT_TRUE(manager.downloadFile("n", local.path(), &server));
    EXPECT_EQ(action, FTPManagerAction::kDownload);
    EXPECT_EQ(manager.action(), FTPManagerAction::kFinished);
    ASSERT_GE(recorder.downloads.size(), 4U);
    ASSERT_TRUE(recorder.downloads.front());
    EXPECT_EQ(recorder.downloads.front()->fileSize, 70'000U) << "known before the first byte";
    EXPECT_EQ(recorder.downloads.front()->fileSizeProcessed, 0U);
    EXPECT_EQ(recorder.downloads.back()->fileSizeProcessed, 70'000U);
    EXPECT_LE(recorder.downloads.back()->bytesProcessed, 32768U);
    EXPECT_FLOAT_EQ(recorder.downloads.back()->progress, 1);
    EXPECT_THAT(recorder.uploads, IsEmpty());
    manager.delegate = nullptr;
}

TEST(DownloadSize, ThatTheServerGetsWrongNeitherCutsNorDeceives) {
    struct Answer {
        std::string reply;
        std::optional<std::uint64_t> toldSize;
        bool succeeds;
    };
    for (const Answer &answer : {Answer{"213 3", 3, true}, Answer{"213 900", 900, false},
                                 Answer{"550 No.", {}, true}, Answer{"213 many", {}, true},
                                 Answer{"213 99999999999999999999", {}, true}, Answer{"213 0", {}, true}}) {
        SCOPED_TRACE(answer.reply);
        ScriptedFtpServer scripted(Faults{{.at = "SIZE", .reply = answer.reply}});
        scripted.setFile("htdocs/n", "content");
        Client client(scripted.port());
        Recorder recorder;
        client.manager.delegate = &recorder;
        TemporaryFolder local;
        LogCapture log;
        EXPECT_EQ(client.manager.downloadFile("n", local.path(), &client.server), answer.succeeds);
        EXPECT_EQ(std::filesystem::exists(local.path() / "n"), answer.succeeds);
        if (answer.succeeds) {
            EXPECT_EQ(std::filesystem::file_size(local.path() / "n"), 7U);
        }
        EXPECT_TRUE(client.manager.createNewFolder("folder", &client.server));
        EXPECT_FALSE(client.manager.createNewFolder("folder", &client.server));
        EXPECT_TRUE(client.upload("x"));
        EXPECT_EQ(scripted.connectionCount(), 1) << "a refusal costs no connection";
        ASSERT_GE(recorder.downloads.size(), 2U);
        for (const auto &progress : recorder.downloads) {
            EXPECT_EQ(progress ? std::optional(progress->fileSize) : std::nullopt, answer.toldSize);
        }
    }
}

TEST(DataAddress, ThatTheServerGetsWrongIsNotBelieved) {
    LogCapture log;
    // Without EPSV, the scripted server tells an address where nobody answers.
    for (const std::string refusal : {"500 What?", "522 Network protocol not supported."}) {
        ScriptedFtpServer scripted(Faults{{.at = "EPSV", .reply = refusal}});
        Client client(scripted.port());
        EXPECT_TRUE(client.upload("x"));
        EXPECT_THAT(client.manager.contentsOfServer(&client.server), Optional(testing::SizeIs(1)));
    }
    for (const std::string reply :
         {"227 Passive (1,2,3).", "227 Passive.", "227 Passive (999,999,999,999,999,999).",
          "227 Passive (127,0,0,1,0,1).", "229 Passive (|||1|)", "200 Yes."}) {
        ScriptedFtpServer scripted(Faults{{.at = "EPSV", .reply = "500 What?", .times = 1},
                                          {.at = "PASV", .reply = reply, .times = 1}});
        Client client(scripted.port(), kQuickLimits);
        const Clock::time_point start = Clock::now();
        EXPECT_FALSE(client.upload("x")) << reply;
        EXPECT_LT(Clock::now() - start, 5s) << reply;
        EXPECT_TRUE(client.upload("x")) << reply;
    }
}

TEST_F(Operations, AbortEndsEachTransferAsIfItHadSucceeded) {
    struct Aborted {
        std::string at;
        std::function<bool(FTPManager &, const FMServer &)> run;
    };
    const std::vector<Aborted> operations = {
        {"STOR", [](FTPManager &m, const FMServer &s) { return m.uploadData("x", "new", &s); }},
        {"data", [](FTPManager &m,
                    const FMServer &s) { return m.uploadData(std::string(9'000'000, 'x'), "new", &s); }},
        {"MKD", [](FTPManager &m, const FMServer &s) { return m.createNewFolder("new", &s); }},
        {"LIST", [](FTPManager &m, const FMServer &s) { return m.contentsOfServer(&s).has_value(); }},
        {"data", [](FTPManager &m, const FMServer &s) { return m.contentsOfServer(&s)->size() < 2; }},
        {"data", [this](FTPManager &m, const FMServer &s) { return m.downloadFile("n", local.path(), &s); }},
        {"RETR", [this](FTPManager &m, const FMServer &s) { return m.downloadFile("n", local.path(), &s); }},
    };
    for (const Aborted &operation : operations) {
        SCOPED_TRACE(operation.at);
        ScriptedFtpServer stalling(Faults{{.at = operation.at, .stalls = true, .times = 1}});
        stalling.setFile("htdocs/n", std::string(200'000, 'x'));
        stalling.setFile("htdocs/m", "");
        Client patientClient(stalling.port());
        const FMServer &target = patientClient.server;
        FTPManager &patient = patientClient.manager;
        patient.abort();  // nothing runs
        std::jthread aborter([&] {
            EXPECT_TRUE(stalling.waitUntilAt(operation.at));
            patient.abort();
        });
        const Clock::time_point start = Clock::now();
        EXPECT_TRUE(operation.run(patient, target));
        EXPECT_LT(Clock::now() - start, 5s);
        EXPECT_TRUE(patient.streamSuccess());
        EXPECT_EQ(patient.action(), FTPManagerAction::kFinished);
        EXPECT_FALSE(stalling.file("htdocs/new").has_value());
        EXPECT_TRUE(patient.uploadData("next", "next", &target));
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(Operations, AreAbortedFromTheirDelegateToo) {
    scripted.setFile("htdocs/n", std::string(2'000'000, 'x'));
    Recorder recorder;
    manager.delegate = &recorder;
    bool startedFromWithin = false;
    recorder.onProgress = [&] {
        startedFromWithin |= manager.uploadData("x", "again", &server) || manager.deleteFile("n", &server);
        manager.abort();
    };
    EXPECT_TRUE(manager.downloadFile("n", local.path(), &server));
    EXPECT_LT(std::filesystem::file_size(localFile("n")), 2'000'000U) << "what had come stays";
    EXPECT_TRUE(manager.uploadData(std::string(2'000'000, 'y'), "n", &server));
    ASSERT_TRUE(scripted.waitUntilAt("done"));
    EXPECT_EQ(scripted.file("htdocs/n"), std::string(2'000'000, 'x'))
        << "the server took no part for the whole";
    EXPECT_FALSE(startedFromWithin) << "it would wait for itself";
    EXPECT_THAT(log.take(), testing::Each(HasSubstr("cannot start another one")));
    recorder.onProgress = {};
    recorder.uploads.clear();
    EXPECT_TRUE(manager.uploadData(std::string(100'000, 'x'), "n", &server));
    ASSERT_GE(recorder.uploads.size(), 4U);
    EXPECT_EQ(recorder.uploads.front()->bytesProcessed, 32768U);
    EXPECT_EQ(recorder.uploads.back()->fileSizeProcessed, 100'000U);
    EXPECT_FLOAT_EQ(recorder.uploads.back()->progress, 1);
    manager.delegate = nullptr;
}

TEST_F(Operations, SayNoMoreThanTheyNeedOnAWarmConnection) {
    scripted.setFile("htdocs/n", "content");
    ASSERT_TRUE(manager.uploadData("x", "m", &server));
    scripted.forgetCommands();
    EXPECT_TRUE(manager.downloadFile("n", local.path(), &server));
    EXPECT_THAT(scripted.commands(), ElementsAre("EPSV", "SIZE htdocs/n", "RETR htdocs/n"));
    scripted.forgetCommands();
    EXPECT_TRUE(manager.uploadFile(localFile("file"), &server));
    EXPECT_TRUE(manager.createNewFolder("folder", &server));
    EXPECT_THAT(scripted.commands(), ElementsAre("EPSV", "STOR htdocs/file", "NOOP", "MKD htdocs/folder"));
    EXPECT_EQ(scripted.file("htdocs/file"), "content");
}

TEST_F(Operations, ListHiddenFilesWhereTheServerCan) {
    scripted.setFile("htdocs/.hidden", "1");
    scripted.setFile("htdocs/seen", "22");
    ASSERT_THAT(manager.contentsOfServer(&server), Optional(testing::SizeIs(2)));
    EXPECT_EQ(manager.contentsOfServer(&server)->front().name, ".hidden");
    EXPECT_TRUE(manager.uploadData("x", "n", &server)) << "the folder is entered for listings only";
    EXPECT_EQ(scripted.file("htdocs/n"), "x");
    EXPECT_EQ(scripted.connectionCount(), 1);
    for (const Fault &fault :
         {Fault{.at = "LIST", .reply = "550 -a: no such file.", .times = 1},
          Fault{.at = "LIST", .reply = "501 What option?", .times = 1}, Fault{.at = "options"}}) {
        ScriptedFtpServer plain(Faults{fault});
        plain.setFile("htdocs/seen", "22");
        server.port = plain.port();
        EXPECT_THAT(manager.contentsOfServer(&server), Optional(testing::SizeIs(1)))
            << fault.at << fault.reply;
    }
    for (const Fault &fault : {Fault{.at = "LIST", .reply = "450 Not now."}, Fault{.at = ""}}) {
        ScriptedFtpServer busyOrLong(Faults{fault});
        busyOrLong.setFile("htdocs/" + std::string(fault.at.empty() ? 200 : 1, 'x'), "");
        Client limited(busyOrLong.port(), {.mostListingBytes = 200});
        EXPECT_EQ(limited.manager.contentsOfServer(&limited.server), std::nullopt) << fault.at;
    }
    ScriptedFtpServer odd(Faults{{.at = "PWD", .reply = "550 Nowhere."}});
    odd.setFile("htdocs/seen", "22");
    server.port = odd.port();
    EXPECT_TRUE(manager.contentsOfServer(&server));
    EXPECT_TRUE(manager.uploadData("x", "n", &server)) << "the way back is unknown, so the connection is new";
    EXPECT_EQ(odd.file("htdocs/n"), "x");
}

TEST_F(Operations, SendTheirCommandsAtOnceInTheirOrder) {
    manager.deleteFileNamed("notes.txt", &server);
    EXPECT_THAT(scripted.commands(), ElementsAre("USER u", "PASS p", "CWD htdocs", "DELE notes.txt", "QUIT"));
    scripted.forgetCommands();
    EXPECT_FALSE(manager.deleteFile("archive", &server)) << "there is none";
    EXPECT_THAT(scripted.commands(), ElementsAre("USER u", "PASS p", "CWD htdocs", "RMD archive", "QUIT"));
    scripted.forgetCommands();
    EXPECT_TRUE(manager.checkLogin(&server));
    EXPECT_THAT(scripted.commands(), ElementsAre("USER u", "PASS p", "QUIT"));
    scripted.forgetCommands();
    server.destination = "127.0.0.1";
    EXPECT_TRUE(manager.chmodFileNamed("a b", 755, &server));
    EXPECT_THAT(scripted.commands(), ElementsAre("USER u", "PASS p", "SITE CHMOD 755 a b", "QUIT"));
    EXPECT_THAT(log.take(), IsEmpty());

    server.destination = "no host of that name.invalid/x";
    EXPECT_FALSE(manager.checkLogin(&server));
    EXPECT_THAT(log.take(), ElementsAre("host error!"));
    server.destination = "127.0.0.1";
    server.port = 1;
    EXPECT_FALSE(manager.checkLogin(&server));
    EXPECT_THAT(log.take(), ElementsAre("error connecting."));
}

TEST_F(Operations, WaitForNoAnswerBeforeTheLastLineOfACommandIsSent) {
    Listener mute(1);
    server.port = mute.port();
    EXPECT_FALSE(manager.checkLogin(&server));
    const int caller = accept(mute.descriptor(), nullptr, nullptr);
    char heard[100] = "";
    EXPECT_GT(recv(caller, heard, sizeof heard - 1, 0), 0);
    close(caller);
    EXPECT_STREQ(heard, "USER u\r\nPASS p\r\nQUIT\r\n");
}

TEST(Answers, AreJudgedByTheFirstCharacterOfEachPiece) {
    for (const std::string fine : {"", "\n", "\n220 Ready.\r\n331 Password?\n", "x5\n 5", "150"})
        EXPECT_TRUE(fm::_checkAnswers(fine)) << fine;
    for (const std::string bad : {"5", "\n220 Ready.\r\n530 No.", "\n22\n4", "\n4x", "\n\n\n550"})
        EXPECT_FALSE(fm::_checkAnswers(bad)) << bad;
}

TEST(Answers, AreReadPieceByPieceUntilTheServerCloses) {
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
    EXPECT_EQ(heard({std::string("a\0b", 3), "\xFF", "\xC3\xBC"}, true), "\na\n(null)\n\xC3\xBC\n");
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(heard({"220 a\r\n", "221 Bye.\r\n"}, false), "\n220 a\r\n\n221 Bye.\r\n")
        << "it does not close";
    EXPECT_EQ(heard({"220 a\r\n"}, false), std::nullopt) << "it fell silent";
    EXPECT_THAT(log.take(), ElementsAre("Error reading from socket!", "Error reading from socket!"));

    EXPECT_EQ(heard({std::string(300, 'x')}, true, SOCK_STREAM),
              "\n" + std::string(255, 'x') + "\n" + std::string(45, 'x') + "\n");
}

TEST(Answers, ThatNeverEndAreGivenUp) {
    LogCapture log;
    for (const std::string word : {"2", "200 Still here.\r\n"}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        std::jthread talker([&](const std::stop_token &stop) {
            while (!stop.stop_requested() && send(ends[1], word.data(), word.size(), MSG_NOSIGNAL) > 0)
                std::this_thread::yield();
        });
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(fm::_listenLoopForSocket(ends[0], 10s, 200ms), std::nullopt);
        EXPECT_LT(Clock::now() - start, 5s);
        close(ends[0]);
        talker.request_stop();
        talker.join();
        close(ends[1]);
    }
}

}  // namespace
