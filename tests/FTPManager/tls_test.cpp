#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "FTPManager/FTPManager.h"
#include "LogCapture.h"
#include "support/ScriptedFtpServer.h"
#include "support/StorageServer.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::Not;
using testing::StartsWith;

std::shared_ptr<FTPTransport> transportWith(TlsMode tls, const std::string &caFile = {}) {
    return std::make_shared<FTPTransport>(TransportOptions{.limits = {}, .tls = tls, .caFile = caFile});
}

bool upload(const std::shared_ptr<FTPTransport> &transport, std::uint16_t port, std::string_view text) {
    FMServer server = FMServer::serverWithDestination("127.0.0.1", "u", "p");
    server.port = port;
    return FTPManager(transport).uploadData(text, "n", &server);
}

std::optional<std::string> read(const std::shared_ptr<FTPTransport> &transport, std::uint16_t port) {
    return stringWithContentsOfURL("ftp://u:p@127.0.0.1:" + std::to_string(port) + "/n", *transport);
}

TEST(Tls, EncryptsWithACertificateThatItTrustsOnly) {
    std::string folder = std::filesystem::temp_directory_path() / "quillery-tls.XXXXXX";
    ASSERT_TRUE(mkdtemp(folder.data()));
    {
        ChildProcess process({TLS_SERVER_SCRIPT, folder}, {});
        const auto port = static_cast<std::uint16_t>(std::stoi(process.readLine().value_or("0")));
        ASSERT_NE(port, 0);
        LogCapture log;
        for (const TlsMode mode : {TlsMode::kRequired, TlsMode::kTry}) {
            const auto trusting = transportWith(mode, folder + "/certificate.pem");
            for (const std::string text : {"first", "second, on the warm connection"}) {
                EXPECT_TRUE(upload(trusting, port, text));
                EXPECT_EQ(read(trusting, port), text);
            }
            EXPECT_FALSE(upload(transportWith(mode), port, "x")) << "nobody vouches for the certificate";
            EXPECT_EQ(read(transportWith(mode), port), std::nullopt);
        }
        EXPECT_FALSE(upload(transportWith(TlsMode::kOff), port, "x"));
    }
    std::filesystem::remove_all(folder);
}

TEST(Tls, RequiredTellsNoPasswordInPlainText) {
    ScriptedFtpServer plain;
    LogCapture log;
    EXPECT_FALSE(upload(transportWith(TlsMode::kRequired), plain.port(), "x"));
    EXPECT_THAT(plain.commands(), Contains(StartsWith("AUTH")));
    EXPECT_THAT(plain.commands(), Each(Not(StartsWith("PASS"))));
    EXPECT_TRUE(upload(transportWith(TlsMode::kTry), plain.port(), "x"));
}

}  // namespace
