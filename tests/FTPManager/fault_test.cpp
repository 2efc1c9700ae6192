#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "Client.h"
#include "LogCapture.h"
#include "support/Listener.h"
#include "support/Proxy.h"
#include "support/ScriptedFtpServer.h"
#include "support/StorageProcess.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kStreamError = "ftp stream failed: general stream error (check credentials?)";

std::vector<std::string> verbs(const ScriptedFtpServer &server) {
    std::vector<std::string> all = server.commands();
    for (std::string &line : all) line = line.substr(0, line.find(' '));
    return all;
}

TEST(Text, SaysWhyThereIsNone) {
    using State = FTPText::State;
    struct Row {
        Fault fault;
        State state = State::kFailed;
        std::string content = "content";
    };
    const std::string opening = "150 Opening BINARY mode data connection for n(9 bytes) ";
    const std::vector<Row> rows = {
        {{.at = "RETR", .reply = "550 No."}, State::kRefused},
        {{.at = "PASS", .reply = "530 No."}, State::kRefused},
        {{.at = "PASS", .reply = "430 Not now."}},
        {{.at = "RETR", .reply = "450 Not now."}},
        {{.at = "RETR", .hangsUp = true}},
        {{.at = "greeting", .reply = "421 Too many clients.", .hangsUp = true}},
        {{.at = "EPSV", .stalls = true}},
        {{.at = "data", .hangsUp = true}},
        {{.at = "done", .reply = "551 Disk trouble."}},
        {{.at = "RETR", .reply = opening + "(8 bytes)."}},
        {{.at = "RETR", .reply = opening + "(7 bytes)"}, State::kText},
        {{.at = "RETR", .reply = opening + "(3 bytes)."}, State::kText},
        {{.at = "RETR", .reply = "150 Opening ASCII mode data connection for n (8 bytes)."}, State::kText},
        {{.at = "RETR", .reply = "150 n (900 bytes) follows."}, State::kText},
        {{.at = ""}, State::kNotText, "half a sign \xE2\x82"},
        {{.at = ""}, State::kNotText, "a\xC0\x80"},
        {{.at = ""}, State::kText, std::string(100, 'x')},
        {{.at = ""}, State::kTooLarge, std::string(101, 'x')},
    };
    const auto read = [](Client &client, std::stop_token cancelled = {}) {
        return textWithContentsOfURL(client.url("n"), *client.transport, std::move(cancelled));
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.fault.at + " " + row.fault.reply + " " + row.content);
        ScriptedFtpServer server(Faults{row.fault});
        server.setFile("htdocs/n", row.content);
        Client client(server.port(), {.idleTimeout = 500ms, .mostTextBytes = 100});
        const FTPText text = read(client);
        EXPECT_EQ(text.state, row.state);
        EXPECT_EQ(text.text, row.state == State::kText ? std::optional(row.content) : std::nullopt);
        EXPECT_EQ(text.bytes, row.state == State::kNotText ? row.content : "");
        TemporaryFolder local;
        const bool isWhole = text.state != State::kRefused && text.state != State::kFailed;
        EXPECT_EQ(client.manager.downloadFile("n", local.path(), &client.server), isWhole);
    }
    Client nowhere(Listener(0).port());
    EXPECT_EQ(read(nowhere).state, State::kFailed);
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(read(nowhere, stopped.get_token()).state, State::kCancelled);
    for (const std::string url :
         {"ftp://h/a%0D%0A", "ftp://h", "ftp://h/f/", "ftp://h/f/%2e%2e", "file:///etc/passwd"})
        EXPECT_EQ(textWithContentsOfURL(url, *nowhere.transport).state, State::kRefused) << url;
}

TEST(Existence, IsAskedWithoutADataConnection) {
    struct Row {
        Fault fault;
        std::optional<bool> exists;
        std::optional<bool> absentExists;
    };
    for (const Row &row :
         {Row{{.at = ""}, true, false}, Row{{.at = "TYPE", .reply = "504 No."}, true, false},
          Row{{.at = "SIZE", .reply = "502 Not here."}, true, false},
          Row{{.at = "SIZE", .reply = "450 Not now."}, {}, {}},
          Row{{.at = "SIZE", .reply = "553 Not that name."}, {}, {}},
          Row{{.at = "SIZE", .hangsUp = true}, {}, {}}, Row{{.at = "PASS", .reply = "530 No."}, {}, {}}}) {
        SCOPED_TRACE(row.fault.at + " " + row.fault.reply);
        ScriptedFtpServer server(Faults{row.fault});
        server.setFile("htdocs/n", std::string(1'000'000, 'x'));
        Client client(server.port());
        EXPECT_EQ(fileExistsAtURL(client.url("n"), *client.transport), row.exists);
        EXPECT_EQ(fileExistsAtURL(client.url("absent"), *client.transport), row.absentExists);
        if (!row.fault.at.empty()) continue;
        EXPECT_THAT(verbs(server), ElementsAre("USER", "PASS", "PWD", "TYPE", "SIZE", "TYPE", "SIZE"));
        ASSERT_TRUE(client.upload("x"));
        EXPECT_EQ(server.connectionCount(), 1);
    }
}

