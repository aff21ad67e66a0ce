#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "refhost/access/DigestAuth.h"
#include "refhost/base/ChangeSignal.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;
using test::UdpPort;

std::string digestHeader(const std::string& challenge, const std::string& method, const std::string& uri,
                         const std::string& password, const std::string& count)
{
    const std::size_t at = challenge.find("nonce=\"") + 7;
    const std::string nonce = challenge.substr(at, challenge.find('"', at) - at);
    std::string text = "username=\"admin\", realm=\"ovrtspd\", nonce=\"" + nonce + "\", uri=\"" + uri +
                       "\", algorithm=MD5, qop=auth, nc=" + count + ", cnonce=\"c\"";
    DigestAuth::Answer answer;
    const std::string complete = text + ", response=\"x\"";
    EXPECT_TRUE(DigestAuth::parse(complete, answer));
    const std::string secret = DigestAuth::secret(DigestAuth::Algorithm::md5, "admin", "ovrtspd", password);
    return "Authorization: Digest " + text + ", response=\"" + DigestAuth::expected(answer, secret, method) +
           "\"\r\n";
}

class RtspServerAuthTest : public test::RtspServerFixture
{
protected:
    void SetUp() override
    {
        config.users = {{"admin", "secret"}, {"guest", "visit"}};
        config.auth.basic = "always";
        start();
        client_ = std::make_unique<TestClient>(server->port());
    }

    static constexpr const char* admin = "Authorization: Basic YWRtaW46c2VjcmV0\r\n";
    static constexpr const char* guest = "Authorization: Basic Z3Vlc3Q6dmlzaXQ=\r\n";

    /// Sets stream 1/0 up as `admin` and returns the session's id.
    std::string setUpAsAdmin(TestClient& client, const std::string& transport = tcp)
    {
        const Received response = client.request("SETUP", track(url(), 0), transport + admin);
        EXPECT_EQ(response.status, 200);
        return response.session();
    }

    std::unique_ptr<TestClient> client_;
};

TEST_F(RtspServerAuthTest, EverythingButOptionsNeedsCredentials)
{
    EXPECT_EQ(client_->request("OPTIONS", url()).status, 200);
    for (const char* const method :
         {"DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER", "SET_PARAMETER", "ANNOUNCE"})
    {
        const Received response = client_->request(method, url());
        EXPECT_EQ(response.status, 401) << method;
        EXPECT_EQ(response.headers.count("WWW-Authenticate"), 4u);
        EXPECT_EQ(response.body, "");
    }
    EXPECT_EQ(client_->request("DESCRIBE", url("orv/live/9/9")).status, 401)
        << "existing names are not disclosed";
}

TEST_F(RtspServerAuthTest, BasicAndDigestAreTaken)
{
    EXPECT_EQ(client_->request("DESCRIBE", url(), "Authorization: Basic YWRtaW46c2VjcmV0\r\n").status, 200);
    EXPECT_EQ(client_->request("DESCRIBE", url(), "Authorization: Basic YWRtaW46d3Jvbmc=\r\n").status, 401);
    const std::string challenge = client_->request("DESCRIBE", url()).header("WWW-Authenticate");
    EXPECT_EQ(
        client_->request("DESCRIBE", url(), digestHeader(challenge, "DESCRIBE", url(), "secret", "00000001"))
            .status,
        200);
    EXPECT_EQ(
        client_->request("DESCRIBE", url(), digestHeader(challenge, "DESCRIBE", url(), "wrong", "00000002"))
            .status,
        401);
}

TEST_F(RtspServerAuthTest, ARequestThatWaitedForItsStreamNeedsItsCredentialsOnce)
{
    const std::string challenge = client_->request("DESCRIBE", url()).header("WWW-Authenticate");
    const std::string header = digestHeader(challenge, "DESCRIBE", url(), "secret", "00000001");
    test::HandFedStream& stream = *streams->streams[0];
    stream.description = StreamSource::Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 7, header, "") +
                  TestClient::text("DESCRIBE", url(), 8, "", ""));
    ASSERT_TRUE(eventually([&] { return stream.described > 0; }));
    stream.description = StreamSource::Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 200);
    EXPECT_EQ(client_->response().status, 401) << "the next request is looked at again";
}

