// What the program shares with its other processes: requests, folders, settings, texts.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <cstdlib>
#include <functional>
#include <future>

#include "platform/SingleInstance.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"
#include "platform/UserFolders.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;

// ---- The one running program ----

class SingleInstanceTest : public testing::Test {
  protected:
    using Answer = SingleInstance::Answer;
    using Reply = SingleInstance::Reply;
    // Asks from another thread, since the answer needs this one's event loop.
    static std::optional<Answer> ask(const std::string &request) {
        auto answer = std::async(std::launch::async, [&] { return SingleInstance::send(request, 60s); });
        EXPECT_TRUE(waitFor([&] { return answer.wait_for(0s) == std::future_status::ready; }));
        return answer.get();
    }
};

TEST_F(SingleInstanceTest, OnlyOneHasTheClaimAndEndingFreesIt) {
    const QByteArray display = qgetenv("DISPLAY");
    EXPECT_FALSE(SingleInstance::send("save", 60s).has_value()) << "nobody runs";
    {
        SingleInstance first;
        EXPECT_EQ(first.claim(), SingleInstance::Claim::kIsTheOne);
        SingleInstance second;
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond);
        qputenv("DISPLAY", display + ".0");
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond) << "the same display by another name";
    }
    qputenv("DISPLAY", display);
    SingleInstance third;
    EXPECT_EQ(third.claim(), SingleInstance::Claim::kIsTheOne);
}

TEST_F(SingleInstanceTest, PassesRequestsOnAndAnswersBack) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    Reply later;
    ASSERT_TRUE(instance.listen([&](const std::string &request, const Reply &reply) {
        if (request == "save") {
            later = reply;
        } else {
            reply({1, "It is locked: größer."});
        }
    }));
    const auto refused = ask("list");
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->status, 1);
    EXPECT_EQ(refused->words, "It is locked: größer.");

    // An answer that takes its time holds up nobody else.
    auto slow = std::async(std::launch::async, [] { return SingleInstance::send("save", 60s); });
    ASSERT_TRUE(waitFor([&] { return static_cast<bool>(later); }));
    EXPECT_TRUE(ask("list").has_value());
    const auto late = SingleInstance::send("list", 1s);  // which nobody can hear meanwhile
    ASSERT_TRUE(late);
    EXPECT_EQ(late->status, Answer::kFailed);
    EXPECT_EQ(late->words, "the Quillery that runs does not answer");
    later({});
    ASSERT_TRUE(waitFor([&] { return slow.wait_for(0s) == std::future_status::ready; }));
    EXPECT_EQ(slow.get()->status, 0);
}

