// The contract of ByteStream, for every implementation.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include "refhost/net/TcpStream.h"
#include "tests/refhost/net/LoopbackPair.h"
#include "tests/refhost/net/MemoryStream.h"
#include "tests/refhost/net/StreamUnderTest.h"
#include "tests/refhost/net/tls/TlsUnderTest.h"
#include "tests/refhost/net/tunnel/TunnelUnderTest.h"
#include "tests/refhost/net/websocket/WebSocketUnderTest.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using Status = ByteStream::Status;
using test::StreamUnderTest;
using test::TlsPeer;
using test::TlsUnderTest;
using test::TunnelUnderTest;
using test::WebSocketUnderTest;

class TcpUnderTest : public StreamUnderTest
{
public:
    TcpUnderTest()
    {
        stream = std::make_shared<TcpStream>(std::move(sockets_.near), sockets_.peer);
    }

    void write(const std::string& bytes) override
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(sockets_.far.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    std::string read() override
    {
        char bytes[65536];
        const ssize_t count = ::recv(sockets_.far.get(), bytes, sizeof bytes, 0);
        return std::string(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }

    void endWriting() override
    {
        ::shutdown(sockets_.far.get(), SHUT_WR);
    }

    bool sawEnd() override
    {
        char bytes[65536];
        ssize_t count = 1;
        while (count > 0)
        {
            count = ::recv(sockets_.far.get(), bytes, sizeof bytes, 0);
        }
        return count == 0;
    }

private:
    test::LoopbackPair sockets_;
};

class MemoryUnderTest : public StreamUnderTest
{
public:
    MemoryUnderTest()
    {
        stream = memory_;
    }

    void write(const std::string& bytes) override
    {
        memory_->write(bytes);
    }

    std::string read() override
    {
        return memory_->read(10000);
    }

    void endWriting() override
    {
        memory_->endWriting();
    }

    bool sawEnd() override
    {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        while (!memory_->ended() && std::chrono::steady_clock::now() < deadline)
        {
            memory_->read(10);
        }
        return memory_->ended();
    }

private:
    const std::shared_ptr<test::MemoryStream> memory_ = std::make_shared<test::MemoryStream>();
};

struct Kind
{
    const char* name;
    std::function<std::unique_ptr<StreamUnderTest>()> make;

    friend std::ostream& operator<<(std::ostream& out, const Kind& kind)
    {
        return out << kind.name;
    }
};

class ByteStreamContract : public testing::TestWithParam<Kind>
{
protected:
    void TearDown() override
    {
        runOn(*owner_, [this] { stream().close(); });
    }

    ByteStream& stream()
    {
        return *under_->stream;
    }

    /// Attaches the stream, collects received bytes and counts reports.
    void attach(EventLoop& loop)
    {
        owner_ = &loop;
        stream().attach(loop,
                        [this, &loop](std::uint32_t ready)
                        {
                            EXPECT_TRUE(loop.onLoopThread());
                            reported_ |= ready;
                            ++reports_;
                            if ((ready & ByteStream::receivable) != 0 && receives_)
                            {
                                receive();
                            }
                            if ((ready & ByteStream::sendable) != 0)
                            {
                                sendRest();
                            }
                        });
    }

    void receive()
    {
        char bytes[16];
        const ByteStream::Result result = stream().receive(bytes, sizeof bytes);
        EXPECT_EQ(result.count != 0, result.status == Status::done);
        const std::lock_guard<std::mutex> guard(mutex_);
        received_.append(bytes, result.count);
        ended_ = ended_ || result.status == Status::ended;
        if (ended_)
        {
            stream().watchReceive(false);
        }
    }

    /// Sends rest_ in two parts, and watches `sendable` while any of it remains.
    void sendRest()
    {
        while (!rest_.empty())
        {
            const std::string_view all = rest_;
            const std::string_view parts[] = {all.substr(0, all.size() / 2), all.substr(all.size() / 2)};
            const ByteStream::Result result = stream().send(parts, 2, false);
            ASSERT_NE(result.status, Status::failed);
            rest_.erase(0, result.count);
            if (result.status == Status::blocked)
            {
                stream().watchSend(true);
                return;
            }
        }
        stream().watchSend(false);
        sentAll_ = true;
    }

    std::string received()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return received_;
    }

    template <class Condition>
    static bool eventually(const Condition& holds)
    {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        while (!holds())
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    /// Waits for a few iterations of `loop`.
    static void iterate(EventLoop& loop)
    {
        for (int i = 0; i < 3; ++i)
        {
            runOn(loop, [] {});
        }
    }

    EventLoop first_{"first"};
    EventLoop second_{"second"};
    EventLoop* owner_ = &first_;
    const std::unique_ptr<StreamUnderTest> under_ = GetParam().make();
    std::atomic<std::uint32_t> reported_{0};
    std::atomic<int> reports_{0};
    std::atomic<bool> receives_{true};
    std::atomic<bool> sentAll_{false};
    std::atomic<bool> ended_{false};
    std::mutex mutex_;
    std::string received_;
    std::string rest_;  // the loop's while attached
};

TEST_P(ByteStreamContract, PeersBytesAreReceivedInOrderThenItsEnd)
{
    attach(first_);
    under_->write("one ");
    under_->write("two");
    under_->endWriting();
    EXPECT_TRUE(eventually([this] { return ended_.load(); }));
    EXPECT_EQ(received(), "one two");
}

TEST_P(ByteStreamContract, ReceivableIsReportedUntilAllBytesAreReceived)
{
    receives_ = false;
    attach(first_);
    under_->write("x");
    EXPECT_TRUE(eventually([this] { return reports_ > 3; }));
    EXPECT_EQ(reported_, ByteStream::receivable);
    receives_ = true;
    EXPECT_TRUE(eventually([this] { return received() == "x"; }));
}

TEST_P(ByteStreamContract, UnwatchedEventsAreNotReported)
{
    stream().watchReceive(false);
    attach(first_);
    under_->write("x");
    iterate(first_);
    EXPECT_EQ(reports_, 0);
    stream().watchReceive(true);
    EXPECT_TRUE(eventually([this] { return received() == "x"; }));
}

TEST_P(ByteStreamContract, SendableIsReportedOnlyWhileWatched)
{
    stream().watchReceive(false);
    attach(first_);
    iterate(first_);
    EXPECT_EQ(reports_, 0);
    stream().watchSend(true);
    EXPECT_TRUE(eventually([this] { return sentAll_.load(); })) << "nothing to send: not watched any more";
    EXPECT_EQ(reported_, ByteStream::sendable);
}

TEST_P(ByteStreamContract, PartsAreSentInOrderHoweverOftenSendBlocks)
{
    std::string all;
    for (int i = 0; i < 500; ++i)
    {
        all += std::to_string(i) + " ";
    }
    rest_ = all;
    attach(first_);
    runOn(first_, [this] { sendRest(); });
    std::string arrived;
    while (arrived.size() < all.size())
    {
        const std::string more = under_->read();
        ASSERT_FALSE(more.empty()) << "after " << arrived.size() << " of " << all.size();
        arrived += more;
    }
    EXPECT_EQ(arrived, all);
}

TEST_P(ByteStreamContract, UnacceptedBytesMayBeReplaced)
{
    attach(first_);
    std::string expected;
    for (char letter = 'a'; letter <= 'z'; ++letter)
    {
        // The unaccepted bytes of this one are discarded.
        stream().watchSend(true);
        iterate(first_);
        const std::string bytes(1000, letter);
        std::size_t taken = 0;
        runOn(first_,
              [&]
              {
                  const std::string_view part = bytes;
                  const ByteStream::Result result = stream().send(&part, 1, letter != 'z');
                  ASSERT_NE(result.status, Status::failed);
                  taken = result.count;
              });
        expected.append(taken, letter);
    }
    rest_ = "end";
    expected += rest_;
    runOn(first_, [this] { sendRest(); });
    std::string arrived;
    while (arrived.size() < expected.size())
    {
        const std::string more = under_->read();
        ASSERT_FALSE(more.empty());
        arrived += more;
    }
    EXPECT_EQ(arrived, expected);
}

TEST_P(ByteStreamContract, DetachedStreamReportsNothing)
{
    receives_ = false;
    attach(first_);
    under_->write("x");
    EXPECT_TRUE(eventually([this] { return reports_ > 0; }));
    runOn(first_, [this] { stream().detach(); });
    const int before = reports_;
    iterate(first_);
    EXPECT_EQ(reports_, before);
    stream().detach();
}

TEST_P(ByteStreamContract, MovesToAnotherLoopWithWatchedEventsAndPendingBytes)
{
    receives_ = false;
    attach(first_);
    under_->write("here ");
    EXPECT_TRUE(eventually([this] { return reports_ > 0; }));
    runOn(first_,
          [this]
          {
              stream().detach();
              stream().watchSend(true);
          });
    under_->write("and there");
    receives_ = true;
    reported_ = 0;
    attach(second_);  // its handler checks the thread
    EXPECT_TRUE(eventually([this] { return received() == "here and there"; })) << received();
    // Two connections may report them one after the other.
    EXPECT_TRUE(eventually([this] { return reported_ == (ByteStream::receivable | ByteStream::sendable); }));
}

TEST_P(ByteStreamContract, MovesBetweenLoopsFromItsOwnHandler)
{
    // The handler itself moves the stream repeatedly.
    constexpr int times = 20;
    std::atomic<int> moves{0};
    std::function<void(EventLoop&, EventLoop&)> attachTo = [&](EventLoop& here, EventLoop& there)
    {
        stream().attach(here,
                        [&](std::uint32_t)
                        {
                            EXPECT_TRUE(here.onLoopThread());
                            receive();
                            if (moves < times)
                            {
                                ++moves;
                                stream().detach();
                                there.post([&] { attachTo(there, here); });
                            }
                        });
    };
    const std::size_t size = 1000;
    under_->write(std::string(size, 'x'));
    runOn(first_, [&] { attachTo(first_, second_); });
    EXPECT_TRUE(eventually([&] { return received().size() == size; }));
    EXPECT_EQ(moves, times);
    TearDown();
}

TEST_P(ByteStreamContract, EndSendingIsSeenByThePeerAndReceivingContinues)
{
    attach(first_);
    rest_ = "last";
    runOn(first_, [this] { sendRest(); });
    EXPECT_TRUE(eventually([this] { return sentAll_.load(); }));
    runOn(first_,
          [this]
          {
              stream().endSending();
              stream().endSending();
          });
    EXPECT_TRUE(under_->sawEnd());
    under_->write("still here");
    EXPECT_TRUE(eventually([this] { return received() == "still here"; }));
}

TEST_P(ByteStreamContract, CloseIsSeenByThePeerAndDropsTheHandler)
{
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> weak = held;
    stream().attach(first_, [held](std::uint32_t) {});
    held.reset();
    EXPECT_FALSE(weak.expired());
    runOn(first_,
          [this]
          {
              stream().close();
              stream().close();
          });
    EXPECT_TRUE(weak.expired());
    EXPECT_TRUE(under_->sawEnd());
}

TEST_P(ByteStreamContract, HandlerMayCloseItsStream)
{
    stream().attach(first_,
                    [this](std::uint32_t)
                    {
                        ++reports_;
                        stream().close();
                    });
    under_->write("xyz");
    EXPECT_TRUE(eventually([this] { return reports_ > 0; }));
    iterate(first_);
    EXPECT_EQ(reports_, 1);
}

TEST_P(ByteStreamContract, AddressesAreKnown)
{
    EXPECT_EQ(stream().peer().text(), "127.0.0.1");
    EXPECT_EQ(stream().local().text(), "127.0.0.1");
}

std::unique_ptr<StreamUnderTest> makeTls(int version, std::size_t bytesAtOnce)
{
    TlsPeer::Options options;
    options.version = version;
    options.bytesAtOnce = bytesAtOnce;
    return std::make_unique<TlsUnderTest>(options);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, ByteStreamContract,
    testing::Values(Kind{"Tcp", [] { return std::make_unique<TcpUnderTest>(); }},
                    Kind{"Memory", [] { return std::make_unique<MemoryUnderTest>(); }},
                    Kind{"Tls13", [] { return makeTls(TLS1_3_VERSION, 65536); }},
                    Kind{"Tls12", [] { return makeTls(TLS1_2_VERSION, 65536); }},
                    Kind{"TlsByteByByte", [] { return makeTls(0, 1); }},
                    Kind{"Tunnel", [] { return std::make_unique<TunnelUnderTest>(65536); }},
                    Kind{"TunnelByteByByte", [] { return std::make_unique<TunnelUnderTest>(1); }},
                    Kind{"WebSocket", [] { return std::make_unique<WebSocketUnderTest>(65536); }},
                    Kind{"WebSocketByteByByte", [] { return std::make_unique<WebSocketUnderTest>(1); }}),
    [](const testing::TestParamInfo<Kind>& tested) { return tested.param.name; });

}  // namespace
}  // namespace refhost
