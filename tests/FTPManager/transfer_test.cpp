#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "Client.h"
#include "LogCapture.h"
#include "support/ScriptedFtpServer.h"
#include "support/StorageProcess.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(RealServer, TakesUploadsAndReadsOfThreadsAtTheSameTime) {
    StorageProcess storage;
    Client client(storage.port(), {}, StorageProcess::kUser, StorageProcess::kPassword);
    LogCapture log;
    constexpr int kThreads = 6;
    constexpr int kRounds = 8;
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            FTPManager own(client.transport);
            FTPManager &mine = t % 2 == 0 ? client.manager : own;
            const std::string name = "file" + std::to_string(t);
            for (int round = 0; round < kRounds; ++round) {
                const std::string text(static_cast<std::size_t>(40'000 * round + t),
                                       static_cast<char>('a' + t));
                if (!mine.uploadData(text, name, &client.server)) ++failures;
                if (client.read({}, name) != text) ++failures;
                static_cast<void>(client.manager.progress());
            }
        });
    }
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Transport, KeepsOneConnectionWarmForReadsAndUploads) {
    ScriptedFtpServer scripted;
    Client client(scripted.port());
    ASSERT_TRUE(client.upload("text"));
    scripted.forgetCommands();
    EXPECT_TRUE(client.upload("other"));
    EXPECT_EQ(client.read(), "other");
    EXPECT_THAT(scripted.commands(), ElementsAre("EPSV", "STOR htdocs/n", "EPSV", "RETR htdocs/n"));
    EXPECT_EQ(client.read({}, "absent"), std::nullopt);
    FTPManager another(client.transport);
    EXPECT_TRUE(another.uploadData("", "n", &client.server));
    EXPECT_EQ(client.read(), "");
    EXPECT_EQ(scripted.connectionCount(), 1);

    client.server.password = "another";
    EXPECT_TRUE(client.upload("x"));
    EXPECT_EQ(scripted.connectionCount(), 2);
}

TEST(Transport, ThatMustEncryptTellsNoPasswordInPlainText) {
    ScriptedFtpServer plain;
    const FMServer server = Client(plain.port()).server;
    LogCapture log;
    FTPManager strict(std::make_shared<FTPTransport>(
        TransportOptions{.limits = {}, .tls = TlsMode::kRequired, .caFile = {}}));
    EXPECT_FALSE(strict.uploadData("x", "n", &server));
    EXPECT_FALSE(strict.contentsOfServer(&server));
    EXPECT_FALSE(strict.checkLogin(&server));
    EXPECT_FALSE(strict.deleteFileNamed("n", &server));
    EXPECT_THAT(plain.commands(), testing::Contains(testing::StartsWith("AUTH")));
    EXPECT_THAT(plain.commands(), testing::Each(testing::Not(testing::StartsWith("PASS"))));
    FTPManager lenient(
        std::make_shared<FTPTransport>(TransportOptions{.limits = {}, .tls = TlsMode::kTry, .caFile = {}}));
    EXPECT_TRUE(lenient.uploadData("x", "n", &server));
    EXPECT_TRUE(lenient.checkLogin(&server));
    EXPECT_FALSE(lenient.deleteFileNamed("none.txt", &server));
}

TEST(Manager, SecondCallerWaitsItsTurnAndCanGiveUp) {
    ScriptedFtpServer scripted(Faults{{.at = "STOR", .stalls = true, .times = 1}});
    Client client(scripted.port());
    std::stop_source giveUpFirst;
    std::stop_source giveUpSecond;
    std::atomic<bool> first = true;
    std::atomic<bool> third = false;
    std::thread firstCaller([&] { first = client.upload("1", giveUpFirst.get_token()); });
    ASSERT_TRUE(scripted.waitUntilAt("STOR"));
    std::thread secondCaller([&] { EXPECT_FALSE(client.upload("2", giveUpSecond.get_token())); });
    std::thread thirdCaller([&] { third = client.upload("3"); });
    giveUpSecond.request_stop();
    secondCaller.join();
    EXPECT_TRUE(client.manager.progress()) << "the first one still has the turn";
    giveUpFirst.request_stop();
    firstCaller.join();
    thirdCaller.join();
    EXPECT_FALSE(first);
    EXPECT_TRUE(third);
    EXPECT_EQ(scripted.file("htdocs/n"), "3");
}

}  // namespace
