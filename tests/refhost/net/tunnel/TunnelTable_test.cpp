#include "refhost/net/tunnel/TunnelTable.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/refhost/net/ForwardingStream.h"
#include "tests/refhost/net/MemoryStream.h"

namespace refhost
{
namespace
{

using test::MemoryStream;

/// A connection from an address of the test's choice.
class StreamFrom : public test::ForwardingStream
{
public:
    explicit StreamFrom(const std::string& address, bool encrypted = false, std::string certificate = "")
        : ForwardingStream(std::make_shared<MemoryStream>()),
          address_(*SocketAddress::parse(address)),
          encrypted_(encrypted),
          certificate_(std::move(certificate))
    {
    }

    const SocketAddress& peer() const override
    {
        return address_;
    }
    bool encrypted() const override
    {
        return encrypted_;
    }
    std::string certificateName() const override
    {
        return certificate_;
    }
    void close() override
    {
        closed = true;
        ForwardingStream::close();
    }

    bool closed = false;

private:
    const SocketAddress address_;
    const bool encrypted_;
    const std::string certificate_;
};

class TunnelTableTest : public testing::Test
{
protected:
    std::shared_ptr<TunnelStream> open(const std::shared_ptr<StreamFrom>& get,
                                       const std::string& cookie = "c")
    {
        return table.open(TunnelTable::Key(*get, cookie), get,
                          [this](const std::shared_ptr<void>&) { ++joined; });
    }

    /// \returns nothing when it is refused
    std::shared_ptr<StreamFrom> post(const std::string& address, const std::string& cookie = "c",
                                     bool encrypted = false, const std::string& certificate = "")
    {
        auto stream = std::make_shared<StreamFrom>(address, encrypted, certificate);
        TunnelStream::Post post{stream, 32767, "", nullptr};
        return table.add(TunnelTable::Key(*stream, cookie), post, now) ? stream : nullptr;
    }

    static std::shared_ptr<StreamFrom> from(const std::string& address, bool encrypted = false)
    {
        return std::make_shared<StreamFrom>(address, encrypted);
    }

