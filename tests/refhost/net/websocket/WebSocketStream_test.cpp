#include "refhost/net/websocket/WebSocketStream.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/refhost/net/websocket/WebSocketUnderTest.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using Status = ByteStream::Status;
using test::WebSocketPeer;
using test::WebSocketUnderTest;

/// The result of receiving until something else than `blocked` is reported.
class WebSocketStreamTest : public testing::Test
{
protected:
    void start(const std::string& received = "", std::size_t bytesAtOnce = 100000)
    {
        under_ = std::make_unique<WebSocketUnderTest>(bytesAtOnce, received);
    }

    void TearDown() override
    {
        runOn(loop_, [this] { stream().close(); });
    }

    ByteStream& stream()
    {
        return *under_->stream;
    }

    /// Attaches, receives until the end or a failure, and returns what came.
    std::string receiveAll(Status& last)
    {
        Signal over;
        std::string all;
        stream().attach(loop_,
                        [&](std::uint32_t)
                        {
                            char bytes[1000];
                            const ByteStream::Result result = stream().receive(bytes, sizeof bytes);
                            all.append(bytes, result.count);
                            last = result.status;
                            if (result.status == Status::ended || result.status == Status::failed)
                            {
                                stream().watchReceive(false);
                                over.set();
                            }
                        });
        EXPECT_TRUE(over.wait());
        runOn(loop_, [this] { stream().detach(); });
        return all;
    }

    EventLoop loop_{"websocket"};
    std::unique_ptr<WebSocketUnderTest> under_;
};

TEST_F(WebSocketStreamTest, BytesBehindTheHandshakeAreReceived)
{
    start(WebSocketPeer::frame(WebSocketPeer::binary, "abc"));
    under_->endWriting();
    Status last = Status::done;
    EXPECT_EQ(receiveAll(last), "abc");
    EXPECT_EQ(last, Status::ended);
}

TEST_F(WebSocketStreamTest, EachResponseAndEachFrameIsAMessage)
{
    start();
    const std::string first = "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";
    const std::string second = "RTSP/1.0 200 OK\r\nCSeq: 2\r\nContent-Length: 3\r\n\r\nabc";
    const std::string frame("$\0\0\x02xy", 6);
    const std::string responses = first + second;
    const std::string frames = frame + frame;
    const std::string_view parts[] = {responses, frames};
    runOn(loop_, [this] { stream().attach(loop_, [](std::uint32_t) {}); });
    const ByteStream::Result result = stream().send(parts, 2, false);
    EXPECT_TRUE(result.status == Status::done || result.status == Status::blocked);
    for (int i = 0; result.status == Status::blocked && i < 1000; ++i)
    {
        runOn(loop_, [] {});
    }
    if (result.status == Status::blocked)
    {
        EXPECT_EQ(stream().send(parts, 2, false).count, responses.size() + frames.size());
    }
    for (const std::string& expected : {first, second, frame, frame})
    {
        const auto arrived = under_->next();
        ASSERT_TRUE(arrived);
        EXPECT_EQ(arrived->opcode, WebSocketPeer::binary);
        EXPECT_EQ(arrived->payload, expected);
    }
}

TEST_F(WebSocketStreamTest, WholeMessagesAreAcceptedUpToTheBound)
{
    start();
    std::string frame("$\0\x40\0", 4);
    frame.append(0x4000, 'x');
    std::string frames;
    for (int i = 0; i < 6; ++i)
    {
        frames += frame;
    }
    Signal sendable;
    stream().watchSend(true);
    runOn(loop_, [&] { stream().attach(loop_, [&](std::uint32_t) { sendable.set(); }); });
    EXPECT_TRUE(sendable.wait());
    runOn(loop_, [this] { stream().detach(); });
    under_->carrier->stall(true);
    const std::string_view part = frames;
    EXPECT_EQ(stream().send(&part, 1, false).count, 3 * frame.size()) << "four are more than 64 KiB";
    EXPECT_EQ(stream().send(&part, 1, false).status, Status::blocked);
}

TEST_F(WebSocketStreamTest, PingsAreAnswered)
{
    start();
    under_->carrier->write(WebSocketPeer::frame(WebSocketPeer::ping, "abc"));
    runOn(loop_,
          [this]
          {
              stream().attach(loop_,
                              [this](std::uint32_t)
                              {
                                  char bytes[100];
                                  stream().receive(bytes, sizeof bytes);
                              });
          });
    const auto pong = under_->next();
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->opcode, WebSocketPeer::pong);
    EXPECT_EQ(pong->payload, "abc");
}

TEST_F(WebSocketStreamTest, AClientThatReadsNoPongsIsNotReadForever)
{
    start();
    under_->carrier->stall(true);
    const std::string pings = [&]
    {
        std::string all;
        while (all.size() < 4 * WebSocketStream::maxAccepted)
        {
            all += WebSocketPeer::frame(WebSocketPeer::ping, std::string(100, 'p'));
        }
        return all;
    }();
    under_->carrier->write(pings);
    std::atomic<int> reads{0};
    runOn(loop_,
          [&]
          {
              stream().attach(loop_,
                              [&](std::uint32_t)
                              {
                                  char bytes[100];
                                  stream().receive(bytes, sizeof bytes);
                                  ++reads;
                              });
          });
    int before = -1;
    while (reads != before)
    {
        before = reads;
        for (int i = 0; i < 50; ++i)
        {
            runOn(loop_, [] {});
        }
    }
    EXPECT_FALSE(under_->carrier->allReceived());
    under_->carrier->stall(false);
    const auto pong = under_->next();
    EXPECT_TRUE(pong && pong->opcode == WebSocketPeer::pong);
    while (!under_->carrier->allReceived() && !HasFailure())
    {
        EXPECT_TRUE(under_->next());
    }
    runOn(loop_, [this] { stream().detach(); });
}

TEST_F(WebSocketStreamTest, AViolationIsAnsweredAndFails)
{
    start();
    under_->carrier->write(WebSocketPeer::bytesOf({WebSocketPeer::binary, "abc", true, false}));
    Status last = Status::done;
    EXPECT_EQ(receiveAll(last), "");
    EXPECT_EQ(last, Status::failed);
    const std::string_view part = "x";
    EXPECT_EQ(stream().send(&part, 1, false).status, Status::failed);
}

TEST_F(WebSocketStreamTest, AnEndWithoutACloseFrameIsAFailure)
{
    start();
    under_->write("abc");
    under_->carrier->endWriting();
    Status last = Status::done;
    EXPECT_EQ(receiveAll(last), "abc");
    EXPECT_EQ(last, Status::failed);
}

}  // namespace
}  // namespace refhost
