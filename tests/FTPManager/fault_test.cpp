#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "FTPManager/FTPManager.h"
#include "LogCapture.h"
#include "support/Listener.h"
#include "support/ScriptedFtpServer.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kStreamError = "ftp stream failed: general stream error (check credentials?)";

/// A manager and reads over one transport, towards a server on loopback.
struct Client {
    explicit Client(std::uint16_t serverPort, TransportLimits limits = {})
        : port(serverPort),
          transport(std::make_shared<FTPTransport>(TransportOptions{.limits = limits, .caFile = {}})),
          manager(transport) {}

    bool upload(std::string_view text, std::stop_token cancelled = {}) {
        FMServer server = FMServer::serverWithDestination("127.0.0.1/htdocs", "u", "p");
        server.port = port;
        return manager.uploadData(text, "n", &server, std::move(cancelled));
    }
    std::optional<std::string> read(std::stop_token cancelled = {}) {
        return stringWithContentsOfURL("ftp://u:p@127.0.0.1:" + std::to_string(port) + "/htdocs/n",
                                       *transport, std::move(cancelled));
    }

    const std::uint16_t port;
    const std::shared_ptr<FTPTransport> transport;
    FTPManager manager;
};

std::vector<std::string> verbs(const ScriptedFtpServer &server) {
    std::vector<std::string> all = server.commands();
    for (std::string &line : all) line = line.substr(0, line.find(' '));
    return all;
}

TEST(Fault, FailsTheUploadAndTheRead) {
    const Faults faults = {
        {.at = "greeting", .hangsUp = true},
        {.at = "greeting", .reply = "421 Too many clients.", .hangsUp = true},
        {.at = "greeting", .reply = "not FTP at all", .hangsUp = true},
        {.at = "PASS", .reply = "530 No."},
        {.at = "EPSV", .hangsUp = true},
        {.at = "STOR", .reply = "550 No."},
        {.at = "RETR", .reply = "550 No."},
        {.at = "data", .hangsUp = true},
        {.at = "done", .reply = "552 Disk full."},
        {.at = "done", .reply = "426 Torn."},
        {.at = "done", .hangsUp = true},
    };
    LogCapture log;
    for (const Fault &fault : faults) {
        SCOPED_TRACE(fault.at + " " + fault.reply);
        ScriptedFtpServer server(Faults{fault});
        server.setFile("htdocs/n", "content");
        Client client(server.port());
        if (fault.at != "RETR") {
            EXPECT_FALSE(client.upload("x"));
            EXPECT_THAT(log.take(), ElementsAre(kStreamError));
        }
        if (fault.at != "STOR") {
            EXPECT_EQ(client.read(), std::nullopt);
            EXPECT_THAT(log.take(), IsEmpty());
        }
    }
}

TEST(Fault, OfTheContentReadsAsNothingAndNothingIsCut) {
    ScriptedFtpServer server(Faults{{.at = "RETR", .reply = "150 Opening connection for n (5 bytes)."}});
    Client client(server.port());
    server.setFile("htdocs/n", "longer than announced");
    EXPECT_EQ(client.read(), "longer than announced");
    for (const std::string bad : {"half a sign \xE2\x82", "\xFF", "a\xC0\x80"}) {
        server.setFile("htdocs/n", bad);
        EXPECT_EQ(client.read(), std::nullopt) << testing::PrintToString(bad);
    }
}

TEST(IdleConnection, ThatTheServerHasClosedIsReplaced) {
    for (const std::string farewell : {"", "421 Timeout."}) {
        SCOPED_TRACE(farewell);
        ScriptedFtpServer server;
        Client client(server.port());
        ASSERT_TRUE(client.upload("1"));
        server.hangUpWith(farewell);
        EXPECT_TRUE(client.upload("2"));
        server.hangUpWith(farewell);
        EXPECT_EQ(client.read(), "2");
        EXPECT_EQ(server.connectionCount(), 3);
    }
}