    TunnelTable table{TunnelTable::Limits{5, 3, std::chrono::seconds(10)}};
    MonotonicTime now;
    int joined = 0;
};

TEST_F(TunnelTableTest, HalvesJoinInEitherOrder)
{
    const auto tunnel = open(from("192.0.2.1"));
    ASSERT_NE(tunnel, nullptr);
    EXPECT_NE(post("192.0.2.1"), nullptr);
    EXPECT_EQ(joined, 1);
    EXPECT_EQ(table.waiting(), 0u);

    EXPECT_NE(post("192.0.2.1", "d"), nullptr);
    EXPECT_EQ(table.waiting(), 1u);
    EXPECT_EQ(joined, 1);
    const auto other = open(from("192.0.2.1"), "d");
    EXPECT_EQ(joined, 2);
    EXPECT_EQ(table.waiting(), 0u);
}

struct Stranger
{
    const char* address;
    const char* cookie;
    bool encrypted;
};

TEST_F(TunnelTableTest, AStrangerWithTheCookieDoesNotJoin)
{
    const auto tunnel = open(from("192.0.2.1"));
    for (const Stranger& stranger : {Stranger{"192.0.2.2", "c", false}, Stranger{"192.0.2.1", "C", false},
                                     Stranger{"192.0.2.1", "c", true}})
    {
        EXPECT_NE(post(stranger.address, stranger.cookie, stranger.encrypted), nullptr);
    }
    EXPECT_EQ(joined, 0);
    EXPECT_EQ(table.waiting(), 3u);
    EXPECT_NE(open(from("192.0.2.2")), nullptr) << "a tunnel of its own";
    EXPECT_EQ(joined, 1);
}

TEST_F(TunnelTableTest, BothHalvesHaveTheSameCertificate)
{
    const auto tunnel = open(std::make_shared<StreamFrom>("192.0.2.1", true, "admin"));
    ASSERT_NE(tunnel, nullptr);
    EXPECT_EQ(tunnel->certificateName(), "admin");
    EXPECT_NE(post("192.0.2.1", "c", true, "guest"), nullptr);
    EXPECT_NE(post("192.0.2.1", "c", true), nullptr);
    EXPECT_EQ(joined, 0);
    EXPECT_NE(post("192.0.2.1", "c", true, "admin"), nullptr);
    EXPECT_EQ(joined, 1);
}

TEST_F(TunnelTableTest, ACookieNamesOneTunnelAtATime)
{
    auto tunnel = open(from("192.0.2.1"));
    const auto second = from("192.0.2.1");
    EXPECT_EQ(open(second), nullptr);
    EXPECT_FALSE(second->closed);
    EXPECT_NE(open(from("192.0.2.1", true)), nullptr);
    tunnel->close();
    EXPECT_NE(open(second), nullptr) << "free again";
}

TEST_F(TunnelTableTest, ADestroyedTunnelLeavesTheTable)
{
    open(from("192.0.2.1"));
    EXPECT_NE(open(from("192.0.2.1")), nullptr);
}

TEST_F(TunnelTableTest, WaitingPostsAreBoundedInAllAndPerAddress)
{
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_NE(post("192.0.2.1", std::to_string(i)), nullptr);
    }
    EXPECT_EQ(post("192.0.2.1", "3"), nullptr) << "three of one address";
    EXPECT_NE(post("192.0.2.2"), nullptr);
    EXPECT_NE(post("2001:db8::1"), nullptr);
    EXPECT_EQ(post("2001:db8::2"), nullptr) << "five in all";
    EXPECT_EQ(table.waiting(), 5u);
}

TEST_F(TunnelTableTest, APostWhoseGetNeverComesIsEnded)
{
    const auto first = post("192.0.2.1");
    now += std::chrono::seconds(6);
    const auto second = post("192.0.2.1", "d");
    table.endExpired(now);
    EXPECT_FALSE(first->closed);
    now += std::chrono::seconds(4);
    table.endExpired(now);
    EXPECT_TRUE(first->closed);
    EXPECT_FALSE(second->closed);
    EXPECT_EQ(table.waiting(), 1u);
    table.clear();
    EXPECT_TRUE(second->closed);
}

TEST_F(TunnelTableTest, AWaitingPostCanBeDropped)
{
    const auto first = post("192.0.2.1");
    const auto second = post("192.0.2.1", "d");
    table.drop(*first);
    table.drop(*first);
    EXPECT_TRUE(first->closed);
    EXPECT_FALSE(second->closed);
    EXPECT_EQ(table.waiting(), 1u);
}

TEST_F(TunnelTableTest, MorePostsThanATunnelTakesAreClosed)
{
    TunnelTable large{TunnelTable::Limits{64, 64, std::chrono::seconds(10)}};
    std::vector<std::shared_ptr<StreamFrom>> posts;
    for (std::size_t i = 0; i <= TunnelStream::maxWaiting; ++i)
    {
        posts.push_back(from("192.0.2.1"));
        TunnelStream::Post post{posts.back(), 32767, "", nullptr};
        ASSERT_TRUE(large.add(TunnelTable::Key(*posts.back(), "c"), post, now));
    }
    const auto get = from("192.0.2.1");
    const auto tunnel = large.open(TunnelTable::Key(*get, "c"), get, nullptr);
    EXPECT_FALSE(posts[TunnelStream::maxWaiting - 1]->closed);
    EXPECT_TRUE(posts[TunnelStream::maxWaiting]->closed);
    auto late = from("192.0.2.1");
    TunnelStream::Post post{late, 32767, "", nullptr};
    EXPECT_FALSE(large.add(TunnelTable::Key(*late, "c"), post, now));
}

TEST_F(TunnelTableTest, TunnelsMayOutliveTheTable)
{
    auto own = std::make_unique<TunnelTable>(TunnelTable::Limits{});
    const auto get = from("192.0.2.1");
    const auto tunnel = own->open(TunnelTable::Key(*get, "c"), get, nullptr);
    own.reset();
    tunnel->close();
    EXPECT_TRUE(get->closed);
}

}  // namespace
}  // namespace refhost