TEST(IdleConnection, ThatHasGoneSilentIsReplaced) {
    const TransportLimits limits{.reuseTimeout = 1s};
    EXPECT_LE(TransportLimits().reuseTimeout, 5s);
    for (const bool isUpload : {true, false}) {
        StorageProcess storage;
        Proxy proxy(storage.port());
        Client client(proxy.port(), limits, StorageProcess::kUser, StorageProcess::kPassword);
        ASSERT_TRUE(client.upload("1"));
        proxy.swallow();
        Clock::time_point start = Clock::now();
        if (isUpload) {
            EXPECT_TRUE(client.upload("1"));
        } else {
            EXPECT_EQ(client.read(), "1");
        }
        EXPECT_GE(Clock::now() - start, 900ms);
        EXPECT_LT(Clock::now() - start, 4s);
        start = Clock::now();
        EXPECT_EQ(client.read(), "1");
        EXPECT_LT(Clock::now() - start, 900ms) << "the new connection is used from now on";
        EXPECT_EQ(proxy.connectionCount(), 2);
    }
    // Once the server has begun to answer, only the idle limit counts.
    ScriptedFtpServer slow(Faults{{.at = "STOR", .delay = 600ms}, {.at = "RETR", .delay = 600ms}});
    Client client(slow.port(), {.reuseTimeout = 400ms});
    ASSERT_TRUE(client.upload("1"));
    EXPECT_TRUE(client.upload("2"));
    EXPECT_EQ(client.read(), "2");
    EXPECT_EQ(slow.connectionCount(), 1);
}

TEST(IdleConnection, IsNotUsedAgainWhenItIsOld) {
    ScriptedFtpServer server;
    Client client(server.port(), {.mostIdle = 0ms});
    ASSERT_TRUE(client.upload("1"));
    EXPECT_TRUE(client.upload("2"));
    EXPECT_EQ(server.connectionCount(), 2);
    EXPECT_TRUE(server.waitUntilAt("end")) << "it is closed";
}

TEST(NewFolder, IsNeverAskedForTwice) {
    for (const Fault &fault :
         {Fault{.at = "MKD", .hangsUp = true}, Fault{.at = "MKD", .stalls = true},
          Fault{.at = "MKD", .reply = "332 Account?"}, Fault{.at = "MKD", .reply = "350 And then?"},
          Fault{.at = "NOOP", .hangsUp = true, .times = 1},
          Fault{.at = "NOOP", .reply = "421 Good night.", .hangsUp = true, .times = 1}}) {
        SCOPED_TRACE(fault.at + fault.reply);
        ScriptedFtpServer server(Faults{fault});
        Client client(server.port(), {.idleTimeout = 500ms});
        ASSERT_TRUE(client.upload("1"));
        EXPECT_EQ(client.manager.createNewFolder("f", &client.server), fault.at == "NOOP");
        EXPECT_EQ(std::ranges::count(verbs(server), "MKD"), 1);
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
    std::vector<int> queued;
    for (int i = 0; i < 4; ++i) queued.push_back(listener->connectWithoutWaiting());
    Client client(listener->port(), {.connectTimeout = 400ms, .idleTimeout = 60s});
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(client.upload("x"));
    EXPECT_GE(Clock::now() - start, 300ms);
    EXPECT_LT(Clock::now() - start, 5s);
    for (const int descriptor : queued) close(descriptor);
    listener.reset();
    LogCapture log;
    EXPECT_FALSE(client.upload("x")) << "nobody listens there any more";
    EXPECT_THAT(log.take(), ElementsAre(kStreamError));
}

TEST(Cancelling, EndsAnOperationAtOnceWhereverItIs) {
    struct Row {
        std::vector<std::string> points;
        std::function<bool(Client &, std::stop_token)> run;
    };
    const std::vector<Row> operations = {
        {{"greeting", "PASS", "EPSV", "STOR", "data", "done"},
         [](Client &c, std::stop_token stop) { return c.upload("text", std::move(stop)); }},
        {{"greeting", "PASS", "EPSV", "RETR", "data", "done"},
         [](Client &c, std::stop_token stop) { return c.read(std::move(stop)).has_value(); }},
        {{"greeting", "DELE", "QUIT"},
         [](Client &c, std::stop_token stop) { return c.manager.deleteFile("a.b", &c.server, stop); }},
        {{"SITE"},
         [](Client &c, std::stop_token stop) { return c.manager.chmodFileNamed("n", 644, &c.server, stop); }},
        {{"PASS"}, [](Client &c, std::stop_token stop) { return c.manager.checkLogin(&c.server, stop); }},
    };
    LogCapture log;
    for (const Row &row : operations) {
        for (const std::string &at : row.points) {
            SCOPED_TRACE(at);
            ScriptedFtpServer server(Faults{{.at = at, .stalls = true, .times = 1}});
            server.setFile("htdocs/n", "content");
            Client client(server.port());
            std::stop_source source;
            Clock::time_point cancelledAt;
            std::thread canceller([&] {
                EXPECT_TRUE(server.waitUntilAt(at));
                cancelledAt = Clock::now();
                source.request_stop();
            });
            EXPECT_FALSE(row.run(client, source.get_token()));
            const Clock::time_point ended = Clock::now();
            canceller.join();
            EXPECT_LT(ended - cancelledAt, 400ms);
            server.forgetCommands();
            EXPECT_FALSE(row.run(client, source.get_token()));
            EXPECT_THAT(server.commands(), IsEmpty());
            EXPECT_TRUE(client.upload("text"));
        }
        // Before there is a connection: the listener's queue is full.
        Listener listener(0);
        std::vector<int> queued;
        for (int i = 0; i < 4; ++i) queued.push_back(listener.connectWithoutWaiting());
        Client client(listener.port());
        std::stop_source source;
        std::jthread canceller([&] {
            std::this_thread::sleep_for(100ms);
            source.request_stop();
        });
        const Clock::time_point start = Clock::now();
        EXPECT_FALSE(row.run(client, source.get_token()));
        EXPECT_LT(Clock::now() - start, 900ms);
        for (const int descriptor : queued) close(descriptor);
    }
    EXPECT_THAT(log.take(), IsEmpty()) << "giving up is no failure of the stream";
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
