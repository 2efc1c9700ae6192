// The client with servers as they are in production.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "Client.h"
#include "support/FtpServers.h"

namespace {

using testing::IsEmpty;

struct Setting {
    std::string server;
    bool demandsTls;
};

class RealServer : public testing::TestWithParam<Setting> {
  protected:
    void SetUp() override {
        if (!real.skipReason().empty()) GTEST_SKIP() << real.skipReason();
        ASSERT_NE(real.port(), 0);
        std::filesystem::create_directory(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::all);  // the server's user is another
    }

    std::optional<FTPResource> entry(const std::string &name) {
        const auto contents = manager.contentsOfServer(&server).value_or(std::vector<FTPResource>());
        const auto found = std::ranges::find(contents, name, &FTPResource::name);
        return found == contents.end() ? std::nullopt : std::optional(*found);
    }

    LogCapture log;
    const bool demandsTls = GetParam().demandsTls;
    RealFtpServer real{GetParam().server, demandsTls};
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
             {"..two dots", "x"},
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
        EXPECT_TRUE(entry(name)) << "not in the listing";
    }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(client.read("absent"), std::nullopt);
    EXPECT_EQ(client.readText("absent").state, FTPText::State::kRefused);
}

TEST_P(RealServer, ListsWhatIsThereAndObeysCommands) {
    EXPECT_THAT(manager.contentsOfServer(&server), testing::Optional(IsEmpty()));
    ASSERT_TRUE(client.upload("12345", "five.txt"));
    ASSERT_TRUE(manager.createNewFolder("a folder", &server));
    EXPECT_FALSE(manager.createNewFolder("a folder", &server)) << "it is there";
    EXPECT_THAT(log.take(), testing::ElementsAre(kStreamError));
    EXPECT_EQ(fileExistsAtURL(client.url("five.txt"), *client.transport), true);
    EXPECT_EQ(fileExistsAtURL(client.url("six"), *client.transport), false);
    EXPECT_TRUE(manager.chmodFileNamed("five.txt", 640, &server));

    const FTPResource file = entry("five.txt").value_or(FTPResource());
    EXPECT_EQ(file.type, FTPResourceType::kFile);
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(file.mode, 0640U);
    EXPECT_FALSE(file.owner.empty());
    EXPECT_LT(std::chrono::abs(file.modificationDate.value() - std::chrono::system_clock::now()),
              std::chrono::hours(25))
        << "zones apart";
    EXPECT_EQ(entry("a folder").value_or(FTPResource()).type, FTPResourceType::kFolder);

    *server.destination += "/a folder";
    EXPECT_TRUE(client.upload("x", "deep"));
    EXPECT_THAT(manager.contentsOfServer(&server), testing::Optional(testing::SizeIs(1)));
    EXPECT_EQ(contentOf(folder / "a folder" / "deep"), "x");
    EXPECT_FALSE(manager.deleteFileNamed("deep", &server)) << "taken for a folder";
    *server.destination += " that is not there";
    EXPECT_EQ(manager.contentsOfServer(&server), std::nullopt);
    server.destination = "127.0.0.1/htdocs";
    log.take();

    EXPECT_FALSE(manager.deleteFile("a folder", &server)) << "it is not empty";
    std::filesystem::remove(folder / "a folder" / "deep");
    EXPECT_TRUE(manager.deleteFile("a folder", &server));
    EXPECT_TRUE(manager.deleteFileNamed("five.txt", &server));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_FALSE(manager.deleteFileNamed("five.txt", &server)) << "it is gone";
    EXPECT_FALSE(manager.chmodFileNamed("five.txt", 640, &server));
    EXPECT_TRUE(manager.checkLogin(&server));
    EXPECT_TRUE(manager.streamSuccess());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_P(RealServer, LetsInWhoKnowsThePasswordAndIsTrustedByItsCertificate) {
    ASSERT_TRUE(client.upload("x"));
    FMServer wrong = server;
    wrong.password = "wrong";
    EXPECT_FALSE(manager.checkLogin(&wrong));
    EXPECT_FALSE(manager.uploadData("y", "n", &wrong));
    EXPECT_FALSE(manager.downloadFile("n", local.path(), &wrong));
    EXPECT_TRUE(std::filesystem::is_empty(local.path()));
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
                         testing::Values(Setting{"vsftpd", false}, Setting{"vsftpd", true},
                                         Setting{"proftpd", false}, Setting{"proftpd", true}),
                         [](const auto &tested) {
                             return tested.param.server + (tested.param.demandsTls ? "_demands_tls" : "");
                         });

}  // namespace
