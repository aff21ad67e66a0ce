#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "refhost/base/ChangeSignal.h"
#include "refhost/rtsp/DigestAuth.h"
#include "tests/refhost/rtsp/FrontFixture.h"

namespace refhost
{
namespace
{

using test::Received;
using test::TestClient;

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

class RtspServerAuthTest : public test::FrontFixture
{
protected:
    void SetUp() override
    {
        config.users = {{"admin", "secret"}};
        start();
        client_ = std::make_unique<TestClient>(server->port());
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
        EXPECT_EQ(response.headers.count("WWW-Authenticate"), 3u);
        EXPECT_EQ(response.body, "");
    }
    EXPECT_EQ(client_->request("DESCRIBE", url("orv/live/9/9")).status, 401)
        << "nothing is told of what exists";
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
    test::FrontStream& stream = *streams->streams[0];
    stream.description = StreamSource::Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 7, header, "") +
                  TestClient::text("DESCRIBE", url(), 8, "", ""));
    ASSERT_TRUE(eventually([&] { return stream.described > 0; }));
    stream.description = StreamSource::Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 200);
    EXPECT_EQ(client_->response().status, 401) << "the next request is looked at again";
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
