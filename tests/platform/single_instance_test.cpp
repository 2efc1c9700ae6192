#include "platform/SingleInstance.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <QTest>
#include <ctime>
#include <future>

#include "platform/UserFolders.h"
#include "tests/support/WaitFor.h"

namespace {

using namespace std::chrono_literals;

// Asks from another thread, since the answer needs this one's event loop.
std::optional<SingleInstance::Answer> ask(const std::string &request) {
    auto answer = std::async(std::launch::async, [request] { return SingleInstance::send(request, 60s); });
    EXPECT_TRUE(
        waitFor([&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    return answer.get();
}

TEST(SingleInstanceTest, OnlyOneHasTheClaimAndEndingFreesIt) {
    const QByteArray display = qgetenv("DISPLAY");
    EXPECT_FALSE(SingleInstance::send("save", 60s).has_value()) << "nobody runs";
    {
        SingleInstance first;
        EXPECT_EQ(first.claim(), SingleInstance::Claim::kIsTheOne);
        SingleInstance second;
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond);
        qputenv("DISPLAY", display + ".0");
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond) << "the same display by another name";
        qputenv("DISPLAY", ":77");
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsTheOne) << "another display";
    }
    qputenv("DISPLAY", display);
    SingleInstance third;
    EXPECT_EQ(third.claim(), SingleInstance::Claim::kIsTheOne);
}

TEST(SingleInstanceTest, PassesRequestsOnAndAnswersBack) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    std::vector<std::string> requests;
    SingleInstance::Reply later;
    ASSERT_TRUE(instance.listen([&](const std::string &request, const SingleInstance::Reply &reply) {
        requests.push_back(request);
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
    EXPECT_EQ(late->status, SingleInstance::Answer::kFailed);
    EXPECT_EQ(late->words, "the Quillery that runs does not answer");
    later({});
    ASSERT_TRUE(waitFor([&] { return slow.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_EQ(slow.get()->status, 0);
    EXPECT_TRUE(waitFor([&] { return requests.size() == 4; }));
    EXPECT_EQ(requests, (std::vector<std::string>{"list", "save", "list", "list"}));

    // What is no request is dropped, and the next one heard.
    EXPECT_FALSE(ask(std::string(1000, 'x')).has_value());
    EXPECT_TRUE(ask("list").has_value());
}

TEST(SingleInstanceTest, CallersThatSayNothingAreGivenUpAndOnesThatCannotBeTakenWait) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    ASSERT_TRUE(instance.listen([](const std::string &, const SingleInstance::Reply &reply) { reply({}); }));
    const std::string path = *runtimeFolder() / ("instance" + qgetenv("DISPLAY").toStdString());
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    std::vector<int> silent;
    for (int i = 0; i < 40; ++i) {
        silent.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        ASSERT_EQ(connect(silent.back(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << i;
        QCoreApplication::processEvents();
    }
    char byte = 0;
    EXPECT_TRUE(waitFor([&] { return recv(silent[0], &byte, 1, 0) == 0; }, 15'000));
    EXPECT_TRUE(ask("list").has_value());

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int last = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const rlimit full{.rlim_cur = static_cast<rlim_t>(last) + 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &full);
    ASSERT_EQ(connect(last, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const std::clock_t before = std::clock();
    QTest::qWait(500);
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 4) << "it tries again and again";
    setrlimit(RLIMIT_NOFILE, &limit);
    send(last, "list\n", 5, MSG_NOSIGNAL);
    EXPECT_TRUE(waitFor([&] { return recv(last, &byte, 1, 0) == 1; }));
    for (const int descriptor : silent) close(descriptor);
    close(last);
}

}  // namespace
