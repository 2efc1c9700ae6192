// The client with a server as it is in production, with and without encryption.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "Client.h"
#include "support/FtpServers.h"

namespace {

using testing::IsEmpty;

class RealServer : public testing::TestWithParam<std::tuple<const char *, bool>> {
  protected:
    void SetUp() override {
        if (!real.skipReason().empty()) GTEST_SKIP() << real.skipReason();
        ASSERT_NE(real.port(), 0);
        std::filesystem::create_directory(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::all);  // the server's user is another
    }

    LogCapture log;
    const bool demandsTls = std::get<1>(GetParam());
    RealFtpServer real{std::get<0>(GetParam()), demandsTls};
    const std::filesystem::path folder = real.folder() / "htdocs";
    Client client{real.port(), TransportOptions{.limits = {},
                                                .tls = demandsTls ? TlsMode::kRequired : TlsMode::kOff,
                                                .caFile = demandsTls ? real.certificateFile() : ""}};
    FMServer &server = client.server;
    FTPManager &manager = client.manager;
    TemporaryFolder local;
};

TEST_P(RealServer, KeepsFilesOfEveryNameAndContent) {
    std::string large;
    while (large.size() < 3'000'000) large += "line " + std::to_string(large.size()) + "\r\n\xFF\xF4\n";
    for (const auto &[name, content] : std::vector<std::pair<std::string, std::string>>{
             {".hidden", ""},
             {"two  blanks", std::string(32768, 'x')},
             {"a#b%20c?d;type=a", std::string("\xEF\xBB\xBF\0a\0\r\n\r\n", 10)},
             {"\xC3\xBC \xF0\x9F\x98\x80", "\xC3\xBC"},
             {"-l", large},
             {"{a,b}[c]*", "x"}}) {
        SCOPED_TRACE(name);
        std::ofstream(local.path() / name, std::ios::binary) << content;
        EXPECT_TRUE(client.upload("what was there before, and longer than most", name));
        EXPECT_TRUE(manager.uploadFile(local.path() / name, &server));
        EXPECT_TRUE(contentOf(folder / name) == content);
        std::filesystem::remove(local.path() / name);
        EXPECT_TRUE(manager.downloadFile(name, local.path(), &server));
        EXPECT_TRUE(contentOf(local.path() / name) == content);
        EXPECT_TRUE(client.read(name) == (content == large ? std::nullopt : std::optional(content)));
        const auto entries = manager.contentsOfServer(&server).value_or(std::vector<FTPResource>());
        EXPECT_TRUE(std::ranges::count(entries, name, &FTPResource::name) == 1) << "not in the listing";
    }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(client.read("absent"), std::nullopt);
    EXPECT_EQ(client.readText("absent").state, FTPText::State::kRefused);
}

TEST_P(RealServer, GivesNewNamesAndObeysCommands) {
    const auto exists = [this](auto name) {
        return fileExistsAtURL(client.url(name), *client.transport).value();
    };
    ASSERT_TRUE(client.upload("12345", "five.txt"));
    EXPECT_EQ(renameFileAtURL(client.url("five.txt"), "5.txt", *client.transport), true);
    EXPECT_EQ(renameFileAtURL(client.url("five.txt"), "6.txt", *client.transport), false) << "it is gone";
    EXPECT_TRUE(exists("5.txt") && !exists("five.txt"));

    ASSERT_TRUE(manager.createNewFolder("a folder", &server));
    EXPECT_TRUE(manager.deleteFile("a folder", &server));
    EXPECT_TRUE(manager.chmodFileNamed("5.txt", 640, &server));
    EXPECT_TRUE(manager.deleteFileNamed("5.txt", &server));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_FALSE(manager.deleteFileNamed("5.txt", &server)) << "it is gone";
}

TEST_P(RealServer, LetsInWhoKnowsThePasswordAndIsTrustedByItsCertificate) {
    ASSERT_TRUE(client.upload("x"));
    EXPECT_TRUE(manager.checkLogin(&server));
    FMServer wrong = server;
    wrong.password = "wrong";
    EXPECT_FALSE(manager.checkLogin(&wrong));
    EXPECT_FALSE(manager.uploadData("y", "n", &wrong));
    EXPECT_EQ(contentOf(folder / "n"), "x");

    for (const TlsMode mode : {TlsMode::kOff, TlsMode::kTry, TlsMode::kRequired}) {
        Client stranger(real.port(), {}, mode);  // nobody vouches for the certificate
        const bool isLetIn = !demandsTls && mode != TlsMode::kRequired;
        EXPECT_EQ(stranger.upload("x"), isLetIn) << static_cast<int>(mode);
        EXPECT_EQ(stranger.manager.checkLogin(&server), isLetIn) << static_cast<int>(mode);
    }
    server.destination = "localhost/htdocs";  // not the name in the certificate
    EXPECT_EQ(client.upload("x"), !demandsTls);
}

INSTANTIATE_TEST_SUITE_P(, RealServer,
                         testing::Combine(testing::Values("vsftpd", "proftpd"), testing::Bool()),
                         [](const auto &tested) {
                             return std::get<0>(tested.param) +
                                    std::string(std::get<1>(tested.param) ? "_encrypted" : "_plain");
                         });

}  // namespace
