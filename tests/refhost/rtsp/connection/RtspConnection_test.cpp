#include "refhost/rtsp/connection/RtspConnection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "refhost/base/ChangeSignal.h"
#include "refhost/live/LiveDispatcher.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::HandFedStream;
using test::Received;
using test::TestClient;
using Description = StreamSource::Description;

class RtspConnectionTest : public test::RtspServerFixture
{
protected:
    void SetUp() override
    {
        start();
        client_ = std::make_unique<TestClient>(server->port());
    }

    HandFedStream& stream()
    {
        return *streams->streams[0];
    }

    /// Returns once a request waits for the stream: what is tried again was put off before.
    void awaitDeferral()
    {
        const int before = stream().described;
        ASSERT_TRUE(eventually(
            [&]
            {
                ChangeSignal::instance().announce();
                return stream().described >= before + 2;
            }));
    }

    std::unique_ptr<TestClient> client_;
};

TEST_F(RtspConnectionTest, PipelinedRequestsAreAnsweredInOrder)
{
    std::string requests;
    for (int i = 1; i <= 100; ++i)
    {
        requests += TestClient::text(i % 2 == 0 ? "OPTIONS" : "DESCRIBE", url(), i, "", "");
    }
    client_->send(requests);
    for (int i = 1; i <= 100; ++i)
    {
        const Received response = client_->response();
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.header("CSeq"), std::to_string(i));
    }
}

TEST_F(RtspConnectionTest, ARequestInSingleBytesIsAnswered)
{
    for (const char c : TestClient::text("DESCRIBE", url(), 1, "", ""))
    {
        client_->send(std::string(1, c));
    }
    EXPECT_EQ(client_->response().status, 200);
}

TEST_F(RtspConnectionTest, RequestsThatCameBeforeTheClientsEndAreAnswered)
{
    client_->send(TestClient::text("OPTIONS", "*", 1, "", ""));
    client_->endSending();
    EXPECT_EQ(client_->response().status, 200);
    EXPECT_TRUE(client_->ended());
}

TEST_F(RtspConnectionTest, ARequestWaitsUntilItsStreamIsDescribed)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 1, "", "") +
                  TestClient::text("OPTIONS", "*", 2, "", ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    TestClient other(server->port());
    EXPECT_EQ(other.request("DESCRIBE", url("orv/live/1/1")).status, 200) << "nobody else waits";

    stream().description = Description::ready;
    ChangeSignal::instance().announce();
    const Received describe = client_->response();
    EXPECT_EQ(describe.status, 200);
    EXPECT_EQ(describe.header("CSeq"), "1");
    EXPECT_EQ(client_->response().header("CSeq"), "2") << "the later request waited behind";
}

TEST_F(RtspConnectionTest, ASetupWaitsToo)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("SETUP", track(url(), 0), 1, tcp, ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    EXPECT_EQ(server->sessionCount(), 0u);
    stream().description = Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 200);
    EXPECT_EQ(server->sessionCount(), 1u);
}

TEST_F(RtspConnectionTest, AChangeElsewhereLetsTheRequestWaitOn)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 1, "", ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    const int before = stream().described;
    ChangeSignal::instance().announce();
    ASSERT_TRUE(eventually([&] { return stream().described > before; }));
    stream().description = Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_EQ(client_->response().status, 200);
}

TEST_F(RtspConnectionTest, AStreamThatFailsIs503AtOnce)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 1, "", ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    stream().description = Description::failed;
    ChangeSignal::instance().announce();
    const Received refused = client_->response();
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.header("Retry-After"), "5") << "it may be there soon";
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
}

TEST_F(RtspConnectionTest, AStreamThatNeverGetsReadyIs503AfterTenSeconds)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 1, "", "") +
                  TestClient::text("OPTIONS", "*", 2, "", ""));
    awaitDeferral();
    time.advance(RtspConnection::maxDeferral - std::chrono::seconds(1));
    EXPECT_EQ(client_->receive(50).kind, Received::Kind::nothing);
    time.advance(std::chrono::milliseconds(1000));
    EXPECT_EQ(client_->response().status, 503);
    EXPECT_EQ(client_->response().status, 200);
}

