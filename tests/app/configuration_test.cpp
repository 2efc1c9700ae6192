#include "app/Configuration.h"

#include <gtest/gtest.h>

namespace {

using Values = QMap<QString, QString>;

Configuration from(const Values &file, const Values &environment = {}) {
    return Configuration::fromValues(file, environment);
}

}  // namespace

TEST(Configuration, DefaultsToThePersonalStorage) {
    const Configuration c = from({});
    EXPECT_FALSE(c.storageHost);
    EXPECT_EQ(c.storagePort, 21);
    EXPECT_EQ(c.transport.tls, TlsMode::kOff);
    EXPECT_EQ(c.transport.limits.idleTimeout, std::chrono::seconds(60));
    EXPECT_TRUE(c.problems.isEmpty());
    EXPECT_FALSE(from({{"storage/host", "  "}}).storageHost);
}

TEST(Configuration, TheEnvironmentWinsOverTheFile) {
    const Configuration c =
        from({{"storage/host", "a.example"},
              {"storage/port", "2121"},
              {"storage/tls", "try"},
              {"storage/idle_timeout_seconds", "5"},
              {"links/web", "https://example.org"},
              {"links/twitter", ""}},
             {{"QUILLERY_STORAGE_HOST", "b.example"}, {"QUILLERY_STORAGE_TLS", "required"}});
    EXPECT_EQ(c.storageHost, "b.example");
    EXPECT_EQ(c.storagePort, 2121);
    EXPECT_EQ(c.transport.tls, TlsMode::kRequired);
    EXPECT_EQ(c.transport.limits.idleTimeout, std::chrono::seconds(5));
    EXPECT_EQ(c.links, (QMap<QString, QString>{{"web", "https://example.org"}}));
    EXPECT_TRUE(c.problems.isEmpty());
}

TEST(Configuration, BadValuesAreSaidAndReplaced) {
    for (const char *port : {"0", "65536", "-1", "ftp", "", "21x"}) {
        const Configuration c = from({{"storage/port", port}});
        EXPECT_EQ(c.storagePort, 21) << port;
        EXPECT_EQ(c.problems.size(), 1) << port;
    }
    // A misspelt wish for encryption must not send the password in clear.
    EXPECT_EQ(from({{"storage/tls", "Required"}}).transport.tls, TlsMode::kRequired);
    EXPECT_EQ(from({{"storage/tls", "Required"}}).problems.size(), 1);
    EXPECT_EQ(from({{"storage/idle_timeout_seconds", "0"}}).problems.size(), 1);
    for (const char *host : {"ftp://host", "host/dir", "host:21", "user@host", "two words"}) {
        EXPECT_EQ(from({{"storage/host", host}}).problems.size(), 1) << host;
        EXPECT_EQ(from({{"storage/host", host}}).storageHost, "") << host;
    }
    EXPECT_TRUE(from({{"storage/host", "[::1]"}}).problems.isEmpty());
}

TEST(Settings, UnknownValuesAreSaid) {
    EXPECT_TRUE(
        problemsOfSettings(
            {{"kIsNotFirstUse", "YES"}, {"kHasPasscode", ""}, {"kAutoLogin", "No"}, {"kUsername", "x"}})
            .isEmpty());
    EXPECT_EQ(
        problemsOfSettings({{"kAutoLogin", "YES"}, {"kHasPasscode", "Yes"}, {"kOpenAtLaunch", "1"}}).size(),
        3);
}