TEST_F(SingleInstanceTest, CallersThatSayNothingAreGivenUpAndOnesThatWereAnsweredAndStayMakeRoom) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    ASSERT_TRUE(instance.listen([](const std::string &, const Reply &reply) { reply({}); }, 300ms));
    const std::string path = *runtimeFolder() / ("instance" + qgetenv("DISPLAY").toStdString());
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    std::vector<int> callers;
    const auto call = [&] {
        callers.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_EQ(connect(callers.back(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        QCoreApplication::processEvents();
    };
    char byte = 0;
    for (int i = 0; i < 40; ++i) call();
    EXPECT_EQ(recv(callers[0], &byte, 1, 0), -1) << "it has some time to say what it wants";
    EXPECT_TRUE(waitFor([&] { return recv(callers[0], &byte, 1, 0) == 0; }, 3000));
    EXPECT_FALSE(waitFor([&] { return recv(callers[39], &byte, 1, 0) == 0; }, 50))
        << "only so many are heard at once: its time has just begun";
    for (int i = 0; i < 41; ++i) {
        call();
        send(callers.back(), "list\n", 5, MSG_NOSIGNAL);
        ASSERT_TRUE(waitFor([&] { return recv(callers.back(), &byte, 1, 0) == 1; }, 3000)) << i;
    }
    for (const int descriptor : callers) close(descriptor);
}

// ---- Settings ----

TEST(UserDefaultsTest, SetsADamagedFileAside) {
    const QString name = UserDefaults().fileName();
    fs::create_directories(fs::path(name.toStdString()).parent_path());
    int number = 0;
    for (const QByteArray &bytes :
         {QByteArray("[General]\nkUser\0name=ann\n", 25), QByteArray("[General]\nkUsername=ann\nkPas"),
          QByteArray("[Gen"), QByteArray("\x89PNG\r\n")}) {
        QFile file(name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        UserDefaults defaults;
        const QString aside = name + QStringLiteral(".damaged-%1").arg(++number);
        EXPECT_TRUE(defaults.problem().contains(aside)) << qPrintable(defaults.problem());
        QFile kept(aside);
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
        EXPECT_EQ(kept.readAll(), bytes);
        EXPECT_FALSE(defaults.objectForKey("kUsername").has_value());
        defaults.setObject("bob", "kUsername");
        EXPECT_TRUE(defaults.synchronize());
    }
    EXPECT_EQ(UserDefaults().objectForKey("kUsername"), "bob");
    EXPECT_FALSE(UserDefaults::isDamaged("; a comment\r\n# another\r\n[General]\r\nkAutoLogin=Yes\r\n\r\n"));
}

TEST(UserDefaultsTest, TakesWhatItWritesItselfForSound) {
    for (const QString &text :
         {u""_qs, u"a,b"_qs, u"=[;"_qs, u"  "_qs, u"grün\n[x\ny\0z"_qs, u"\"\\\x1f"_qs}) {
        UserDefaults defaults;
        defaults.setObject(text, "kUsername");
        ASSERT_TRUE(defaults.synchronize());
        UserDefaults again;
        EXPECT_TRUE(again.problem().isEmpty()) << qPrintable(again.problem());
        EXPECT_EQ(again.objectForKey("kUsername"), text);
    }
}

// ---- Texts and folders ----

TEST(Text, TellsUtf8FromOtherBytesAndComesBackFromQStringByteForByte) {
    for (const std::string &good :
         {""s, "plain ascii, long enough for whole words"s, "a\0b"s, "\xC3\xA4"s, "\xE2\x82\xAC"s,
          "\xF0\x9F\x98\x80"s, "\xEF\xBB\xBF"s, "\xF4\x8F\xBF\xBF"s, "12345678\xC3\xA4"s, "\r\n\t"s}) {
        EXPECT_TRUE(isValidUtf8(good)) << testing::PrintToString(good);
        EXPECT_EQ(toUtf8(toQString(good)), good);
    }
    for (const std::string &bad :
         {"\x80"s, "\xC3"s, "\xC0\x80"s, "\xE0\x80\x80"s, "\xED\xA0\x80"s, "\xF0\x80\x80\x80"s,
          "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "12345678\xFF"s, "1234567\xE2\x82"s}) {
        EXPECT_FALSE(isValidUtf8(bad)) << testing::PrintToString(bad);
    }
}

TEST(UserFolders, OneIsFoundThatNobodyElseCanUse) {
    const TemporaryFolder elsewhere;
    const auto linkTo = [&](const fs::path &path) {
        fs::remove(path);
        fs::create_symlink(elsewhere.path(), path);
    };
    const char *const inRun = "run/quillery", *const inCache = "cache/quillery";
    // What is done to $XDG_RUNTIME_DIR, and where the program looks then.
    const std::vector<std::pair<const char *, std::function<void(const fs::path &run)>>> cases = {
        {inRun, [](auto &) {}},
        {inCache, [](auto &run) { chmod(run.c_str(), 0755); }},
        {inCache, linkTo},
        {inCache, [](auto &run) { mkdir((run / "quillery").c_str(), 0755); }},
        {inCache, [&](auto &run) { linkTo(run / "quillery"); }},
        {"",
         [&](auto &run) {
             linkTo(run / "quillery");
             linkTo(run.parent_path() / "cache/quillery");
         }},
    };
    const QByteArray before = qgetenv("XDG_RUNTIME_DIR");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        const TemporaryFolder folder;
        const fs::path run = folder.path() / "run";
        mkdir(run.c_str(), 0700);
        fs::create_directory(folder.path() / "cache");
        setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
        setenv("XDG_CACHE_HOME", (folder.path() / "cache").c_str(), 1);
        cases[i].second(run);
        EXPECT_EQ(runtimeFolder().value_or(""), *cases[i].first ? folder.path() / cases[i].first : "");
    }
    qputenv("XDG_RUNTIME_DIR", before);
    unsetenv("XDG_CACHE_HOME");
}

}  // namespace
