#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "refhost/net/tls/SelfSignedCertificate.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/rtsp/connection/TlsClient.h"

namespace refhost
{
namespace
{

using test::connectTo;
using test::Received;
using test::TestClient;
using test::TlsClient;
using test::TlsPeer;
using test::UdpPort;

bool hasEnded(int socket)
{
    char bytes[1000];
    ssize_t count = 1;
    while (count > 0)
    {
        count = ::recv(socket, bytes, sizeof bytes, 0);
    }
    return count == 0;
}

class RtspServerTlsTest : public test::RtspServerFixture
{
protected:
    RtspServerTlsTest()
    {
        config.tls.selfSigned = true;
        config.tls.directory = folder_.path();
        config.tls.port = 0;
    }

    std::string tlsUrl(const std::string& path = "orv/live/1/0") const
    {
        return "rtsps://127.0.0.1:" + std::to_string(server->tlsPort()) + "/" + path;
    }

    TemporaryFolder folder_;
};

TEST_F(RtspServerTlsTest, ASessionPlaysInterleavedAndItsUrlsSayRtsps)
{
    start();
    TlsClient client(server->tlsPort());
    ASSERT_TRUE(client.connected());
    const Received description = client.request("DESCRIBE", tlsUrl());
    EXPECT_EQ(description.status, 200);
    EXPECT_EQ(description.header("Content-Base"), tlsUrl() + "/");
    const Received setup = client.request("SETUP", track(tlsUrl(), 0), tcp);
    ASSERT_EQ(setup.status, 200);
    frame(true);
    const Received play = client.request("PLAY", tlsUrl(), session(setup.session()));
    EXPECT_EQ(play.status, 200);
    EXPECT_NE(play.header("RTP-Info").find("url=" + track(tlsUrl(), 0)), std::string::npos)
        << play.header("RTP-Info");
    frame(true);
    EXPECT_TRUE(client.frame(0).isRtp());
    EXPECT_EQ(client.request("TEARDOWN", tlsUrl(), session(setup.session())).status, 200);
}

TEST_F(RtspServerTlsTest, RequestsOverTlsThatSayRtspAreAnsweredWithRtsps)
{
    start();
    TlsClient client(server->tlsPort());
    const std::string plain = "rtsp" + tlsUrl().substr(5);
    EXPECT_EQ(client.request("DESCRIBE", plain).header("Content-Base"), tlsUrl() + "/");
}

TEST_F(RtspServerTlsTest, MediaOfASessionOverTlsMayUseUdp)
{
    start();
    TlsClient client(server->tlsPort());
    UdpPort port;
    const std::string transport =
        udpPorts + std::to_string(port.port()) + "-" + std::to_string(port.port() + 1);
    const Received setup = client.request("SETUP", track(tlsUrl(), 0), transport + "\r\n");
    ASSERT_EQ(setup.status, 200);
    frame(true);
    EXPECT_EQ(client.request("PLAY", tlsUrl(), session(setup.session())).status, 200);
    frame(true);
    EXPECT_FALSE(port.receive().empty());
}

TEST_F(RtspServerTlsTest, APlainClientOnTheTlsPortIsEndedAtOnce)
{
    start();
    const Descriptor client = connectTo(server->tlsPort());
    const std::string request = TestClient::text("OPTIONS", url(), 1, "", "");
    ASSERT_GT(::send(client.get(), request.data(), request.size(), MSG_NOSIGNAL), 0);
    EXPECT_TRUE(hasEnded(client.get()));
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
}

TEST_F(RtspServerTlsTest, APlainClientOnTheTlsPortIsAnsweredInItsProtocol)
{
    start();
    for (const auto& [request, answer] :
         {std::pair<std::string, std::string>{TestClient::text("OPTIONS", url(), 1, "", ""), "RTSP/1.0 400 "},
          std::pair<std::string, std::string>{"GET / HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.0 400 "},
          std::pair<std::string, std::string>{"POST / HTTP/1.1\r\n\r\n", "HTTP/1.0 400 "}})
    {
        const Descriptor client = connectTo(server->tlsPort());
        ASSERT_GT(::send(client.get(), request.data(), request.size(), MSG_NOSIGNAL), 0);
        std::string all;
        char bytes[1000];
        for (ssize_t count = 1; count > 0;
             all.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0))))
        {
            count = ::recv(client.get(), bytes, sizeof bytes, 0);
        }
        EXPECT_EQ(all.substr(0, answer.size()), answer);
        EXPECT_NE(all.find("needs TLS"), std::string::npos) << all;
    }
}

