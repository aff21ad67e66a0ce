#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Base64.h"
#include "refhost/base/ChangeSignal.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;

std::string base64(const std::string& text)
{
    return base64Of(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

class RtspServerBrakeTest : public test::RtspServerFixture
{
protected:
    void SetUp() override
    {
        config.users = {{"admin", "secret"}, {"guest", "visit"}};
        config.auth.basic = "always";
        config.auth.freeFailures = 2;
        config.auth.refuseAfter = 4;
        config.auth.refuseAddressAfter = 8;
        config.auth.failureMemory = 86400;
        config.auth.exemptLoopback = false;
        start();
    }

    static std::string login(const std::string& user, const std::string& password)
    {
        return "Authorization: Basic " + base64(user + ":" + password) + "\r\n";
    }

    std::unique_ptr<TestClient> connect(const char* from = "127.0.0.1") const
    {
        return std::make_unique<TestClient>(server->port(), 0, AF_INET, from);
    }

    int describe(TestClient& client, const std::string& user, const std::string& password) const
    {
        return client.request("DESCRIBE", url(), login(user, password)).status;
    }

    /// Fails until the next attempt of `user` has to wait.
    void useUpFreeFailures(TestClient& client, const std::string& user = "admin") const
    {
        EXPECT_EQ(describe(client, user, "wrong"), 401);
        EXPECT_EQ(describe(client, user, "wrong"), 401);
    }

    /// Sends an attempt that has to wait.
    void sendDelayed(TestClient& client, const std::string& user, const std::string& password) const
    {
        client.send(TestClient::text("DESCRIBE", url(), 1000, login(user, password), ""));
        EXPECT_EQ(client.receive(50).kind, Received::Kind::nothing);
    }
};

TEST_F(RtspServerBrakeTest, AWrongPasswordTooManyIsAnsweredLaterAndThenNotLookedAt)
{
    const auto client = connect();
    useUpFreeFailures(*client);
    sendDelayed(*client, "admin", "wrong");
    time.advance(std::chrono::seconds(1));
    EXPECT_EQ(client->response().status, 401);
    sendDelayed(*client, "admin", "wrong");
    time.advance(std::chrono::seconds(2));
    EXPECT_EQ(client->response().status, 401);
    const auto again = connect();
    const Received refused = again->request("DESCRIBE", url(), login("admin", "secret"));
    EXPECT_EQ(refused.status, 503);
    EXPECT_NEAR(std::stoi(refused.header("Retry-After")), 300, 5);
    EXPECT_EQ(refused.header("WWW-Authenticate"), "");
    EXPECT_TRUE(again->ended());
    time.advance(std::chrono::seconds(301));
    EXPECT_EQ(describe(*connect(), "admin", "secret"), 200);
}

TEST_F(RtspServerBrakeTest, ADelayEndsByItself)
{
    const auto client = connect();
    useUpFreeFailures(*client);
    client->send(TestClient::text("DESCRIBE", url(), 1000, login("admin", "secret"), ""));
    EXPECT_EQ(client->response().status, 200);
}

TEST_F(RtspServerBrakeTest, UnknownUsersAreTreatedAsKnownOnes)
{
    for (const char* const user : {"admin", "nobody"})
    {
        const auto client = connect(user[0] == 'a' ? "127.0.0.1" : "127.0.0.2");
        useUpFreeFailures(*client, user);
        sendDelayed(*client, user, "wrong");
        time.advance(std::chrono::seconds(1));
        EXPECT_EQ(client->response().status, 401) << user;
        sendDelayed(*client, user, "wrong");
        time.advance(std::chrono::seconds(2));
        EXPECT_EQ(client->response().status, 401) << user;
        EXPECT_EQ(describe(*connect(user[0] == 'a' ? "127.0.0.1" : "127.0.0.2"), user, "wrong"), 503) << user;
    }
}

TEST_F(RtspServerBrakeTest, OthersAreAnsweredMeanwhile)
{
    const auto guesser = connect();
    useUpFreeFailures(*guesser);
    std::vector<std::unique_ptr<TestClient>> guessers;
    for (int i = 0; i < 5; ++i)
    {
        guessers.push_back(connect());
        sendDelayed(*guessers.back(), "admin", "wrong");
    }
    EXPECT_EQ(describe(*connect("127.0.0.2"), "admin", "secret"), 200);
    EXPECT_EQ(describe(*connect(), "guest", "visit"), 200);
    guessers.clear();
    time.advance(std::chrono::seconds(8));
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 1; })) << "who leaves is not kept";
}

TEST_F(RtspServerBrakeTest, AViewerIsNotHeldUpByGuessersAtHisAddress)
{
    const auto viewer = connect();
    const Received setup = viewer->request("SETUP", track(url(), 0), tcp + login("guest", "visit"));
    ASSERT_EQ(setup.status, 200);
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_EQ(describe(*connect(), "user" + std::to_string(i), "wrong"), 401);
        time.advance(std::chrono::seconds(i < 3 ? 0 : 8));
    }
    EXPECT_EQ(describe(*connect(), "another", "x"), 503);
    EXPECT_EQ(
        viewer->request("GET_PARAMETER", url(), session(setup.session()) + login("guest", "visit")).status,
        200);
    EXPECT_EQ(describe(*connect(), "guest", "visit"), 200) << "on another connection too";
}

TEST_F(RtspServerBrakeTest, ARefusalDoesNotEndTheSessionsOfItsConnection)
{
    const auto viewer = connect();
    const Received setup = viewer->request("SETUP", track(url(), 0), tcp + login("guest", "visit"));
    ASSERT_EQ(setup.status, 200);
    const auto guesser = connect();
    useUpFreeFailures(*guesser);
    for (const int wait : {1, 2})
    {
        sendDelayed(*guesser, "admin", "wrong");
        time.advance(std::chrono::seconds(wait));
        EXPECT_EQ(guesser->response().status, 401);
    }
    EXPECT_EQ(viewer->request("DESCRIBE", url(), login("admin", "wrong")).status, 503);
    EXPECT_EQ(
        viewer->request("GET_PARAMETER", url(), session(setup.session()) + login("guest", "visit")).status,
        200);
}

TEST_F(RtspServerBrakeTest, AStreamThatGetsReadyDoesNotEndADelay)
{
    const auto client = connect();
    useUpFreeFailures(*client);
    sendDelayed(*client, "admin", "wrong");
    ChangeSignal::instance().announce();
    EXPECT_EQ(client->receive(50).kind, Received::Kind::nothing);
    time.advance(std::chrono::seconds(1));
    EXPECT_EQ(client->response().status, 401);
}

TEST_F(RtspServerBrakeTest, RequestsWithoutCredentialsAreNoFailures)
{
    const auto client = connect();
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_EQ(client->request("DESCRIBE", url()).status, 401);
    }
    EXPECT_EQ(describe(*client, "admin", "secret"), 200);
}

TEST_F(RtspServerBrakeTest, CredentialsThatAreNotComparedAreNoFailures)
{
    const auto client = connect();
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_EQ(client->request("DESCRIBE", url(), "Authorization: Bearer x\r\n").status, 401);
        ASSERT_EQ(client
                      ->request("DESCRIBE", url(),
                                "Authorization: Digest username=\"admin\", realm=\"another\", nonce=\"n\", "
                                "uri=\"/\", response=\"0\"\r\n")
                      .status,
                  401);
    }
    EXPECT_EQ(describe(*client, "admin", "secret"), 200);
}

}  // namespace
}  // namespace refhost
