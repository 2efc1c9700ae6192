#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "FTPManager/FTPManager.h"
#include "LogCapture.h"
#include "support/RealFtpServer.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tls = RealFtpServer::Tls;

const std::string kStreamError = "ftp stream failed: general stream error (check credentials?)";
const std::vector<std::string> kOddNames = {
    ".hidden", "two  blanks", "a#b%20c?d;type=a", "\xC3\xBC \xF0\x9F\x98\x80",
    "-l",      "..two dots",  "{a,b}[c]*"};

using Setting = std::tuple<std::string, Tls>;

void writeFile(const std::filesystem::path &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

class RealServer : public testing::TestWithParam<Setting> {
  protected:
    void SetUp() override {
        if (!real.skipReason().empty()) GTEST_SKIP() << real.skipReason();
        ASSERT_NE(real.port(), 0);
        std::filesystem::create_directory(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::all);
        server.port = real.port();
    }

    std::optional<FTPResource> entry(const std::string &name) {
        const auto contents = manager.contentsOfServer(&server);
        if (!contents) return std::nullopt;
        const auto found = std::ranges::find(*contents, name, &FTPResource::name);
        if (found == contents->end()) return std::nullopt;
        return *found;
    }

    std::optional<std::string> read(const std::string &name) {
        const auto url = ftpURLForFile({"u", "p", "127.0.0.1", real.port(), "htdocs", name});
        return stringWithContentsOfURL(url.value(), *transport);
    }

    static TlsMode modeFor(Tls tls) {
        return tls == Tls::kOff ? TlsMode::kOff : tls == Tls::kOffered ? TlsMode::kTry : TlsMode::kRequired;
    }

    LogCapture log;
    const std::string kind = std::get<0>(GetParam());
    const Tls tls = std::get<1>(GetParam());
    RealFtpServer real{kind, tls};
    const std::filesystem::path folder = real.folder() / "htdocs";
    FMServer server = FMServer::serverWithDestination("127.0.0.1/htdocs", "u", "p");
    const TransportOptions options{.limits = {}, .tls = modeFor(tls), .caFile = real.certificateFile()};
    const std::shared_ptr<FTPTransport> transport = std::make_shared<FTPTransport>(options);
    FTPManager manager{transport};
    TemporaryFolder local;
};

TEST_P(RealServer, KeepsFilesOfEveryName) {
    std::string large;
    while (large.size() < 3'000'000) large += "line " + std::to_string(large.size()) + "\r\n\xFF\xF4\n";
    for (const std::string &name : kOddNames) {
        SCOPED_TRACE(name);
        writeFile(local.path() / name, name);
        EXPECT_TRUE(manager.uploadData("what was there before", name, &server));
        EXPECT_TRUE(manager.uploadFile(local.path() / name, &server));
        EXPECT_EQ(contentOf(folder / name), name);
        EXPECT_EQ(read(name), name);
        std::filesystem::remove(local.path() / name);
        EXPECT_TRUE(manager.downloadFile(name, local.path(), &server));
        EXPECT_EQ(contentOf(local.path() / name), name);
        EXPECT_TRUE(entry(name)) << "not in the listing";
    }
    for (const auto &[name, content] : std::vector<std::pair<std::string, std::string>>{
             {"large", large},
             {"empty", ""},
             {"one buffer", std::string(32768, 'x')},
             {"zeros and ends", std::string("\xEF\xBB\xBF\0a\0\r\n\r\n", 10)}}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(manager.uploadData(content, name, &server));
        EXPECT_TRUE(manager.downloadFile(name, local.path(), &server));
        EXPECT_TRUE(contentOf(local.path() / name) == content);
        EXPECT_TRUE(read(name) == (name == "large" ? std::nullopt : std::optional(content))) << "not UTF-8";
    }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(read("absent"), std::nullopt);
}

TEST_P(RealServer, ListsWhatIsThere) {
    EXPECT_THAT(manager.contentsOfServer(&server), testing::Optional(IsEmpty()));
    const auto now = std::chrono::system_clock::now();
    ASSERT_TRUE(manager.uploadData("12345", "five", &server));
    ASSERT_TRUE(manager.createNewFolder("a folder", &server));
    EXPECT_FALSE(manager.createNewFolder("a folder", &server)) << "it is there";
    EXPECT_THAT(log.take(), ElementsAre(kStreamError));
    std::filesystem::create_symlink("five", folder / "link");

    const std::optional<FTPResource> file = entry("five");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->type, FTPResourceType::kFile);
    EXPECT_EQ(file->size, 5U);
    EXPECT_FALSE(file->owner.empty());
    EXPECT_NE(file->mode & 0400, 0U);
    ASSERT_TRUE(file->modificationDate);
    EXPECT_LT(std::chrono::abs(*file->modificationDate - now), std::chrono::hours(25)) << "zones apart";
    const std::optional<FTPResource> made = entry("a folder");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->type, FTPResourceType::kFolder);
    const std::optional<FTPResource> link = entry("link");
    ASSERT_TRUE(link);
    EXPECT_EQ(link->link, link->type == FTPResourceType::kSymbolicLink ? "five" : "");

    FMServer inside = server;
    *inside.destination += "/a folder";
    EXPECT_TRUE(manager.uploadData("x", "deep", &inside));
    EXPECT_THAT(manager.contentsOfServer(&inside), testing::Optional(testing::SizeIs(1)));
    EXPECT_EQ(contentOf(folder / "a folder" / "deep"), "x");
    *inside.destination += " that is not there";
    EXPECT_EQ(manager.contentsOfServer(&inside), std::nullopt);
}

