// Whole sessions of an RtspConnection over streams that carry their bytes in unusual portions.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "refhost/net/tunnel/TunnelStream.h"
#include "refhost/net/websocket/WebSocketStream.h"
#include "tests/refhost/net/MemoryStream.h"
#include "tests/refhost/net/SealedStream.h"
#include "tests/refhost/net/tunnel/TunnelUnderTest.h"
#include "tests/refhost/net/websocket/WebSocketPeer.h"
#include "tests/refhost/rtsp/connection/StreamFixture.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using test::MemoryClient;
using test::MemoryStream;
using test::Received;
using test::SealedStream;
using test::TestClient;
using test::WebSocketPeer;

/// The client of a SealedStream.
class SealedClient : public MemoryClient
{
public:
    explicit SealedClient(const std::shared_ptr<MemoryStream>& stream) : MemoryClient(stream, stream)
    {
        MemoryClient::trySend(std::string(SealedStream::hello));
    }

    bool trySend(const std::string& bytes) override
    {
        return MemoryClient::trySend(SealedStream::seal(bytes));
    }

protected:
    std::string wait(int milliseconds) override
    {
        constexpr std::size_t replySize = SealedStream::reply.size();
        std::string bytes;
        while (bytes.empty())
        {
            const std::string more = MemoryClient::wait(milliseconds);
            records_ += more;
            if (!replied_ && records_.size() >= replySize)
            {
                EXPECT_EQ(records_.substr(0, replySize), SealedStream::reply);
                records_.erase(0, replySize);
                replied_ = true;
            }
            bytes = replied_ ? SealedStream::unseal(records_) : "";
            if (more.empty())
            {
                break;
            }
        }
        return bytes;
    }

private:
    std::string records_;
    bool replied_ = false;
};

/// The client of a tunnel.
class TunnelledClient : public MemoryClient
{
public:
    using MemoryClient::MemoryClient;

    bool trySend(const std::string& bytes) override
    {
        return MemoryClient::trySend(test::base64(bytes));
    }

protected:
    std::string wait(int milliseconds) override
    {
        std::string bytes = MemoryClient::wait(milliseconds);
        const std::size_t dropped = std::min(greetingLeft_, bytes.size());
        greetingLeft_ -= dropped;
        bytes.erase(0, dropped);
        return bytes.empty() && dropped != 0 ? wait(milliseconds) : bytes;
    }

private:
    std::size_t greetingLeft_ = TunnelHeaders::greeting.size();
};

/// The client of a WebSocket.
class WebSocketMemoryClient : public MemoryClient
{
public:
    explicit WebSocketMemoryClient(const std::shared_ptr<MemoryStream>& stream) : MemoryClient(stream, stream)
    {
    }

    bool trySend(const std::string& bytes) override
    {
        return MemoryClient::trySend(WebSocketPeer::frame(WebSocketPeer::binary, bytes));
    }

protected:
    std::string wait(int milliseconds) override
    {
        for (;;)
        {
            while (const auto arrived = WebSocketPeer::cut(bytes_))
            {
                if (arrived->opcode == WebSocketPeer::binary)
                {
                    return arrived->payload;
                }
            }
            const std::string more = MemoryClient::wait(milliseconds);
            if (more.empty())
            {
                return {};
            }
            bytes_ += more;
        }
    }

private:
    std::string bytes_;
};

class ByteStreamSession;

struct Kind
{
    const char* name;
    std::function<void(ByteStreamSession&)> connect;

    friend std::ostream& operator<<(std::ostream& out, const Kind& kind)
    {
        return out << kind.name;
    }
};

class ByteStreamSession : public test::StreamFixture, public testing::WithParamInterface<Kind>
{
public:
    /// Connects a client over a stream that transfers at most that many bytes at once.
    void connect(std::size_t bytesAtOnce)
    {
        connectMemory(bytesAtOnce);
    }

    void connectSealed()
    {
        const auto memory = std::make_shared<MemoryStream>();
        carrier_ = memory;
        connectOver(std::make_shared<SealedStream>(memory), std::make_unique<SealedClient>(memory));
    }

    void connectWebSocket()
    {
        const auto memory = std::make_shared<MemoryStream>();
        carrier_ = memory;
        connectOver(std::make_shared<WebSocketStream>(memory, "", ""),
                    std::make_unique<WebSocketMemoryClient>(memory));
    }

    /// Connects a client through a tunnel whose POST another loop accepted and read the first line of.
    void connectTunnel()
    {
        const auto output = std::make_shared<MemoryStream>();
        const auto input = std::make_shared<MemoryStream>();
        carrier_ = output;
        input->write("POST\n");
        Signal whole;
        input->attach(other_->events(),
                      [&](std::uint32_t)
                      {
                          char byte = 0;
                          if (input->receive(&byte, 1).count == 1 && byte == '\n')
                          {
                              input->detach();
                              auto tunnel = std::make_shared<TunnelStream>(output, "c", nullptr, nullptr);
                              TunnelStream::Post post{input, std::nullopt, "", nullptr};
                              EXPECT_TRUE(tunnel->addPost(post));
                              connectOver(std::move(tunnel),
                                          std::make_unique<TunnelledClient>(output, input));
                              whole.set();
                          }
                      });
        ASSERT_TRUE(whole.wait());
    }

protected:
    /// Takes the packets of one frame of stream 1/0 and checks that none is missing.
    void expectFrame()
    {
        for (int packet = 0; packet < 3; ++packet)
        {
            const Received rtp = client_->frame(0);
            ASSERT_TRUE(rtp.isRtp());
            EXPECT_TRUE(last_ < 0 || rtp.sequence() == static_cast<std::uint16_t>(last_ + 1));
            last_ = rtp.sequence();
        }
    }