TEST_F(RtspServerAuthTest, ASessionDoesNotExistForOtherUsers)
{
    const std::string id = setUpAsAdmin(*client_);
    EXPECT_EQ(client_->request("PLAY", url(), session(id) + admin).status, 200);
    TestClient other(server->port());
    for (const char* const method :
         {"OPTIONS", "PLAY", "PAUSE", "GET_PARAMETER", "SET_PARAMETER", "TEARDOWN"})
    {
        EXPECT_EQ(other.request(method, url(), session(id) + guest).status, 454) << method;
    }
    EXPECT_EQ(other.request("SETUP", track(url(), 1), tcp + session(id) + guest).status, 454);
    EXPECT_EQ(server->sessionCount(), 1u);
    TestClient elsewhere(server->port());
    EXPECT_EQ(elsewhere.request("PAUSE", url(), session(id) + admin).status, 200) << "the user's own";
    EXPECT_EQ(elsewhere.request("TEARDOWN", url(), session(id) + admin).status, 200);
}

TEST_F(RtspServerAuthTest, OptionsThatNameASessionNeedCredentials)
{
    UdpPort port;
    const std::string id = setUpAsAdmin(*client_, udpPorts + std::to_string(port.port()) + "\r\n");
    EXPECT_EQ(client_->request("OPTIONS", url(), session(id)).status, 401);
    EXPECT_EQ(client_->request("OPTIONS", url(), session("0123456789ABCDEF")).status, 401)
        << "existing names are not disclosed";
    EXPECT_EQ(client_->request("OPTIONS", url(), session(id) + admin).session(), id);
}

TEST_F(RtspServerAuthTest, OptionsWithoutCredentialsDoNotKeepASessionAlive)
{
    UdpPort port;
    const std::string id = setUpAsAdmin(*client_, udpPorts + std::to_string(port.port()) + "\r\n");
    TestClient other(server->port());
    time.advance(std::chrono::milliseconds(config.limits.sessionTimeout * 1000 - 1000));
    other.request("OPTIONS", url(), session(id));
    other.request("OPTIONS", url(), session(id) + guest);
    time.advance(std::chrono::milliseconds(1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; }));
}

TEST_F(RtspServerAuthTest, OptionsWithoutCredentialsDoNotTieASessionToTheirConnection)
{
    UdpPort port;
    const std::string id = setUpAsAdmin(*client_, udpPorts + std::to_string(port.port()) + "\r\n");
    TestClient other(server->port());
    other.request("OPTIONS", url(), session(id));
    other.request("OPTIONS", url(), session(id) + guest);
    other.close();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000));
    EXPECT_EQ(client_->request("GET_PARAMETER", url(), session(id) + admin).status, 200);
    client_->close();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    time.advance(std::chrono::milliseconds(config.limits.orphanTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0; })) << "it is its maker's still";
}

TEST_F(RtspServerAuthTest, AStaleNonceIsSaidToBeStale)
{
    const Received first = client_->request("DESCRIBE", url());
    EXPECT_EQ(first.header("WWW-Authenticate").find("stale"), std::string::npos);
    const std::string header =
        digestHeader(first.header("WWW-Authenticate"), "DESCRIBE", url(), "secret", "00000001");
    EXPECT_EQ(client_->request("DESCRIBE", url(), header).status, 200);
    const Received replayed = client_->request("DESCRIBE", url(), header);
    EXPECT_EQ(replayed.status, 401);
    EXPECT_NE(replayed.header("WWW-Authenticate").find("stale=true"), std::string::npos);
    EXPECT_EQ(client_
                  ->request("DESCRIBE", url(),
                            digestHeader(replayed.header("WWW-Authenticate"), "DESCRIBE", url(), "secret",
                                         "00000001"))
                  .status,
              200);
}

}  // namespace
}  // namespace refhost
