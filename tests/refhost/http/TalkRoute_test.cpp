#include "refhost/http/TalkRoute.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/media/BackChannel.h"
#include "refhost/media/Device.h"
#include "refhost/talkback/PlainTalk.h"
#include "refhost/talkback/SharedOutput.h"
#include "tests/refhost/fragments/OneCamera.h"
#include "tests/refhost/http/HttpServiceFixture.h"
#include "tests/refhost/net/websocket/WebSocketPeer.h"
#include "tests/refhost/talkback/CountingPlayer.h"

namespace refhost
{
namespace
{

using nlohmann::json;
using test::HttpTestClient;
using test::WebSocketPeer;

const std::string handshake =
    "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
const std::string path = "/api/v1/cameras/1/talk";
constexpr int noFrame = 0;

/// Camera 1, with talk-back.
class TalkingCamera : public test::OneCamera
{
public:
    bool describeBackChannel(int cameraId, SubMediaInfo& out) override
    {
        const auto channel = cameraId == 1 ? backChannelOf(codec) : std::nullopt;
        out = channel.value_or(out);
        return channel.has_value();
    }

    std::optional<Codec> codec = Codec::aac;  // what clients of RTSP send
};

/// One who talks through a WebSocket.
class TalkClient
{
public:
    TalkClient(int port, const std::string& headers = "") : client_(port)
    {
        status = client_.get(path, handshake + headers).status;
    }

    void say(std::size_t bytes)
    {
        send(WebSocketPeer::binary, std::string(bytes, '\x55'));
    }

    void send(int opcode, const std::string& payload)
    {
        sendBytes(WebSocketPeer::frame(opcode, payload));
    }

    void sendBytes(const std::string& bytes)
    {
        client_.trySend(bytes);
    }

    /// The next frame of the server; `noFrame` as opcode when the connection ends.
    WebSocketPeer::Arrived next()
    {
        for (;;)
        {
            if (auto frame = WebSocketPeer::cut(received_))
            {
                return *frame;
            }
            const std::string more = client_.raw();
            if (more.empty())
            {
                return {noFrame, ""};
            }
            received_ += more;
        }
    }

    json message()
    {
        const WebSocketPeer::Arrived frame = next();
        EXPECT_EQ(frame.opcode, WebSocketPeer::text);
        return json::parse(frame.payload, nullptr, false);
    }

    /// The code of the close frame with which the server ends the connection; 0 without one.
    int closeCode()
    {
        WebSocketPeer::Arrived frame = next();
        while (frame.opcode != noFrame && frame.opcode != WebSocketPeer::close)
        {
            frame = next();
        }
        return frame.payload.size() < 2 ? 0
                                        : static_cast<unsigned char>(frame.payload[0]) << 8 |
                                              static_cast<unsigned char>(frame.payload[1]);
    }

    int status = 0;

private:
    HttpTestClient client_;
    std::string received_;
};

class TalkRouteTest : public test::HttpServiceFixture
{
protected:
    TalkRouteTest()
    {
        Device::setStreams(camera);
        settings.policy = TalkPolicy::first;
        // However slow this machine is.
        settings.silence = settings.maxOutputWait = std::chrono::hours(1);
        manager()->setMediaPlayer(SafePointer<IMediaPlayer>(new test::CountingPlayer(played)));
        EXPECT_EQ(0, manager()->start());
    }
    ~TalkRouteTest() override
    {
        service.reset();
        EXPECT_EQ(0, manager()->getSessionNum()) << "the service left talk-back behind";
        manager()->stop();
        SharedOutput::instance().configure(TalkSettings());
        Device::setStreams(nullptr);
    }

    static SafePointer<OVAudioBackDispatcherMgr> manager()
    {
        return OVAudioBackDispatcherMgr::getInstance();
    }

    void serve()
    {
        SharedOutput::instance().configure(settings);
        HttpService& made = make();
        TalkRoute::add(made.router(), users->rights, time);
        start();
    }

    /// Talks, a little at a time, until it is played.
    /// \returns the bytes sent; 0 when nothing was played in time
    std::size_t talkUntilAudible(TalkClient& client) const
    {
        std::size_t bytes = 0;
        const bool audible = eventually(
            [&]
            {
                client.say(1);
                ++bytes;
                return played->samples > 0;
            });
        return audible ? bytes : 0;
    }

    static json floor(bool audible, const json& by = nullptr)
    {
        return {{"type", "floor"}, {"audible", audible}, {"by", by}};
    }

