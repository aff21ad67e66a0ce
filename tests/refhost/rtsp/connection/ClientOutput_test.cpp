#include "refhost/rtsp/connection/ClientOutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "refhost/net/TcpStream.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/net/ForwardingStream.h"

namespace refhost
{
namespace
{

class CountingListener : public TransportListener
{
public:
    void onTransportReady() override
    {
        ++ready;
    }

    void onRtcp(const std::uint8_t*, std::size_t) override {}

    std::atomic<int> ready{0};
};

/// Shows whether it is watched for `sendable`.
class ObservedStream : public test::ForwardingStream
{
public:
    ObservedStream(std::shared_ptr<ByteStream> inner, std::atomic<bool>& watched)
        : ForwardingStream(std::move(inner)), watched_(watched)
    {
    }

    void watchSend(bool on) override
    {
        watched_ = on;
    }

private:
    std::atomic<bool>& watched_;
};

class ClientOutputTest : public testing::Test
{
protected:
    ClientOutputTest()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sockets_), 0);
        const int size = 4096;
        setsockopt(sockets_[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        stream_ = std::make_unique<ObservedStream>(
            std::make_shared<TcpStream>(Descriptor(sockets_[0]), SocketAddress()), watched_);
        makeOutput();
    }

    ~ClientOutputTest() override
    {
        output_.reset();
        closeClient();
    }

    void makeOutput()
    {
        output_ = std::make_unique<ClientOutput>(*stream_, 10000, clock_);
    }

    void closeClient()
    {
        if (sockets_[1] >= 0)
        {
            ::close(sockets_[1]);
            sockets_[1] = -1;
        }
    }

    SendStatus frames(const std::string& bytes)
    {
        return output_->sendFrames(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }

    /// Everything received so far.
    std::string read()
    {
        std::string all;
        char bytes[65536];
        for (ssize_t count = ::recv(sockets_[1], bytes, sizeof bytes, 0); count > 0;
             count = ::recv(sockets_[1], bytes, sizeof bytes, 0))
        {
            all.append(bytes, static_cast<std::size_t>(count));
        }
        return all;
    }

    /// Writes frames until one is refused. \returns the bytes taken
    std::string congest()
    {
        std::string taken;
        char fill = 'a';
        for (;;)
        {
            const std::string bytes(1501, fill++);
            if (frames(bytes) != SendStatus::sent)
            {
                return taken;
            }
            taken += bytes;
        }
    }

    int sockets_[2] = {-1, -1};
    std::atomic<bool> watched_{false};
    test::ManualClock clock_;
    std::unique_ptr<ByteStream> stream_;
    std::unique_ptr<ClientOutput> output_;
};

TEST_F(ClientOutputTest, WritesAtOnceWhatTheSocketTakes)
{
    EXPECT_TRUE(output_->sendResponse("response"));
    EXPECT_EQ(frames("frames"), SendStatus::sent);
    EXPECT_EQ(read(), "responseframes");
    EXPECT_FALSE(watched_);
    EXPECT_EQ(output_->bytesTaken(), 14u);
}

TEST_F(ClientOutputTest, FramesAreTakenWholeOrNotAtAll)
{
    const std::string taken = congest();
    EXPECT_TRUE(watched_);
    std::string arrived = read();
    while (!output_->empty())
    {
        ASSERT_TRUE(output_->onWritable());
        arrived += read();
    }
    EXPECT_EQ(arrived, taken);
    ASSERT_TRUE(output_->onWritable());
    EXPECT_FALSE(watched_);
    EXPECT_EQ(frames("x"), SendStatus::sent);
}

TEST_F(ClientOutputTest, ResponsesWaitBehindFramesInTheirOrder)
{
    const std::string taken = congest();
    EXPECT_TRUE(output_->sendResponse("first"));
    EXPECT_TRUE(output_->sendResponse("second"));
    std::string arrived = read();
    while (!output_->empty())
    {
        ASSERT_TRUE(output_->onWritable());
        arrived += read();
    }
    EXPECT_EQ(arrived, taken + "firstsecond");
}

TEST_F(ClientOutputTest, AClientThatDoesNotReadItsResponsesIsGivenUp)
{
    congest();
    const std::string response(1000, 'r');
    int taken = 0;
    while (output_->sendResponse(response))
    {
        ASSERT_LT(++taken, 100) << "without bound";
    }
    EXPECT_GE(taken, 9);
    EXPECT_EQ(frames("x"), SendStatus::closed);
    EXPECT_FALSE(output_->onWritable());
}

TEST_F(ClientOutputTest, BytesThatTheClientReadAreNotHeldAnyMore)
{
    congest();
    const std::string response(1000, 'r');
    for (int i = 0; i < 8; ++i)
    {
        ASSERT_TRUE(output_->sendResponse(response));
    }
    for (int i = 0; i < 2000; ++i)
    {
        ASSERT_TRUE(output_->sendResponse(response)) << "the client reads as fast as it asks, after " << i;
        char bytes[1000];
        ASSERT_EQ(::recv(sockets_[1], bytes, sizeof bytes, 0), 1000);
        ASSERT_TRUE(output_->onWritable());
        ASSERT_FALSE(output_->empty()) << "something always waits";
        ASSERT_LE(output_->held(), 2 * 10000u + 2 * 1501);
    }
}

TEST_F(ClientOutputTest, FramesThatWaitDoNotCountAgainstTheResponses)
{
    ASSERT_EQ(frames(std::string(200000, 'k')), SendStatus::sent) << "a key frame, of which most waits";
    EXPECT_EQ(output_->waitingResponses(), 0u);
    EXPECT_TRUE(output_->sendResponse("first"));
    EXPECT_TRUE(output_->sendResponse("second"));
    EXPECT_EQ(output_->waitingResponses(), 11u);
    while (!output_->empty())
    {
        read();
        ASSERT_TRUE(output_->onWritable());
        EXPECT_LE(output_->waitingResponses(), 11u);
    }
    EXPECT_EQ(output_->waitingResponses(), 0u);
    EXPECT_LT(output_->held(), 100u) << "the memory goes, too";
}

TEST_F(ClientOutputTest, ListenersAreNotifiedOnceWhenFramesAreTakenAgain)
{
    const auto listener = std::make_shared<CountingListener>();
    congest();
    output_->notifyWhenWritable(listener);
    EXPECT_EQ(listener->ready, 0);
    read();
    while (!output_->empty())
    {
        ASSERT_TRUE(output_->onWritable());
        read();
    }
    ASSERT_TRUE(output_->onWritable());
    EXPECT_EQ(listener->ready, 1);
    ASSERT_TRUE(output_->onWritable());
    EXPECT_EQ(listener->ready, 1);
}

TEST_F(ClientOutputTest, LateListenerIsNotifiedByTheLoopNotInsideTheCall)
{
    const auto listener = std::make_shared<CountingListener>();
    output_->notifyWhenWritable(listener);
    EXPECT_EQ(listener->ready, 0);
    EXPECT_TRUE(watched_);
    ASSERT_TRUE(output_->onWritable());
    EXPECT_EQ(listener->ready, 1);
    EXPECT_FALSE(watched_);
}

TEST_F(ClientOutputTest, ACorkGathersResponsesAndSmallFramesInTheirOrder)
{
    std::string buffer;
    output_->cork(buffer);
    EXPECT_TRUE(output_->sendResponse("first"));
    EXPECT_EQ(frames("report"), SendStatus::sent);
    EXPECT_TRUE(output_->sendResponse("second"));
    EXPECT_EQ(read(), "");
    EXPECT_FALSE(output_->empty());
    output_->uncork();
    EXPECT_EQ(read(), "firstreportsecond");
    EXPECT_TRUE(output_->empty());
    EXPECT_EQ(buffer, "");
    EXPECT_TRUE(output_->sendResponse("third"));
    EXPECT_EQ(read(), "third");
}

TEST_F(ClientOutputTest, AFlushWritesWhatTheCorkGatheredAndGoesOnGathering)
{
    std::string buffer;
    output_->cork(buffer);
    output_->sendResponse("first");
    output_->flush();
    EXPECT_EQ(read(), "first");
    output_->sendResponse("second");
    EXPECT_EQ(read(), "");
    output_->uncork();
    EXPECT_EQ(read(), "second");
}

TEST_F(ClientOutputTest, AFlushWithoutACorkDoesNothing)
{
    output_->flush();
    EXPECT_EQ(read(), "");
}

TEST_F(ClientOutputTest, ALargeFrameTakesWhatTheCorkGatheredAlong)
{
    std::string buffer;
    output_->cork(buffer);
    output_->sendResponse("response");
    const std::string frame(2000, 'p');
    EXPECT_EQ(frames(frame), SendStatus::sent);
    EXPECT_EQ(read(), "response" + frame);
    output_->uncork();
    EXPECT_EQ(read(), "");
}

TEST_F(ClientOutputTest, ACorkIsBounded)
{
    std::string buffer;
    output_->cork(buffer);
    const std::string response(1000, 'r');
    int taken = 0;
    while (output_->sendResponse(response))
    {
        ASSERT_LT(++taken, 200) << "without bound";
        ASSERT_LT(buffer.size(), 2 * ClientOutput::maxGathered);
    }
    output_->uncork();
}

TEST_F(ClientOutputTest, WhatTheCorkGatheredWaitsBehindWhatTheSocketDidNotTake)
{
    const std::string taken = congest();
    std::string buffer;
    output_->cork(buffer);
    output_->sendResponse("first");
    EXPECT_EQ(frames(std::string(2000, 'x')), SendStatus::congested);
    output_->sendResponse("second");
    output_->uncork();
    std::string arrived = read();
    while (!output_->empty())
    {
        ASSERT_TRUE(output_->onWritable());
        arrived += read();
    }
    EXPECT_EQ(arrived, taken + "firstsecond");
}

/// Takes and keeps one byte at a time, of the first non-empty part.
class SingleByteStream : public test::ForwardingStream
{
public:
    using ForwardingStream::ForwardingStream;

    Result send(const std::string_view* parts, std::size_t count, bool) override
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            if (!parts[i].empty())
            {
                taken += parts[i][0];
                return {Status::done, 1};
            }
        }
        return {Status::failed};
    }