TEST_F(RtspConnectionTest, EachRequestHasItsOwnTimeToWait)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("DESCRIBE", url(), 1, "", "") +
                  TestClient::text("DESCRIBE", url(), 2, "", ""));
    awaitDeferral();
    time.advance(RtspConnection::maxDeferral);
    EXPECT_EQ(client_->response().header("CSeq"), "1");
    awaitDeferral();
    EXPECT_EQ(client_->receive(50).kind, Received::Kind::nothing) << "the second starts to wait now";
    time.advance(RtspConnection::maxDeferral);
    EXPECT_EQ(client_->response().header("CSeq"), "2");
}

TEST_F(RtspConnectionTest, AClientThatGoesWhileItsRequestWaitsLeavesNothingBehind)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("SETUP", track(url(), 0), 1, tcp, ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    client_->close(true);
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0; }));
    stream().description = Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_EQ(server->sessionCount(), 0u);
}

TEST_F(RtspConnectionTest, AClientThatEndsWhileItsRequestWaitsLeavesNothingBehind)
{
    stream().description = Description::starting;
    client_->send(TestClient::text("SETUP", track(url(), 0), 1, tcp, ""));
    ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    client_->close();
    stream().description = Description::ready;
    ChangeSignal::instance().announce();
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 0 && server->sessionCount() == 0; }));
    EXPECT_EQ(LiveDispatcher::instance().trackCount(), 0u);
}

TEST_F(RtspConnectionTest, ASlowReaderLosesWholeFramesAndNobodyElseWaits)
{
    TestClient slow(server->port(), 4096);
    const std::string slowId = setUpTcp(slow, 1);
    slow.request("PLAY", url(), session(slowId));
    const std::string id = setUpTcp(*client_, 1);
    client_->request("PLAY", url(), session(id));

    constexpr int frames = 200;
    constexpr int packets = 30;
    int received = 0;
    for (int i = 0; i < frames; ++i)
    {
        frame(i % 10 == 0, packets);
        for (int packet = 0; packet < packets; ++packet)
        {
            received += client_->frame(0).isRtp() ? 1 : 0;
        }
    }
    EXPECT_EQ(received, frames * packets) << "the other viewer misses nothing";

    // The slow one gets whole frames with contiguous sequence numbers, and fewer of them.
    slow.send(TestClient::text("OPTIONS", "*", 50, "", ""));
    int slowReceived = 0;
    std::uint16_t last = 0;
    for (;;)
    {
        const Received item = slow.receive();
        ASSERT_NE(item.kind, Received::Kind::end);
        ASSERT_NE(item.kind, Received::Kind::nothing);
        if (item.kind == Received::Kind::response)
        {
            EXPECT_EQ(item.header("CSeq"), "50");
            break;
        }
        if (item.isRtp())
        {
            EXPECT_TRUE(slowReceived == 0 || item.sequence() == static_cast<std::uint16_t>(last + 1));
            last = item.sequence();
            ++slowReceived;
        }
    }
    EXPECT_LT(slowReceived, frames * packets);
    EXPECT_GT(slowReceived, 0);
}

/// `count` requests of one client.
std::string pipeline(const std::string& url, int count)
{
    std::string requests;
    for (int i = 1; i <= count; ++i)
    {
        requests += TestClient::text("DESCRIBE", url, i, "", "");
    }
    return requests;
}

TEST_F(RtspConnectionTest, ClientThatNeverReadsResponsesIsPausedAndThenClosed)
{
    TestClient mute(server->port(), 4096);
    const std::string requests = pipeline(url(), 200000);
    const std::size_t clientsOwn = 6u << 20;  // buffered by the sender's system
    ASSERT_GT(requests.size(), 2 * clientsOwn);
    EXPECT_LT(mute.sendSome(requests, 200), clientsOwn) << "the server takes requests without bound";
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
    EXPECT_EQ(server->connectionCount(), 2u);
    time.advance(std::chrono::milliseconds(config.limits.handshakeTimeout * 1000));
    EXPECT_TRUE(eventually([this] { return server->connectionCount() == 1; }));
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
}

TEST_F(RtspConnectionTest, AClientThatAsksFasterThanItReadsGetsEveryResponseInOrder)
{
    TestClient hasty(server->port(), 4096);
    constexpr int count = 3000;
    const std::string requests = pipeline(url(), count);
    std::size_t sent = 0;
    for (int i = 1; i <= count; ++i)
    {
        sent += hasty.sendSome(std::string_view(requests).substr(sent), 0);
        const Received response = hasty.response();
        ASSERT_EQ(response.status, 200);
        ASSERT_EQ(response.header("CSeq"), std::to_string(i));
    }
    EXPECT_EQ(sent, requests.size());
}

}  // namespace
}  // namespace refhost