TEST(IdleConnection, ThatFailsAtTheNextCommandIsReplacedOnce) {
    // The farewell comes only when the client has already begun.
    for (const std::string at : {"EPSV", "STOR"}) {
        for (const std::string reply : {"", "421 Timeout."}) {
            SCOPED_TRACE(at + reply);
            ScriptedFtpServer server(
                Faults{{.at = at, .reply = reply, .hangsUp = true, .skip = 1, .times = 1}});
            Client client(server.port());
            ASSERT_TRUE(client.upload("1"));
            EXPECT_TRUE(client.upload("2"));
            EXPECT_EQ(server.file("htdocs/n"), "2");
            EXPECT_EQ(server.connectionCount(), 2);
        }
    }
    ScriptedFtpServer gone(Faults{{.at = "EPSV", .reply = "421 Timeout.", .hangsUp = true, .skip = 1}});
    Client client(gone.port());
    ASSERT_TRUE(client.upload("1"));
    EXPECT_FALSE(client.upload("2"));
    EXPECT_EQ(gone.connectionCount(), 2);
}

TEST(IdleConnection, IsNotTriedAgainAfterARefusalOrOnceBytesHaveMoved) {
    ScriptedFtpServer server(Faults{{.at = "STOR", .reply = "553 No.", .skip = 1, .times = 1},
                                    {.at = "done", .hangsUp = true, .skip = 1, .times = 1}});
    Client client(server.port());
    ASSERT_TRUE(client.upload("1"));
    server.forgetCommands();
    EXPECT_FALSE(client.upload("2"));
    EXPECT_THAT(verbs(server), ElementsAre("EPSV", "STOR"));
    EXPECT_FALSE(client.upload("3"));
    EXPECT_THAT(verbs(server), ElementsAre("EPSV", "STOR", "EPSV", "STOR"));
    EXPECT_EQ(server.connectionCount(), 1);
    EXPECT_TRUE(client.upload("4")) << "on a new connection";
}

TEST(SlowServer, IsWaitedForAsLongAsItAnswers) {
    Faults delays;
    for (const std::string at :
         {"greeting", "USER", "PASS", "PWD", "EPSV", "TYPE", "STOR", "RETR", "data", "done"})
        delays.push_back({.at = at, .delay = 300ms});
    ScriptedFtpServer server(delays);
    Client client(server.port(), {.connectTimeout = 500ms, .idleTimeout = 2000ms});
    EXPECT_TRUE(client.upload("text"));
    EXPECT_EQ(client.read(), "text");
}

TEST(MuteServer, IsGivenUpAfterTheIdleLimit) {
    LogCapture log;
    for (const std::string at : {"greeting", "PASS", "EPSV", "STOR", "RETR", "data", "done"}) {
        SCOPED_TRACE(at);
        ScriptedFtpServer server(Faults{{.at = at, .stalls = true}});
        server.setFile("htdocs/n", "content");
        Client client(server.port(), {.connectTimeout = 10s, .idleTimeout = 400ms});
        const Clock::time_point start = Clock::now();
        if (at != "RETR") {
            // More than the sockets' buffers take.
            EXPECT_FALSE(client.upload(std::string(at == "data" ? 30'000'000 : 5, 'x')));
            EXPECT_THAT(log.take(), ElementsAre(kStreamError));
        }
        if (at != "STOR") {
            EXPECT_EQ(client.read(), std::nullopt);
        }
        EXPECT_GE(Clock::now() - start, 400ms);
        EXPECT_LT(Clock::now() - start, 6s);
    }
}

TEST(MuteServer, DoesNotHoldUpTheEndOfTheTransport) {
    ScriptedFtpServer server(Faults{{.at = "QUIT", .stalls = true}});
    std::optional<Client> client(std::in_place, server.port());
    ASSERT_TRUE(client->upload("text"));
    const Clock::time_point start = Clock::now();
    client.reset();
    EXPECT_LT(Clock::now() - start, 2s);
}

