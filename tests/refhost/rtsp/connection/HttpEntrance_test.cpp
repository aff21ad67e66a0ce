// Connections that start with HTTP, against a server over loopback sockets.
#include "refhost/rtsp/connection/HttpEntrance.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/refhost/net/websocket/WebSocketPeer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/rtsp/connection/TunnelClient.h"

namespace refhost
{
namespace
{

using test::BareClient;
using test::TestClient;
using test::TunnelClient;
using test::WebSocketPeer;

class HttpEntranceTest : public test::RtspServerFixture
{
protected:
    /// The status of the only response to `request`, which ends its connection.
    std::string refusal(const std::string& request)
    {
        BareClient client(server->port());
        client.send(request);
        const std::string answer = client.readAll();
        EXPECT_TRUE(client.sawEnd());
        const std::size_t end = answer.find("\r\n\r\n");
        EXPECT_NE(end, std::string::npos) << answer;
        const std::size_t length = answer.find("Content-Length: ");
        EXPECT_NE(length, std::string::npos) << answer;
        const bool head = request.rfind("HEAD", 0) == 0;
        if (length != std::string::npos && !head)
        {
            EXPECT_EQ(answer.size() - end - 4, std::stoul(answer.substr(length + 16))) << answer;
        }
        EXPECT_EQ(answer.rfind("HTTP/1.1 ", 0), 0u) << answer;
        return answer.substr(9, 3);
    }

    /// Plays through `client`, and expects three frames.
    void expectPlays(TestClient& client)
    {
        EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
        const std::string id = setUpTcp(client, 1);
        frame(true);
        EXPECT_EQ(client.request("PLAY", url(), session(id)).status, 200);
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_TRUE(client.frame(0).isRtp());
            frame(false);
        }
        EXPECT_EQ(client.request("TEARDOWN", url(), session(id)).status, 200);
    }

    void sweepUntil(const std::function<bool()>& done)
    {
        EXPECT_TRUE(eventually(
            [&]
            {
                time.advance(std::chrono::seconds(config.limits.handshakeTimeout));
                return done();
            }));
    }
};

TEST_F(HttpEntranceTest, ATunnelPlaysWithItsGetFirst)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    expectPlays(client);
    EXPECT_EQ(server->connectionCount(), 2u);
}

TEST_F(HttpEntranceTest, ATunnelPlaysWithItsPostFirst)
{
    start();
    TunnelClient client(server->port());
    client.openPost();
    client.post->send(TunnelClient::encode(TestClient::text("OPTIONS", "*", 77, "", "")));
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    client.openGet();
    EXPECT_EQ(client.response().header("CSeq"), "77");
    expectPlays(client);
}

TEST_F(HttpEntranceTest, ATunnelPlaysWithAPostForEachRequest)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.postForEach = true;
    expectPlays(client);
    EXPECT_EQ(client.post->readUntil("\r\n\r\n"), TunnelHeaders::taken);
}

TEST_F(HttpEntranceTest, ATunnelGoesOnBehindTheAnnouncedLength)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost(10);
    expectPlays(client);
}

TEST_F(HttpEntranceTest, ATunnelTakesItsBytesOneByOne)
{
    start();
    TunnelClient client(server->port());
    client.get = std::make_unique<BareClient>(server->port());
    client.post = std::make_unique<BareClient>(server->port());
    for (const char c : client.getText())
    {
        client.get->send(std::string(1, c));
    }
    EXPECT_EQ(client.get->readUntil("\r\n\r\n"), TunnelHeaders::greeting);
    const std::string request = TunnelClient::encode(TestClient::text("OPTIONS", "*", 5, "", ""));
    for (const char c : client.postText(32767) + request)
    {
        client.post->send(std::string(1, c));
    }
    EXPECT_EQ(client.response().header("CSeq"), "5");
}

TEST_F(HttpEntranceTest, AClosedPostMayBeReplaced)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
    client.post->close();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    client.openPost();
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
    // The old one may be silent instead of closed.
    const auto silent = std::move(client.post);
    client.openPost();
    expectPlays(client);
}

TEST_F(HttpEntranceTest, TheEndOfTheGetEndsBothAndTheSession)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    setUpTcp(client, 1);
    EXPECT_EQ(server->sessionCount(), 1u);
    client.get->close();
    EXPECT_TRUE(client.post->ended());
    EXPECT_TRUE(eventually([this] { return server->sessionCount() == 0 && server->connectionCount() == 0; }));
}

TEST_F(HttpEntranceTest, BothConnectionsCountAndAreGivenBack)
{
    config.limits.connections = 3;
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    setUpTcp(client, 1);
    TestClient third(server->port());
    setUpTcp(third, 1);
    TestClient fourth(server->port());
    EXPECT_EQ(fourth.request("OPTIONS", "*").status, 503);
    EXPECT_EQ(refusal("GET / HTTP/1.1\r\n\r\n"), "503");
    client.get->close();
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
}

