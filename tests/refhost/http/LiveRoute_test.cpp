#include "refhost/http/LiveRoute.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "refhost/media/Device.h"
#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/fragments/OneCamera.h"
#include "tests/refhost/http/HttpServiceFixture.h"
#include "tests/refhost/http/ServerMessages.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using test::HttpTestClient;
using test::Mp4Box;
using Message = test::ServerMessages::Message;
using test::handshake;

const std::string path = "/api/v1/cameras/1/streams/0/live";

class LiveRouteTest : public test::HttpServiceFixture, protected MadeUnits
{
protected:
    LiveRouteTest()
    {
        audio = audioFormat(Codec::aac);
        Device::setStreams(cameras_);
    }
    ~LiveRouteTest() override
    {
        service.reset();
        Device::setStreams(nullptr);
    }

    void serve()
    {
        HttpService& made = make();
        LiveRoute::add(made.router(), users->rights, streams_, {made.background(), [] { return nullptr; }});
        start();
    }

    /// Units reach viewers as those of a camera do.
    void feed(double at, bool key, std::size_t bytes = 1000)
    {
        streams_->find(1, 0)->fragments().onEncodedUnit(frame(at, key, bytes));
    }

    /// The camera goes on, and yet the server closes the connection.
    void feedUntilTheEnd(HttpTestClient& client)
    {
        const auto stream = tapped_ == nullptr ? streams_->find(1, 0) : tapped_;
        for (int i = 1; i <= 100; ++i)
        {
            stream->fragments().onEncodedUnit(frame(i / 25.0, i == 1, 100));
        }
        std::optional<Message> message = next(client);
        while (message && message->opcode != 8)
        {
            message = next(client);
        }
        EXPECT_TRUE(message) << "a close frame";
        EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
    }

    std::optional<Message> next(HttpTestClient& client)
    {
        return messages_.next(client);
    }

    std::shared_ptr<test::OneCamera> cameras_ = std::make_shared<test::OneCamera>();
    std::shared_ptr<FragmentStreams> streams_ = std::make_shared<FragmentStreams>(HostClock::system());
    std::shared_ptr<TappedStream> tapped_;  // of a camera that is gone
    test::ServerMessages messages_;
    std::atomic<int> got_{0};  // by the viewer who reads
};

TEST_F(LiveRouteTest, SendsADescriptionAnInitSegmentAndFragments)
{
    serve();
    cameras_->source->audio = false;
    HttpTestClient client(service->port());
    const HttpAnswer answer = client.get(path, handshake);
    ASSERT_EQ(answer.status, 101);
    EXPECT_EQ(answer.field("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    EXPECT_EQ(answer.field("Upgrade"), "websocket");
    EXPECT_EQ(answer.field("Connection"), "Upgrade");
    feed(0, true, 70000);
    feed(0.04, false, 100);

    const auto text = next(client);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->opcode, 1);
    const auto description = nlohmann::json::parse(text->bytes);
    EXPECT_EQ(description["mime"], "video/mp4; codecs=\"avc1.42C00D\"");
    EXPECT_EQ(description["video"]["width"], 320);
    EXPECT_TRUE(description["audio"].is_null());
    const auto init = next(client);
    ASSERT_TRUE(init);
    EXPECT_EQ(init->opcode, 2);
    EXPECT_TRUE(Mp4Box::find(init->span(), "moov/mvex"));
    for (const std::size_t size : {std::size_t{70000}, std::size_t{100}})
    {
        const auto fragment = next(client);
        ASSERT_TRUE(fragment);
        EXPECT_EQ(Mp4Box::find(fragment->span(), "mdat")->contents.size, size);
    }
}

TEST_F(LiveRouteTest, TheSourceRunsWhileTheViewerIsThere)
{
    serve();
    {
        HttpTestClient client(service->port());
        ASSERT_EQ(client.get(path, handshake).status, 101);
        EXPECT_TRUE(eventually([this] { return cameras_->source->viewers == 1; }));
    }
    EXPECT_TRUE(eventually([this] { return cameras_->source->viewers == 0; }));
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
    EXPECT_EQ(streams_->find(1, 0)->fragments().subscribers(), 0U);
}

TEST_F(LiveRouteTest, PingsAreAnsweredAndWhatElseTheClientSaysIsIgnored)
{
    serve();
    HttpTestClient client(service->port());
    ASSERT_EQ(client.get(path, handshake).status, 101);
    client.send(test::ServerMessages::masked(1, "hello") + test::ServerMessages::masked(9, "ping"));
    const auto pong = next(client);
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->opcode, 10);
    EXPECT_EQ(pong->bytes, "ping");
}

TEST_F(LiveRouteTest, ACloseFrameEndsTheConnection)
{
    serve();
    HttpTestClient client(service->port());
    ASSERT_EQ(client.get(path, handshake).status, 101);
    client.send(test::ServerMessages::masked(8, "\x03\xe8"));
    const auto close = next(client);
    ASSERT_TRUE(close);
    EXPECT_EQ(close->opcode, 8);
    EXPECT_FALSE(next(client));
}

