#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <queue>
#include <utility>
#include <vector>

#include "bench/origin/CameraConnection.h"

namespace rtsporigin
{

/// One thread's connections. The kernel deals new ones out to the loops that listen on the same port.
/// Threads: one; stop() from any.
class OriginLoop
{
public:
    using Clock = CameraConnection::Clock;

    /// Listens on the loopback address.
    /// \param port    0: any that is free
    /// \param media   copied: units are stamped in place
    /// \param epoch   when all cameras started
    /// \param number  of the loop
    /// \throws std::system_error when the port is taken
    OriginLoop(int port, CannedMedia media, Clock::time_point epoch, int number);
    ~OriginLoop();
    OriginLoop(const OriginLoop&) = delete;
    OriginLoop& operator=(const OriginLoop&) = delete;

    int port() const
    {
        return port_;
    }
    /// Serves until stop().
    void run();
    /// Ends run() within a tenth of a second.
    void stop()
    {
        stopping_ = true;
    }
    /// What all connections came to; after run().
    const SendCounts& counts() const
    {
        return counts_;
    }
    /// How many connections there were, at most, that played at one time; after run().
    std::size_t maxPlaying() const
    {
        return maxPlaying_;
    }

private:
    using Due = std::pair<Clock::time_point, std::uint64_t>;

    void accept();
    void onEvent(std::uint64_t id, std::uint32_t events);
    void sendDue();
    void watch(std::uint64_t id, const CameraConnection& connection, int operation);
    void end(std::uint64_t id);
    int pause() const;

    CannedMedia media_;
    const Clock::time_point epoch_;
    const int number_;
    int epoll_ = -1;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::uint64_t lastId_ = 0;
    std::map<std::uint64_t, std::unique_ptr<CameraConnection>> connections_;
    /// Those that play, each once; what is gone meanwhile is left out.
    std::priority_queue<Due, std::vector<Due>, std::greater<Due>> due_;
    std::size_t maxPlaying_ = 0;
    SendCounts counts_;
};

}  // namespace rtsporigin