TEST_F(HttpEntranceTest, AGetWhosePostNeverComesIsEnded)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    sweepUntil([this] { return server->connectionCount() == 0; });
    EXPECT_EQ(client.get->readAll(), "");
    EXPECT_TRUE(client.get->sawEnd());
}

TEST_F(HttpEntranceTest, APostWhoseGetNeverComesIsEnded)
{
    start();
    TunnelClient client(server->port());
    client.openPost();
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    sweepUntil([this] { return server->connectionCount() == 0; });
    EXPECT_EQ(client.post->readAll(), "");
    EXPECT_TRUE(client.post->sawEnd());
}

TEST_F(HttpEntranceTest, PostsThatWaitAreBounded)
{
    start();
    std::vector<std::unique_ptr<TunnelClient>> posts;
    for (int i = 0; i < 8; ++i)
    {
        posts.push_back(std::make_unique<TunnelClient>(server->port(), std::to_string(i)));
        posts.back()->openPost();
    }
    // Their loops may read them after the next one; so the eighth is the one that does not wait.
    std::vector<std::unique_ptr<BareClient>> more;
    const auto refused = [&]
    {
        more.push_back(std::make_unique<BareClient>(server->port()));
        more.back()->send(TunnelClient(server->port(), "x").postText(1));
        return more.back()->waitSome(100).rfind("HTTP/1.1 503 ", 0) == 0;
    };
    EXPECT_TRUE(eventually(refused));
    EXPECT_LE(more.size(), 2U);
}

TEST_F(HttpEntranceTest, ACookieThatIsInUseOpensNoSecondTunnel)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    EXPECT_EQ(refusal(client.getText()), "409");
    client.openPost();
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200) << "the first goes on";
}

