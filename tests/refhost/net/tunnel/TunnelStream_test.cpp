#include "refhost/net/tunnel/TunnelStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/refhost/net/tunnel/TunnelUnderTest.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using Status = ByteStream::Status;
using test::base64;
using test::MemoryStream;
using test::TunnelUnderTest;

/// A tunnel on a loop whose received bytes are collected.
class TunnelStreamTest : public testing::Test
{
protected:
    void TearDown() override
    {
        runOn(loop_, [this] { tunnel().close(); });
    }

    TunnelStream& tunnel()
    {
        return *under_.tunnel;
    }

    void attach()
    {
        tunnel().attach(loop_,
                        [this](std::uint32_t ready)
                        {
                            hungUp_ = hungUp_ || (ready & ByteStream::hungUp) != 0;
                            char bytes[64];
                            const ByteStream::Result result = tunnel().receive(bytes, sizeof bytes);
                            const std::lock_guard<std::mutex> guard(mutex_);
                            received_.append(bytes, result.count);
                            if (result.status == Status::ended || result.status == Status::failed)
                            {
                                end_ = result.status;
                                over_ = true;
                                tunnel().watchReceive(false);
                            }
                        });
    }

    testing::AssertionResult receives(const std::string& all)
    {
        const bool received = eventually(
            [&]
            {
                const std::lock_guard<std::mutex> guard(mutex_);
                return received_ == all;
            });
        const std::lock_guard<std::mutex> guard(mutex_);
        return received ? testing::AssertionSuccess() : testing::AssertionFailure() << received_;
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

    /// One more POST connection, as the RTSP server's other loops add them.
    std::shared_ptr<MemoryStream> addPost(const std::string& received, std::shared_ptr<void> hold = nullptr,
                                          bool added = true, std::optional<std::uint64_t> length = 32767)
    {
        auto stream = std::make_shared<MemoryStream>(64);
        TunnelStream::Post post{stream, length, received, std::move(hold)};
        EXPECT_EQ(tunnel().addPost(post), added);
        EXPECT_EQ(post.stream == nullptr, added);
        return stream;
    }

    EventLoop loop_{"tunnel"};
    TunnelUnderTest under_{64};
    std::mutex mutex_;
    std::string received_;
    Status end_ = Status::done;
    std::atomic<bool> over_{false};
    std::atomic<bool> hungUp_{false};
};

TEST_F(TunnelStreamTest, GreetingIsSentBeforeAnyPostAndBeforeAnythingElse)
{
    attach();
    std::string arrived;
    while (arrived.size() < TunnelHeaders::greeting.size())
    {
        const std::string more = under_.get->read(10000);
        ASSERT_FALSE(more.empty());
        arrived += more;
    }
    EXPECT_EQ(arrived, TunnelHeaders::greeting);
}

TEST_F(TunnelStreamTest, NextPostIsReadOnceTheFirstHasNothingMore)
{
    attach();
    under_.post->write(base64("one "));
    const auto second = addPost(base64("two "));
    EXPECT_TRUE(receives("one two "));
    EXPECT_TRUE(eventually([this] { return under_.post->closed(); }));
    second->write(base64("three"));
    EXPECT_TRUE(receives("one two three"));
}

TEST_F(TunnelStreamTest, APostForEachRequestIsReadInTheirOrder)
{
    for (const char* request : {"two ", "three ", "four "})
    {
        const std::string text = base64(request);
        addPost(text, nullptr, true, text.size());
    }
    under_.post->write(base64("one "));
    attach();
    EXPECT_TRUE(receives("one two three four "));
}

TEST_F(TunnelStreamTest, APostThatEndsMayBeReplacedLater)
{
    attach();
    under_.post->write(base64("one "));
    under_.post->endWriting();
    EXPECT_TRUE(receives("one "));
    EXPECT_TRUE(eventually([this] { return under_.post->closed(); }));
    EXPECT_FALSE(over_);
    addPost(base64("two"));
    EXPECT_TRUE(receives("one two"));
}

TEST_F(TunnelStreamTest, APostThatFailsEndsNothingElse)
{
    attach();
    under_.post->write(base64("one "));
    EXPECT_TRUE(receives("one "));
    under_.post->fail();
    EXPECT_TRUE(eventually([this] { return under_.post->closed(); }));
    addPost(base64("two"));
    EXPECT_TRUE(receives("one two"));
    EXPECT_FALSE(over_);
}

TEST_F(TunnelStreamTest, APostThatFailsIsDroppedWhileNothingIsReceived)
{
    tunnel().watchReceive(false);
    attach();
    runOn(loop_,
          [this]
          {
              char byte = 0;
              EXPECT_EQ(tunnel().receive(&byte, 1).status, Status::blocked) << "it takes the POST connection";
          });
    under_.post->fail();
    EXPECT_TRUE(eventually([&] { return under_.post->closed(); }));
    EXPECT_FALSE(hungUp_);
}

TEST_F(TunnelStreamTest, WaitingPostsAreBounded)
{
    under_.post->write(base64("x"));
    // One of the fixture's waits as well.
    for (std::size_t i = 1; i < TunnelStream::maxWaiting; ++i)
    {
        addPost(base64("y"));
    }
    addPost(base64("z"), nullptr, false);
    attach();
    EXPECT_TRUE(receives("xyyy"));
    addPost(base64("z"));
    EXPECT_TRUE(receives("xyyyz"));
}

TEST_F(TunnelStreamTest, EndOfTheGetIsTheEndOnceEverythingIsRead)
{
    under_.post->write(base64("one "));
    addPost(base64("two"));
    under_.get->endWriting();
    attach();
    EXPECT_TRUE(eventually([this] { return over_.load(); }));
    EXPECT_EQ(end_, Status::ended);
    EXPECT_TRUE(receives("one two"));
}

TEST_F(TunnelStreamTest, FailureOfTheGetIsTheStreams)
{
    attach();
    under_.get->fail();
    EXPECT_TRUE(eventually([this] { return hungUp_.load(); }));
}

TEST_F(TunnelStreamTest, WhatComesBehindTheGetIsDropped)
{
    attach();
    under_.get->write(std::string(10000, 'x'));
    EXPECT_TRUE(eventually([this] { return under_.get->allReceived(); }));
    under_.post->write(base64("one"));
    EXPECT_TRUE(receives("one"));
}

TEST_F(TunnelStreamTest, APostThatIsNoBase64FailsTheTunnel)
{
    attach();
    under_.post->write(base64("one ") + "OPTIONS * RTSP/1.0\r\n");
    EXPECT_TRUE(eventually([this] { return over_.load(); }));
    EXPECT_EQ(end_, Status::failed);
    const std::string_view part = "x";
    EXPECT_EQ(tunnel().send(&part, 1, false).status, Status::failed);
}

TEST_F(TunnelStreamTest, ACompletePostIsAnswered)
{
    const std::string text = base64("one");
    const auto second = addPost(text, nullptr, true, text.size());
    attach();
    EXPECT_TRUE(receives("one"));
    std::string answer;
    while (answer.size() < TunnelHeaders::taken.size())
    {
        const std::string more = second->read(10000);
        ASSERT_FALSE(more.empty());
        answer += more;
    }
    EXPECT_EQ(answer, TunnelHeaders::taken);
}

TEST_F(TunnelStreamTest, APostThatReadsNoneOfItsAnswersIsDropped)
{
    const std::string request = "POST / HTTP/1.0\r\nx-sessioncookie: c\r\nContent-Length: 0\r\n\r\n";
    const auto second = addPost("", nullptr, true, 0);
    second->stall(true);
    attach();
    for (std::size_t sent = 0; sent <= 2 * TunnelStream::maxUnanswered; sent += TunnelHeaders::taken.size())
    {
        second->write(request);
    }
    EXPECT_TRUE(eventually([&] { return second->closed(); }));
    EXPECT_FALSE(over_);
}

TEST_F(TunnelStreamTest, HoldsAreReportedAndReleasedWithTheirConnections)
{
    std::vector<std::shared_ptr<void>> joined;
    auto registration = std::make_shared<int>(0);
    const std::weak_ptr<int> registered = registration;
    auto made = std::make_shared<TunnelStream>(
        std::make_shared<MemoryStream>(), "c",
        [&](const std::shared_ptr<void>& hold) { joined.push_back(hold); }, std::move(registration));
    auto hold = std::make_shared<int>(0);
    const std::weak_ptr<int> held = hold;
    TunnelStream::Post post{std::make_shared<MemoryStream>(), 1, "", hold};
    ASSERT_TRUE(made->addPost(post));
    EXPECT_EQ(joined, std::vector<std::shared_ptr<void>>{hold});
    joined.clear();
    hold.reset();
    EXPECT_FALSE(held.expired());
    EXPECT_FALSE(registered.expired());
    made->close();
    EXPECT_TRUE(held.expired());
    EXPECT_TRUE(registered.expired());
    TunnelStream::Post late{std::make_shared<MemoryStream>(), 1, "", nullptr};
    EXPECT_FALSE(made->addPost(late));
    EXPECT_NE(late.stream, nullptr);
}

TEST_F(TunnelStreamTest, SendBlocksUntilTheGreetingIsSent)
{
    under_.get->stall(true);
    const std::string_view part = "x";
    EXPECT_EQ(tunnel().send(&part, 1, false).status, Status::blocked);
    under_.get->stall(false);
    tunnel().watchReceive(false);
    attach();
    EXPECT_EQ(under_.get->read(10000).substr(0, 64), TunnelHeaders::greeting.substr(0, 64));
}

}  // namespace
}  // namespace refhost