TEST(UnreachableServer, IsGivenUpAfterTheConnectLimit) {
    // A listener whose queue is full: the kernel drops further connections without a word.
    std::optional<Listener> listener(std::in_place, 0);
    ASSERT_TRUE(listener->isListening());
    std::vector<int> queued;
    for (int i = 0; i < 4; ++i) queued.push_back(listener->connectWithoutWaiting());
    Client client(listener->port(), {.connectTimeout = 400ms, .idleTimeout = 60s});
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(client.upload("x"));
    EXPECT_GE(Clock::now() - start, 300ms);
    EXPECT_LT(Clock::now() - start, 5s);
    for (const int descriptor : queued) close(descriptor);
    listener.reset();
    EXPECT_FALSE(client.upload("x")) << "nobody listens there any more";
}

TEST(Cancelling, EndsAnOperationAtOnceWhereverItIs) {
    LogCapture log;
    for (const std::string at : {"greeting", "PASS", "EPSV", "STOR", "RETR", "data", "done"}) {
        for (const bool isUpload : {true, false}) {
            if (at == (isUpload ? "RETR" : "STOR")) continue;
            SCOPED_TRACE(at + (isUpload ? " upload" : " read"));
            ScriptedFtpServer server(Faults{{.at = at, .stalls = true}});
            server.setFile("htdocs/n", "content");
            Client client(server.port());
            std::stop_source source;
            Clock::time_point cancelledAt;
            std::thread canceller([&] {
                EXPECT_TRUE(server.waitUntilAt(at));
                cancelledAt = Clock::now();
                source.request_stop();
            });
            if (isUpload) {
                EXPECT_FALSE(client.upload("text", source.get_token()));
            } else {
                EXPECT_EQ(client.read(source.get_token()), std::nullopt);
            }
            const Clock::time_point ended = Clock::now();
            canceller.join();
            EXPECT_LT(ended - cancelledAt, 400ms);
        }
    }
    EXPECT_THAT(log.take(), IsEmpty()) << "giving up is no failure of the stream";

    ScriptedFtpServer server;
    Client client(server.port());
    std::stop_source source;
    source.request_stop();
    EXPECT_FALSE(client.upload("text", source.get_token()));
    EXPECT_EQ(client.read(source.get_token()), std::nullopt);
    EXPECT_THAT(server.commands(), IsEmpty());
    EXPECT_TRUE(client.upload("text"));
}

TEST(Cancelling, LooksLikeNoEndOfTheFileToTheServer) {
    class GivesUp : public FTPManagerDelegate {
      public:
        void ftpManagerUploadProgressDidChange(const std::optional<FTPProgress> &progress) override {
            if (progress && progress->fileSizeProcessed >= after) source.request_stop();
        }
        std::stop_source source;
        std::uint64_t after = 0;
    };
    for (const std::uint64_t after : {1, 10'000'000}) {
        ScriptedFtpServer server;
        Client client(server.port());
        GivesUp delegate;
        delegate.after = after;
        client.manager.delegate = &delegate;
        EXPECT_FALSE(client.upload(std::string(20'000'000, 'x'), delegate.source.get_token()));
        ASSERT_TRUE(server.waitUntilAt("done"));
        EXPECT_FALSE(server.file("htdocs/n").has_value());
    }

    // Before the first byte.
    ScriptedFtpServer server(Faults{{.at = "STOR", .delay = 200ms}});
    Client client(server.port());
    std::stop_source source;
    std::jthread canceller([&] {
        EXPECT_TRUE(server.waitUntilAt("STOR"));
        source.request_stop();
    });
    EXPECT_FALSE(client.upload("text", source.get_token()));
    canceller.join();
    EXPECT_TRUE(server.waitUntilAt("end"));
    EXPECT_FALSE(server.file("htdocs/n").has_value());
}

}  // namespace