TEST_F(RtspServerTlsTest, BytesThatAreNeitherTlsNorTextGetNoText)
{
    start();
    const Descriptor client = connectTo(server->tlsPort());
    const std::string bytes("\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    ASSERT_GT(::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    char answer[100];
    const ssize_t count = ::recv(client.get(), answer, sizeof answer, 0);
    EXPECT_TRUE(count <= 0 || answer[0] == 21) << "an alert at most";
}

TEST_F(RtspServerTlsTest, ATlsClientOnThePlainPortIsEndedAtOnce)
{
    start();
    const Descriptor socket = connectTo(server->port());
    TlsPeer peer(socket.get());
    EXPECT_FALSE(peer.connect());
    ::shutdown(socket.get(), SHUT_WR);
    EXPECT_TRUE(hasEnded(socket.get()));
}

TEST_F(RtspServerTlsTest, HandshakesUnderWayAreLimitedInAllAndPerAddress)
{
    config.tls.handshakes = 4;
    start();
    Descriptor first = connectTo(server->tlsPort());
    const Descriptor second = connectTo(server->tlsPort());
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 2; }));
    EXPECT_TRUE(hasEnded(connectTo(server->tlsPort()).get()));
    first.reset();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    TlsClient client(server->tlsPort());
    EXPECT_EQ(client.request("OPTIONS", tlsUrl()).status, 200);
    TlsClient next(server->tlsPort());
    EXPECT_EQ(next.request("OPTIONS", tlsUrl()).status, 200) << "the first one's handshake is over";
}

TEST_F(RtspServerTlsTest, AHandshakeThatTakesTooLongIsEnded)
{
    start();
    const Descriptor client = connectTo(server->tlsPort());
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    time.advance(std::chrono::seconds(config.limits.handshakeTimeout));
    EXPECT_TRUE(hasEnded(client.get()));
}

TEST_F(RtspServerTlsTest, AnotherCertificateServesTheNextClientAndDropsNone)
{
    const TemporaryFolder other;
    SelfSignedCertificate next;
    std::string error;
    ASSERT_TRUE(next.prepare(other.path(), error)) << error;
    start();
    TlsClient client(server->tlsPort());
    ASSERT_EQ(client.request("OPTIONS", tlsUrl()).status, 200);
    const std::string before = server->tlsFingerprint();
    std::filesystem::rename(next.key(), folder_ / "key.pem");
    std::filesystem::rename(next.certificate(), folder_ / "certificate.pem");
    server->refreshCertificate();
    server->refreshCertificate();
    EXPECT_NE(server->tlsFingerprint(), before);
    EXPECT_EQ(client.request("OPTIONS", tlsUrl()).status, 200);
    EXPECT_TRUE(TlsClient(server->tlsPort()).connected());
}

TEST_F(RtspServerTlsTest, WithoutAUsableCertificateItDoesNotStart)
{
    config.tls.selfSigned = false;
    config.tls.certificate = folder_ / "none.pem";
    server = std::make_unique<RtspServer>(config, routes);
    std::string error;
    EXPECT_FALSE(server->start(error));
    EXPECT_NE(error.find(config.tls.certificate), std::string::npos) << error;
    EXPECT_EQ(server->tlsPort(), 0);
    EXPECT_EQ(server->port(), 0);
}

struct BasicCase
{
    const char* basic;
    bool plain;
    bool encrypted;
};

class RtspServerBasicTest : public RtspServerTlsTest, public testing::WithParamInterface<BasicCase>
{
protected:
    /// Whether Basic is offered; EXPECTs that it is accepted just then.
    static bool takesBasic(TestClient& client, const std::string& url)
    {
        const Received challenge = client.request("DESCRIBE", url);
        EXPECT_EQ(challenge.status, 401);
        bool offered = false;
        const auto [begin, end] = challenge.headers.equal_range("WWW-Authenticate");
        for (auto header = begin; header != end; ++header)
        {
            offered = offered || header->second.rfind("Basic ", 0) == 0;
        }
        EXPECT_EQ(challenge.headers.count("WWW-Authenticate"), offered ? 4u : 3u);
        const char* const login = "Authorization: Basic YWRtaW46c2VjcmV0\r\n";
        EXPECT_EQ(client.request("DESCRIBE", url, login).status, offered ? 200 : 401);
        return offered;
    }
};

TEST_P(RtspServerBasicTest, BasicIsOfferedAndAcceptedWhereTheConfigurationSaysSo)
{
    config.users = {{"admin", "secret"}};
    config.auth.basic = GetParam().basic;
    start();
    TestClient plain(server->port());
    EXPECT_EQ(takesBasic(plain, url()), GetParam().plain);
    TlsClient encrypted(server->tlsPort());
    EXPECT_EQ(takesBasic(encrypted, tlsUrl()), GetParam().encrypted);
}

INSTANTIATE_TEST_SUITE_P(All, RtspServerBasicTest,
                         testing::Values(BasicCase{"never", false, false}, BasicCase{"tls-only", false, true},
                                         BasicCase{"always", true, true}),
                         [](const testing::TestParamInfo<BasicCase>& tested) {
                             return std::string(tested.param.basic) == "tls-only" ? "tlsOnly"
                                                                                  : tested.param.basic;
                         });

}  // namespace
}  // namespace refhost