TEST_F(HttpEntranceTest, APostThatIsNoBase64EndsTheTunnel)
{
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    client.post->send("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
}

TEST_F(HttpEntranceTest, AnUnfinishedHeadIsEnded)
{
    start();
    BareClient client(server->port());
    client.send("GET / HTTP/1.1\r\nHost: x\r\n");
    ASSERT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    sweepUntil([this] { return server->connectionCount() == 0; });
    EXPECT_TRUE(client.ended());
}

TEST_F(HttpEntranceTest, AHeadThatIsTooLargeIsRefused)
{
    start();
    BareClient client(server->port());
    client.send("GET / HTTP/1.1\r\nX: " + std::string(20000, 'x'));
    EXPECT_NE(client.readAll().find("400"), std::string::npos);
    EXPECT_TRUE(client.sawEnd());
}

struct Refused
{
    const char* name;
    std::string request;
    const char* status;

    friend std::ostream& operator<<(std::ostream& out, const Refused& tested)
    {
        return out << tested.name;
    }
};

class HttpRefusalTest : public HttpEntranceTest, public testing::WithParamInterface<Refused>
{
};

TEST_P(HttpRefusalTest, IsAnsweredAndEnded)
{
    start();
    EXPECT_EQ(refusal(GetParam().request), GetParam().status);
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(
    Requests, HttpRefusalTest,
    testing::Values(Refused{"AGet", "GET / HTTP/1.1\r\nHost: x\r\n\r\n", "404"},
                    Refused{"AHead", "HEAD / HTTP/1.1\r\nHost: x\r\n\r\n", "404"},
                    Refused{"AnotherMethod", "OPTIONS / HTTP/1.1\r\nHost: x\r\n\r\n", "405"},
                    Refused{"APostWithoutACookie", "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", "405"},
                    Refused{"NoHttpAtAll", "GET / HTTP/1.1\r\nX y\r\n\r\n", "400"},
                    Refused{"LineEndsOfOneCharacter", "GET / HTTP/1.0\n\n", "400"},
                    Refused{"Http2", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "400"},
                    Refused{"AnEmptyCookie", "GET / HTTP/1.0\r\nx-sessioncookie:\r\n\r\n", "400"},
                    Refused{"ALongCookie",
                            "GET / HTTP/1.0\r\nx-sessioncookie: " + std::string(257, 'x') + "\r\n\r\n",
                            "400"},
                    Refused{"ACookieWithBlanks", "GET / HTTP/1.0\r\nx-sessioncookie: a b\r\n\r\n", "400"},
                    Refused{"APostInChunks",
                            "POST / HTTP/1.1\r\nx-sessioncookie: c\r\nTransfer-Encoding: chunked\r\n\r\n",
                            "411"},
                    Refused{"AWebSocketWithoutAKey",
                            "GET / HTTP/1.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n", "400"}),
    [](const testing::TestParamInfo<Refused>& tested) { return tested.param.name; });

TEST_F(HttpEntranceTest, TunnelsCanBeSwitchedOff)
{
    config.tunnel.http = false;
    config.tunnel.webSocket = false;
    start();
    EXPECT_EQ(refusal(TunnelClient(server->port()).getText()), "403");
    EXPECT_EQ(refusal(TunnelClient(server->port()).postText(10)), "403");
    EXPECT_EQ(refusal("GET / HTTP/1.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n"), "403");
    TestClient client(server->port());
    expectPlays(client);
}

TEST_F(HttpEntranceTest, OnlyTheFirstRequestMayBeHttp)
{
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
    client.send("GET / HTTP/1.1\r\nCSeq: 2\r\n\r\n");
    EXPECT_EQ(client.response().status, 400);
    EXPECT_EQ(client.request("OPTIONS", "*").status, 200);
}

TEST_F(HttpEntranceTest, UsersLogInThroughTheTunnelAsEver)
{
    config.users = {{"admin", "secret"}};
    config.auth.basic = "always";
    start();
    TunnelClient client(server->port());
    client.openGet();
    client.openPost();
    EXPECT_EQ(client.request("DESCRIBE", url()).status, 401);
    EXPECT_EQ(client.request("DESCRIBE", url(), "Authorization: Basic YWRtaW46c2VjcmV0\r\n").status, 200);
}

/// An RTSP client over WebSocket.
class WebSocketClient : public TestClient
{
public:
    WebSocketClient(int port, const std::string& fields) : plain_(port)
    {
        plain_.send(
            "GET /any HTTP/1.1\r\nHost: camera:8554\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
            "Sec-WebSocket-Protocol: rtsp.onvif.org\r\n" +
            fields + "\r\n");
        handshake = plain_.readUntil("\r\n\r\n");
    }

    bool trySend(const std::string& bytes) override
    {
        return plain_.trySend(WebSocketPeer::frame(WebSocketPeer::binary, bytes));
    }

    void sendFrame(int opcode, const std::string& payload)
    {
        plain_.send(WebSocketPeer::frame(opcode, payload));
    }

    std::string handshake;
    int closes = 0;

protected:
    std::string wait(int milliseconds) override
    {
        for (;;)
        {
            while (const auto arrived = WebSocketPeer::cut(bytes_))
            {
                closes += arrived->opcode == WebSocketPeer::close ? 1 : 0;
                if (arrived->opcode == WebSocketPeer::binary)
                {
                    return arrived->payload;
                }
            }
            const std::string more = plain_.waitSome(milliseconds);
            end_ = plain_.sawEnd();
            if (more.empty())
            {
                return {};
            }
            bytes_ += more;
        }
    }

private:
    BareClient plain_;
    std::string bytes_;
};

TEST_F(HttpEntranceTest, ASessionPlaysOverWebSocket)
{
    start();
    WebSocketClient client(server->port(), "");
    EXPECT_EQ(client.handshake.rfind("HTTP/1.1 101 ", 0), 0u) << client.handshake;
    expectPlays(client);
    client.sendFrame(WebSocketPeer::close, "");
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(client.closes, 1);
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
}

TEST_F(HttpEntranceTest, AWebSocketThatViolatesTheProtocolIsClosed)
{
    start();
    WebSocketClient client(server->port(), "");
    client.sendFrame(3, "x");
    EXPECT_TRUE(client.ended());
    EXPECT_EQ(client.closes, 1);
}

enum class Watchers
{
    everybody,
    users,
    usersAndAnonymous
};

struct Page
{
    const char* origins;
    Watchers watchers;
    const char* origin;
    bool accepted;
};

class WebSocketPageTest : public HttpEntranceTest, public testing::WithParamInterface<Page>
{
};

TEST_P(WebSocketPageTest, IsAcceptedWhereTheConfigurationSaysSo)
{
    config.tunnel.origins = GetParam().origins;
    if (GetParam().watchers != Watchers::everybody)
    {
        config.users = {{"admin", "secret"}};
    }
    if (GetParam().watchers == Watchers::usersAndAnonymous)
    {
        config.users.push_back({"anonymous", ""});
    }
    start();
    WebSocketClient client(server->port(), std::string("Origin: ") + GetParam().origin + "\r\n");
    EXPECT_EQ(client.handshake.substr(9, 3), GetParam().accepted ? "101" : "403");
}

INSTANTIATE_TEST_SUITE_P(All, WebSocketPageTest,
                         testing::Values(Page{"auto", Watchers::everybody, "http://camera", true},
                                         Page{"auto", Watchers::everybody, "http://elsewhere", false},
                                         Page{"auto", Watchers::users, "http://elsewhere", true},
                                         Page{"auto", Watchers::usersAndAnonymous, "http://elsewhere", false},
                                         Page{"same", Watchers::users, "http://elsewhere", false},
                                         Page{"same", Watchers::users, "https://camera:8080", true},
                                         Page{"any", Watchers::everybody, "http://elsewhere", true}));

}  // namespace
}  // namespace refhost