    std::shared_ptr<TalkingCamera> camera = std::make_shared<TalkingCamera>();
    std::shared_ptr<test::Played> played = std::make_shared<test::Played>();
    TalkSettings settings;
};

TEST_F(TalkRouteTest, AudioIsPlayedWhereverItsMessagesEnd)
{
    settings.format = {8000, 1};
    serve();
    TalkClient client(service->port());
    ASSERT_EQ(client.status, 101);
    EXPECT_EQ(client.message(), floor(false));
    std::size_t sent = talkUntilAudible(client);
    ASSERT_GT(sent, 0U);
    for (const std::size_t bytes : {1U, 159U, 320U, 77U, 83U, 1000U})
    {
        client.say(bytes);
        sent += bytes;
    }
    EXPECT_TRUE(eventually([&] { return played->samples == sent / 160 * 160; })) << played->samples;
}

TEST_F(TalkRouteTest, AudioOfBeforeIsBounded)
{
    // The worker never sees it.
    PlainTalk talk({*SocketAddress::parse("127.0.0.1", 5000), "", ""});
    talk.send(std::string(100000, 'x'));
    EXPECT_EQ(talk.waiting(), PlainTalk::maxWaiting);
}

TEST_F(TalkRouteTest, TheClientLearnsThatItIsAudible)
{
    serve();
    TalkClient client(service->port());
    EXPECT_EQ(client.message(), floor(false));
    EXPECT_GT(talkUntilAudible(client), 0U);
    client.say(1);
    EXPECT_EQ(client.message(), floor(true));
}

TEST_F(TalkRouteTest, ASecondClientLearnsWhoIsAudibleInstead)
{
    config.users = {{"anna", "anna"}, {"bert", "bert"}};
    serve();
    TalkClient anna(service->port(), basic("YW5uYTphbm5h"));
    EXPECT_EQ(anna.message(), floor(false));
    EXPECT_GT(talkUntilAudible(anna), 0U);
    TalkClient bert(service->port(), basic("YmVydDpiZXJ0"));
    EXPECT_EQ(bert.message(), floor(false, "anna"));
}

TEST_F(TalkRouteTest, MixedSendersAreAllAudible)
{
    settings.policy = TalkPolicy::mix;
    serve();
    TalkClient first(service->port());
    TalkClient second(service->port());
    EXPECT_EQ(first.message(), floor(true));
    EXPECT_EQ(second.message(), floor(true));
}

TEST_F(TalkRouteTest, WhoIsRefusedByThePolicyLearnsIt)
{
    settings.policy = TalkPolicy::refuse;
    serve();
    TalkClient first(service->port());
    EXPECT_EQ(first.message(), floor(false));
    TalkClient second(service->port());
    EXPECT_EQ(second.message().at("type"), "refused");
    EXPECT_EQ(second.closeCode(), 1013);
    EXPECT_EQ(manager()->getSessionNum(), 1);
}

TEST_F(TalkRouteTest, NoMoreClientsTalkThanTheSettingsSay)
{
    settings.maxTalkSenders = 2;
    serve();
    TalkClient first(service->port());
    TalkClient second(service->port());
    EXPECT_EQ(first.message(), floor(false));
    EXPECT_EQ(second.message(), floor(false));
    TalkClient third(service->port());
    EXPECT_EQ(third.message().at("type"), "refused");
    EXPECT_EQ(third.closeCode(), 1013);
}

TEST_F(TalkRouteTest, TheSessionEndsWithTheConnection)
{
    serve();
    {
        TalkClient client(service->port());
        EXPECT_EQ(client.message(), floor(false));
        EXPECT_EQ(manager()->getSessionNum(), 1);
    }
    EXPECT_TRUE(eventually([] { return manager()->getSessionNum() == 0; }));
    TalkClient client(service->port());
    EXPECT_EQ(client.message(), floor(false));
    client.send(WebSocketPeer::close, "\x03\xe8");
    EXPECT_EQ(client.closeCode(), 1000);
    EXPECT_TRUE(eventually([] { return manager()->getSessionNum() == 0; }));
}

TEST_F(TalkRouteTest, TextEndsTheConnection)
{
    serve();
    TalkClient client(service->port());
    client.send(WebSocketPeer::text, "hello");
    EXPECT_EQ(client.closeCode(), 1003);
    EXPECT_TRUE(eventually([] { return manager()->getSessionNum() == 0; }));
    EXPECT_EQ(played->samples, 0U);
}

TEST_F(TalkRouteTest, TextInPartsIsNoAudioEither)
{
    serve();
    TalkClient client(service->port());
    client.sendBytes(WebSocketPeer::bytesOf({WebSocketPeer::text, std::string(500, 'x'), false}) +
                     WebSocketPeer::bytesOf({WebSocketPeer::continuation, std::string(500, 'x')}));
    EXPECT_EQ(client.closeCode(), 1003);
    EXPECT_TRUE(eventually([] { return manager()->getSessionNum() == 0; }));
    EXPECT_EQ(played->samples, 0U);
}

TEST_F(TalkRouteTest, BytesThatAreNoFramesEndTheConnection)
{
    serve();
    TalkClient client(service->port());
    client.sendBytes("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.closeCode(), 1002);
}

TEST_F(TalkRouteTest, MoreAudioThanPassesEndsTheConnection)
{
    serve();
    TalkClient client(service->port());
    for (std::size_t sent = 0; sent <= TalkRoute::maxAhead; sent += 1000)
    {
        client.say(1000);
    }
    EXPECT_EQ(client.closeCode(), 1008);
}

TEST_F(TalkRouteTest, AudioThatPassesInItsTimeGoesOn)
{
    serve();
    TalkClient client(service->port());
    EXPECT_EQ(client.message(), floor(false));
    for (int i = 0; i < 10; ++i)
    {
        client.say(TalkRoute::maxAhead - 8000);
        client.send(WebSocketPeer::ping, "?");
        WebSocketPeer::Arrived frame = client.next();
        while (frame.opcode == WebSocketPeer::text)
        {
            frame = client.next();
        }
        ASSERT_EQ(frame.opcode, WebSocketPeer::pong) << i;
        time.advance(std::chrono::seconds(2));
    }
}

TEST_F(TalkRouteTest, SilenceEndsTheConnection)
{
    serve();
    TalkClient client(service->port());
    EXPECT_EQ(client.message(), floor(false));
    time.advance(BodySource::maxSilence);
    EXPECT_EQ(client.closeCode(), 1001);
    EXPECT_TRUE(eventually([] { return manager()->getSessionNum() == 0; }));
}

TEST_F(TalkRouteTest, ASessionThatTheManagerEndsEndsTheConnection)
{
    serve();
    TalkClient client(service->port());
    EXPECT_EQ(client.message(), floor(false));
    manager()->clearAllSession();
    for (int i = 0; i < 20; ++i)
    {
        client.say(1);
        client.send(WebSocketPeer::ping, "");
    }
    EXPECT_EQ(client.closeCode(), 1001);
}

TEST_F(TalkRouteTest, WhoLosesTheRightIsEnded)
{
    UserConfig anna{"anna", "anna"};
    config.users = {anna};
    serve();
    TalkClient client(service->port(), basic("YW5uYTphbm5h"));
    EXPECT_EQ(client.message(), floor(false));
    anna.grants.live = "1";
    users->rights.replace(AccessRules({anna}, {}));
    time.advance(BodySource::maxSilence);
    EXPECT_EQ(client.closeCode(), 1001);
}

TEST_F(TalkRouteTest, OnlyWhoMayTalkToTheCameraDoes)
{
    UserConfig viewer{"bert", "bert"};
    viewer.grants.live = "1";
    config.users = {{"anna", "anna"}, viewer};
    serve();
    EXPECT_EQ(TalkClient(service->port()).status, 401);
    EXPECT_EQ(TalkClient(service->port(), basic("YmVydDpiZXJ0")).status, 403);
    EXPECT_EQ(TalkClient(service->port(), basic("YW5uYTphbm5h")).status, 101);
}

TEST_F(TalkRouteTest, APageOfAnotherSiteMayNotTalk)
{
    serve();
    EXPECT_EQ(TalkClient(service->port(), "Origin: http://evil.example\r\n").status, 403);
    EXPECT_EQ(TalkClient(service->port(), "Origin: http://127.0.0.1\r\n").status, 101);
    EXPECT_EQ(get(path).status, 426);
}

TEST_F(TalkRouteTest, CamerasWithoutTalkBackAreNotFound)
{
    serve();
    for (const std::string id : {"2", "x", "-1", "99999999999999999999"})
    {
        EXPECT_EQ(get("/api/v1/cameras/" + id + "/talk", handshake).status, 404) << id;
    }
    camera->codec.reset();
    EXPECT_EQ(get(path, handshake).status, 404);
}

TEST_F(TalkRouteTest, WithoutARunningManagerItIsRefused)
{
    serve();
    manager()->stop();
    TalkClient client(service->port());
    EXPECT_EQ(client.message().at("type"), "refused");
    EXPECT_EQ(client.closeCode(), 1013);
}

}  // namespace
}  // namespace refhost
