#include "refhost/net/TcpConnector.h"

#include <gmock/gmock.h>

#include <future>

#include "refhost/base/Descriptor.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

/// A TCP port of a loopback address that listens, or one that refuses.
class Port
{
public:
    explicit Port(const char* address = "127.0.0.1", bool listening = true, int port = 0)
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress any = *SocketAddress::parse(address, port);
        EXPECT_EQ(::bind(socket_.get(), any.get(), any.size()), 0);
        if (listening)
        {
            EXPECT_EQ(::listen(socket_.get(), 8), 0);
        }
        number_ = SocketAddress::localOf(socket_.get()).port();
    }

    int number() const
    {
        return number_;
    }

    Descriptor accept()
    {
        return Descriptor(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

private:
    Descriptor socket_;
    int number_ = 0;
};

struct Outcome
{
    std::unique_ptr<ByteStream> stream;
    std::string error;
};

class TcpConnectorTest : public testing::Test
{
protected:
    Outcome connect(const std::string& host, int port, Duration timeout = bound)
    {
        std::promise<Outcome> done;
        runOn(loop,
              [&]
              {
                  attempt =
                      connector.connect(loop, host, port, timeout,
                                        [&](std::unique_ptr<ByteStream> stream, const std::string& error)
                                        {
                                            EXPECT_TRUE(loop.onLoopThread());
                                            attempt = nullptr;
                                            done.set_value({std::move(stream), error});
                                        });
              });
        auto future = done.get_future();
        if (future.wait_for(2 * bound) != std::future_status::ready)
        {
            ADD_FAILURE() << "no outcome";
            runOn(loop, [&] { attempt = nullptr; });
            return {};
        }
        return future.get();
    }

    ~TcpConnectorTest() override
    {
        release.set_value();
    }

    std::promise<void> release;
    EventLoop loop{"test"};
    HostResolver resolver{
        [released = release.get_future().share()](const std::string& host)
        {
            if (host == "hangs")
            {
                released.wait();
            }
            return host == "unknown"
                       ? HostResolver::Result{{}, "not known"}
                       : HostResolver::Result{
                             {*SocketAddress::parse("127.0.0.2"), *SocketAddress::parse("127.0.0.1")}, ""};
        }};
    TcpConnector connector{resolver};
    std::unique_ptr<StreamConnector::Attempt> attempt;
};

TEST_F(TcpConnectorTest, ConnectsToANumericAddressWithoutLookingItUp)
{
    Port port;
    const Outcome outcome = connect("127.0.0.1", port.number());
    ASSERT_NE(outcome.stream, nullptr) << outcome.error;
    EXPECT_EQ(outcome.stream->peer().textWithPort(), "127.0.0.1:" + std::to_string(port.number()));
    const Descriptor far = port.accept();
    ASSERT_EQ(::send(far.get(), "x", 1, 0), 1);
    Signal received;
    outcome.stream->attach(loop,
                           [&](std::uint32_t)
                           {
                               char byte = 0;
                               EXPECT_EQ(outcome.stream->receive(&byte, 1).count, 1U);
                               EXPECT_EQ(byte, 'x');
                               outcome.stream->close();
                               received.set();
                           });
    EXPECT_TRUE(received.wait());
}

TEST_F(TcpConnectorTest, TriesTheNextAddressOfAHostWhereOneRefuses)
{
    Port port;
    const Port refusing("127.0.0.2", false, port.number());
    const Outcome outcome = connect("two.example", port.number());
    ASSERT_NE(outcome.stream, nullptr) << outcome.error;
    EXPECT_EQ(outcome.stream->peer().text(), "127.0.0.1");
}

TEST_F(TcpConnectorTest, SaysWhyNoAddressServes)
{
    const Port refusing("127.0.0.1", false);
    const Outcome outcome = connect("127.0.0.1", refusing.number());
    EXPECT_EQ(outcome.stream, nullptr);
    EXPECT_THAT(outcome.error, HasSubstr("refused"));
    EXPECT_THAT(outcome.error, HasSubstr(std::to_string(refusing.number())));
}

TEST_F(TcpConnectorTest, SaysThatAHostIsUnknown)
{
    const Outcome outcome = connect("unknown", 554);
    EXPECT_EQ(outcome.stream, nullptr);
    EXPECT_EQ(outcome.error, "cannot connect to unknown:554: not known");
}

TEST_F(TcpConnectorTest, DoesNotWaitForALookUpBeyondTheTimeout)
{
    const Outcome outcome = connect("hangs", 554, 5ms);
    EXPECT_EQ(outcome.stream, nullptr);
    EXPECT_THAT(outcome.error, HasSubstr("in time"));
}

TEST_F(TcpConnectorTest, DoesNotWaitForAHostThatDoesNotAnswerBeyondTheTimeout)
{
    // A full backlog answers no further connection.
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const SocketAddress any = *SocketAddress::parse("127.0.0.1");
    ASSERT_EQ(::bind(socket.get(), any.get(), any.size()), 0);
    ASSERT_EQ(::listen(socket.get(), 0), 0);
    const int port = SocketAddress::localOf(socket.get()).port();
    std::vector<Outcome> outcomes;
    for (int i = 0; i < 8 && (outcomes.empty() || outcomes.back().stream != nullptr); ++i)
    {
        outcomes.push_back(connect("127.0.0.1", port, 100ms));
    }
    EXPECT_EQ(outcomes.back().stream, nullptr);
    EXPECT_THAT(outcomes.back().error, HasSubstr("timed out"));
}

TEST_F(TcpConnectorTest, AnAttemptThatEndsReportsNothing)
{
    Port port;
    bool called = false;
    runOn(loop,
          [&]
          {
              for (const char* host : {"127.0.0.1", "hangs", "two.example"})
              {
                  attempt = connector.connect(loop, host, port.number(), bound,
                                              [&](std::unique_ptr<ByteStream>, const std::string&)
                                              { called = true; });
              }
              attempt = nullptr;
          });
    connect("127.0.0.1", port.number());
    EXPECT_FALSE(called);
}

}  // namespace
}  // namespace refhost