TEST_F(LiveRouteTest, BytesThatAreNoFramesEndTheConnection)
{
    serve();
    HttpTestClient client(service->port());
    ASSERT_EQ(client.get(path, handshake).status, 101);
    client.send("GET / HTTP/1.1\r\n\r\n");
    const auto close = next(client);
    ASSERT_TRUE(close);
    EXPECT_EQ(close->opcode, 8);
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
}

TEST_F(LiveRouteTest, AClientThatReadsNoPongsIsNotReadForever)
{
    serve();
    HttpTestClient client(service->port(), 4096);
    ASSERT_EQ(client.get(path, handshake).status, 101);
    std::string pings;
    while (pings.size() < std::size_t{64} << 20U)
    {
        pings += test::ServerMessages::masked(9, std::string(100, 'x'));
    }
    // Some MiB are in the system's buffers.
    EXPECT_LT(client.sendSome(pings, 500), pings.size() / 2);
}

TEST_F(LiveRouteTest, AClientThatReadsNothingLosesGopsAndOthersLoseNothing)
{
    serve();
    cameras_->source->audio = false;
    HttpTestClient slow(service->port(), 4096);
    ASSERT_EQ(slow.get(path, handshake).status, 101);
    HttpTestClient quick(service->port());
    ASSERT_EQ(quick.get(path, handshake).status, 101);
    constexpr int frames = 200;
    constexpr std::size_t size = 100000;
    std::thread camera(
        [&]
        {
            for (int i = 0; i < frames; ++i)
            {
                feed(i / 25.0, i % 10 == 0, size);
                // At the pace of the one who reads.
                EXPECT_TRUE(eventually([&] { return got_ > i - 5; }));
            }
        });
    next(quick);
    next(quick);
    for (; got_ < frames; ++got_)
    {
        const auto fragment = next(quick);
        ASSERT_TRUE(fragment);
        EXPECT_EQ(Mp4Box::find(fragment->span(), "moof/traf/tfdt")->number(4, 8),
                  900000U + 3600U * static_cast<unsigned>(got_));
    }
    camera.join();
    messages_ = {};
    int came = 0;
    std::uint64_t last = 0;
    while (last < 900000U + 3600U * (frames - 1))
    {
        const auto message = next(slow);
        ASSERT_TRUE(message);
        if (const auto decode = Mp4Box::find(message->span(), "moof/traf/tfdt"))
        {
            EXPECT_GT(decode->number(4, 8), last);
            last = decode->number(4, 8);
            ++came;
        }
    }
    EXPECT_LT(came, frames);
}

TEST_F(LiveRouteTest, WithoutAWebSocketItIsRefused)
{
    serve();
    const HttpAnswer plain = get(path);
    EXPECT_EQ(plain.status, 426);
    EXPECT_EQ(plain.field("Upgrade"), "websocket");
    EXPECT_EQ(get(path, "Upgrade: websocket\r\nConnection: Upgrade\r\n").status, 426) << "no key";
    EXPECT_EQ(get(path,
                  "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 8\r\n"
                  "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n")
                  .status,
              400);
}

TEST_F(LiveRouteTest, StreamsThatAreNotThereAreNotFound)
{
    serve();
    for (const std::string other :
         {"/api/v1/cameras/2/streams/0/live", "/api/v1/cameras/1/streams/7/live",
          "/api/v1/cameras/x/streams/0/live", "/api/v1/cameras/99999999999999999999/streams/0/live",
          "/api/v1/cameras/1/streams/-1/live"})
    {
        EXPECT_EQ(get(other, handshake).status, 404) << other;
    }
}

TEST_F(LiveRouteTest, APageOfAnotherSiteMayNotShowIt)
{
    serve();
    EXPECT_EQ(get(path, handshake + "Origin: http://evil.example\r\n").status, 403);
    EXPECT_EQ(get(path, handshake + "Origin: null\r\n").status, 403);
    EXPECT_EQ(get(path, handshake + "Origin: http://127.0.0.1\r\n").status, 101);
}

TEST_F(LiveRouteTest, OnlyWhoMayWatchTheCameraSeesIt)
{
    addViewers();
    serve();
    EXPECT_EQ(get(path, handshake).status, 401);
    EXPECT_EQ(get(path, handshake + asViewer()).status, 101);
    EXPECT_EQ(get(path, handshake + asOther()).status, 403);
}

TEST_F(LiveRouteTest, WhoLosesTheRightIsEnded)
{
    addViewers();
    serve();
    cameras_->source->audio = false;
    HttpTestClient client(service->port());
    ASSERT_EQ(client.get(path, handshake + asViewer()).status, 101);
    feed(0, true);
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(next(client)) << "description, init segment, fragment";
    }
    config.users.front().grants.live = "2";
    users->setUsers(config.users, {});
    feedUntilTheEnd(client);
}

TEST_F(LiveRouteTest, ViewersOfACameraThatIsGoneAreEnded)
{
    serve();
    cameras_->source->audio = false;
    HttpTestClient client(service->port());
    ASSERT_EQ(client.get(path, handshake).status, 101);
    tapped_ = streams_->find(1, 0);
    cameras_->replace(std::make_shared<RecordedStreamFake>());
    feedUntilTheEnd(client);
}

}  // namespace
}  // namespace refhost