    std::string taken;
};

TEST_F(ClientOutputTest, ShortWritesGoOnWhereTheyStopped)
{
    SingleByteStream stream(std::make_shared<TcpStream>(Descriptor(), SocketAddress()));
    const test::ManualClock clock;
    ClientOutput output(stream, 10000, clock);
    std::string buffer;
    output.cork(buffer);
    output.sendResponse("response");
    const std::string frame(2000, 'f');
    EXPECT_EQ(output.sendFrames(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size()),
              SendStatus::sent);
    output.uncork();
    EXPECT_EQ(stream.taken, "response" + frame);
    EXPECT_TRUE(output.empty());
}

TEST_F(ClientOutputTest, NothingGatheredIsWrittenAfterClose)
{
    std::string buffer;
    output_->cork(buffer);
    output_->sendResponse("first");
    output_->close();
    output_->uncork();
    EXPECT_EQ(read(), "");
    EXPECT_EQ(buffer, "");
}

class ClientOutputBurstTest : public ClientOutputTest
{
protected:
    ClientOutputBurstTest()
    {
        const int size = 1024 * 1024;
        setsockopt(sockets_[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        while (frames(block_) == SendStatus::sent)
        {
            taken_ += block_.size();
        }
    }

    const std::string block_ = std::string(10000, 'x');
    std::size_t taken_ = 0;
};

TEST_F(ClientOutputBurstTest, EndsWithTheWriteThatPassesTheLimit)
{
    EXPECT_EQ(taken_, 40000u);
    EXPECT_TRUE(watched_);
    EXPECT_TRUE(output_->empty()) << "the socket took everything";
}

TEST_F(ClientOutputBurstTest, ResponsesAreNotHeldUp)
{
    EXPECT_TRUE(output_->sendResponse("now"));
    const std::string arrived = read();
    EXPECT_EQ(arrived.substr(arrived.size() - 3), "now");
}

TEST_F(ClientOutputBurstTest, ReportsAreNotHeldUp)
{
    EXPECT_EQ(frames("report"), SendStatus::sent);
    EXPECT_EQ(frames(block_), SendStatus::congested);
}

TEST_F(ClientOutputBurstTest, NextBurstStartsWithTheLoopsNextIteration)
{
    EXPECT_EQ(frames(block_), SendStatus::congested);
    ASSERT_TRUE(output_->onWritable());
    EXPECT_EQ(frames(block_), SendStatus::sent);
}

TEST_F(ClientOutputTest, FramesAtTheirUsualDistanceAreNoBurst)
{
    const std::string frame(3000, 'x');
    for (int i = 0; i < 100; ++i)
    {
        ASSERT_EQ(frames(frame), SendStatus::sent);
        read();
        clock_.advance(std::chrono::milliseconds(20));
    }
}

TEST_F(ClientOutputTest, AClosedSocketTakesNothing)
{
    closeClient();
    EXPECT_EQ(frames("x"), SendStatus::closed);
    EXPECT_FALSE(output_->sendResponse("x"));
}

TEST_F(ClientOutputTest, NothingIsWrittenAfterClose)
{
    output_->close();
    EXPECT_EQ(frames("x"), SendStatus::closed);
    EXPECT_FALSE(output_->sendResponse("x"));
    output_->notifyWhenWritable(std::make_shared<CountingListener>());
    EXPECT_FALSE(output_->onWritable());
    EXPECT_EQ(read(), "");
}

TEST_F(ClientOutputTest, WritersOfSeveralThreadsDoNotMixTheirBytes)
{
    std::atomic<int> writers{3};
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c'})
    {
        threads.emplace_back(
            [this, letter, &writers]
            {
                const std::string block(100, letter);
                for (int i = 0; i < 200;)
                {
                    i += frames(block) == SendStatus::sent ? 1 : 0;
                }
                --writers;
            });
    }
    std::string arrived;
    while (writers > 0 || !output_->empty())
    {
        arrived += read();
        if (watched_)
        {
            output_->onWritable();
        }
    }
    arrived += read();
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    ASSERT_EQ(arrived.size(), 60000u);
    for (std::size_t i = 0; i < arrived.size(); i += 100)
    {
        ASSERT_EQ(arrived.substr(i, 100), std::string(100, arrived[i]));
    }
}

}  // namespace
}  // namespace refhost
