#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>

#include "refhost/threads/EventLoop.h"

// Helpers of the event loop's tests.
namespace refhost
{

// Max duration of any wait before the test fails.
constexpr auto bound = std::chrono::seconds(10);

/// Two connected stream sockets.
class SocketPair
{
public:
    SocketPair()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_.data()) != 0)
        {
            throw std::runtime_error("socketpair");
        }
    }
    ~SocketPair()
    {
        ::close(ends_[0]);
        closeFar();
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int near() const
    {
        return ends_[0];
    }
    void writeFar(char byte)
    {
        ASSERT_EQ(1, ::write(ends_[1], &byte, 1));
    }
    char readNear()
    {
        char byte = 0;
        EXPECT_EQ(1, ::read(ends_[0], &byte, 1));
        return byte;
    }
    void closeFar()
    {
        if (ends_[1] >= 0)
        {
            ::close(ends_[1]);
            ends_[1] = -1;
        }
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

/// An event that a test waits for, with a bound.
class Signal
{
public:
    void set()
    {
        if (!isSet_.exchange(true))
        {
            promise_.set_value();
        }
    }
    bool wait()
    {
        return future_.wait_for(bound) == std::future_status::ready;
    }
    bool isSet() const
    {
        return isSet_;
    }

private:
    std::atomic<bool> isSet_{false};
    std::promise<void> promise_;
    std::future<void> future_ = promise_.get_future();
};

/// Runs `call` on the loop's thread and waits until it has run.
template <class Call>
void runOn(EventLoop& loop, const Call& call)
{
    Signal done;
    loop.post(
        [&]
        {
            call();
            done.set();
        });
    ASSERT_TRUE(done.wait());
}

/// Keeps a loop in one turn until its end.
class HangingTurn
{
public:
    explicit HangingTurn(EventLoop& loop) : loop_(loop)
    {
        loop.post(
            [this]
            {
                started_.set();
                end_.wait();
            });
        EXPECT_TRUE(started_.wait());
    }
    ~HangingTurn()
    {
        finish();
    }
    HangingTurn(const HangingTurn&) = delete;
    HangingTurn& operator=(const HangingTurn&) = delete;

    void finish()
    {
        end_.set();
        runOn(loop_, [] {});
    }

private:
    EventLoop& loop_;
    Signal started_;
    Signal end_;
};

}  // namespace refhost