    void expectReceiverReportIsActivity()
    {
        time.advance(std::chrono::milliseconds(timeoutMs - 5000));
        client_->send(std::string("$\x01\x00\x08\x80\xc9\x00\x01\x00\x00\x00\x2a", 12));
        EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
        time.advance(std::chrono::milliseconds(10000));
        EXPECT_EQ(services_.sessions.endExpired(services_.now()), 0u);
    }

    void expectPipelinedRequestsAreAnsweredInOrder(const std::string& id)
    {
        client_->send(TestClient::text("GET_PARAMETER", url(), 1001, session(id), "") +
                      TestClient::text("OPTIONS", "*", 1002, "", ""));
        EXPECT_EQ(client_->response().header("CSeq"), "1001");
        EXPECT_EQ(client_->response().header("CSeq"), "1002");
    }

    int last_ = -1;
};

TEST_P(ByteStreamSession, IsServedCompletely)
{
    // The real clock, which transports report, is behind the server's then.
    time.advance(std::chrono::milliseconds(-timeoutMs));
    GetParam().connect(*this);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
    const Received described = client_->request("DESCRIBE", url());
    EXPECT_EQ(described.status, 200);
    EXPECT_NE(described.body.find("m=video"), std::string::npos);
    const Received set = client_->request("SETUP", track(url(), 0), tcp);
    ASSERT_EQ(set.status, 200);
    EXPECT_NE(set.header("Transport").find("interleaved=0-1"), std::string::npos);
    const std::string id = set.session();

    frame(true);
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
    expectFrame();
    for (int i = 0; i < 3; ++i)
    {
        frame(false);
        expectFrame();
    }
    expectPipelinedRequestsAreAnsweredInOrder(id);

    EXPECT_EQ(client_->request("PAUSE", url(), session(id)).status, 200);
    frame(false);
    EXPECT_EQ(client_->request("GET_PARAMETER", url(), session(id)).status, 200);
    EXPECT_EQ(client_->receive(20).kind, Received::Kind::nothing) << "it pauses";
    frame(true);
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
    expectFrame();
    expectReceiverReportIsActivity();

    EXPECT_EQ(client_->request("TEARDOWN", url(), session(id)).status, 200);
    EXPECT_EQ(services_.sessions.count(), 0u);
    EXPECT_EQ(client_->request("OPTIONS", "*").status, 200);
}

TEST_P(ByteStreamSession, EndsWithItsConnection)
{
    GetParam().connect(*this);
    ASSERT_NE(client_, nullptr);
    const std::string id = client_->request("SETUP", track(url(), 0), tcp).session();
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
    loop_->closeAll();
    EXPECT_TRUE(client_->ended());
    EXPECT_EQ(services_.sessions.count(), 0u);
    frame(true);
}

TEST_P(ByteStreamSession, EndsWithAStreamThatFails)
{
    GetParam().connect(*this);
    ASSERT_NE(client_, nullptr);
    const std::string id = client_->request("SETUP", track(url(), 0), tcp).session();
    EXPECT_EQ(client_->request("PLAY", url(), session(id)).status, 200);
    carrier_.lock()->fail();
    EXPECT_TRUE(client_->ended());
    EXPECT_TRUE(eventually([this] { return services_.sessions.count() == 0; }));
}

TEST_P(ByteStreamSession, EndsWithItsClient)
{
    GetParam().connect(*this);
    ASSERT_NE(client_, nullptr);
    EXPECT_EQ(client_->request("SETUP", track(url(), 0), tcp).status, 200);
    carrier_.lock()->endWriting();
    EXPECT_TRUE(client_->ended());
    EXPECT_TRUE(eventually([this] { return services_.sessions.count() == 0; }));
}

TEST_P(ByteStreamSession, LastResponseArrivesCompletely)
{
    GetParam().connect(*this);
    ASSERT_NE(client_, nullptr);
    // Too many headers to find the end of the request: answered, then nothing more is read.
    std::string headers;
    for (int i = 0; i < 100; ++i)
    {
        headers += "X-Header: x\r\n";
    }
    client_->send(TestClient::text("OPTIONS", "*", 1, headers, ""));
    EXPECT_GE(client_->response().status, 400);
    EXPECT_TRUE(client_->ended());
}

INSTANTIATE_TEST_SUITE_P(
    Over, ByteStreamSession,
    testing::Values(Kind{"SingleBytes", [](ByteStreamSession& session) { session.connect(1); }},
                    Kind{"SevenBytesAtOnce", [](ByteStreamSession& session) { session.connect(7); }},
                    Kind{"LargeParts", [](ByteStreamSession& session) { session.connect(100000); }},
                    Kind{"ASealedStream", [](ByteStreamSession& session) { session.connectSealed(); }},
                    Kind{"ATunnel", [](ByteStreamSession& session) { session.connectTunnel(); }},
                    Kind{"AWebSocket", [](ByteStreamSession& session) { session.connectWebSocket(); }}),
    [](const testing::TestParamInfo<Kind>& tested) { return tested.param.name; });

}  // namespace
}  // namespace refhost