TEST_P(RealServer, ObeysCommands) {
    ASSERT_TRUE(manager.uploadData("x", "notes.txt", &server));
    ASSERT_TRUE(manager.createNewFolder("archive", &server));
    EXPECT_TRUE(manager.chmodFileNamed("notes.txt", 640, &server));
    struct stat status {};
    ASSERT_EQ(stat((folder / "notes.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_TRUE(manager.deleteFileNamed("notes.txt", &server));
    EXPECT_TRUE(manager.deleteFile("archive", &server));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_FALSE(manager.deleteFileNamed("notes.txt", &server)) << "it is gone";
    EXPECT_FALSE(manager.deleteFileNamed("archive", &server));
    EXPECT_FALSE(manager.chmodFileNamed("notes.txt", 640, &server));
    EXPECT_TRUE(manager.checkLogin(&server));
    EXPECT_EQ(manager.action(), FTPManagerAction::kFinished);
    EXPECT_TRUE(manager.streamSuccess());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_P(RealServer, RefusesAWrongPassword) {
    writeFile(folder / "file", "x");
    FMServer wrong = server;
    wrong.password = "wrong";
    // pyftpdlib forgets its refusal when the client has already said goodbye, as it has in plain text.
    if (kind != "pyftpdlib" || tls != Tls::kOff) {
        EXPECT_FALSE(manager.checkLogin(&wrong));
    }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_FALSE(manager.uploadData("y", "file", &wrong));
    EXPECT_FALSE(manager.downloadFile("file", local.path(), &wrong));
    EXPECT_THAT(log.take(), ElementsAre(kStreamError, kStreamError));
    EXPECT_TRUE(std::filesystem::is_empty(local.path()));
    EXPECT_EQ(contentOf(folder / "file"), "x");
    EXPECT_TRUE(manager.uploadData("y", "file", &server));
}

TEST_P(RealServer, IsTrustedByItsCertificateOnlyOrInPlainText) {
    const auto isOpenTo = [this](TlsMode mode) {
        FTPManager stranger(
            std::make_shared<FTPTransport>(TransportOptions{.limits = {}, .tls = mode, .caFile = {}}));
        const bool takesFile = stranger.uploadData("x", "n", &server);
        EXPECT_EQ(stranger.checkLogin(&server), takesFile);
        return takesFile;
    };
    EXPECT_EQ(isOpenTo(TlsMode::kOff), tls != Tls::kDemanded);
    EXPECT_EQ(isOpenTo(TlsMode::kTry), tls == Tls::kOff) << "nobody vouches for the certificate";
    EXPECT_FALSE(isOpenTo(TlsMode::kRequired));
    server.destination = "localhost/htdocs";  // not the name in the certificate
    EXPECT_EQ(manager.uploadData("x", "n", &server), tls == Tls::kOff);
}

std::string nameOf(const testing::TestParamInfo<Setting> &setting) {
    const char *const endings[] = {"", "_tls_offered", "_tls_demanded"};
    return std::get<0>(setting.param) + endings[static_cast<int>(std::get<1>(setting.param))];
}

INSTANTIATE_TEST_SUITE_P(, RealServer,
                         testing::Combine(testing::Values("pyftpdlib", "vsftpd", "proftpd", "pureftpd"),
                                          testing::Values(Tls::kOff, Tls::kOffered, Tls::kDemanded)),
                         nameOf);

}  // namespace
