#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/canned/CannedMedia.h"
#include "bench/canned/MediaSender.h"

namespace rtspcanned
{

/// Answers every request from a handful of fixed texts, and sends every viewer the same packets at the same
/// time: what a server cannot do without. Nothing is checked and nothing is kept of a client but where its
/// packets go; a request must arrive whole. Threads: one.
class CannedServer
{
public:
    /// Listens on the loopback address.
    /// \param connected  a connected UDP socket for each viewer instead of one for all
    /// \throws std::system_error when the system refuses a socket
    CannedServer(int port, CannedMedia media, bool connected);
    ~CannedServer();
    CannedServer(const CannedServer&) = delete;
    CannedServer& operator=(const CannedServer&) = delete;

    /// The stream's URL.
    std::string url() const;

    /// Serves until SIGINT or SIGTERM, which the caller has blocked.
    void run();

private:
    enum class Transport
    {
        none,
        udp,
        tcp
    };

    struct Client
    {
        Transport transport = Transport::none;
        sockaddr_in rtp{};
        int socket = -1;         // its connected one
        std::size_t viewer = 0;  // its place in viewers_, from 1 on; 0: it does not play
    };

    void openUdp();
    void watch(int descriptor);
    void dispatch(int descriptor);
    void accept();
    void receive(int descriptor);
    bool answer(int descriptor, std::string_view request);
    void setUp(int descriptor, std::string_view request);
    std::string transportOf(int descriptor) const;
    bool play(int descriptor, std::string text);
    void stopPlaying(int descriptor);
    void end(int descriptor);
    void sendNext();
    bool send(MediaSender& sender, int descriptor, std::string_view before);
    void schedule(bool on);

    using Clock = std::chrono::steady_clock;

    CannedMedia media_;
    const bool connected_;
    int listener_ = -1;
    int port_ = 0;
    int rtp_ = -1;
    int rtcp_ = -1;
    int udpPort_ = 0;
    int epoll_ = -1;
    int timer_ = -1;
    int signals_ = -1;
    bool ended_ = false;

    std::vector<Client> clients_;  // by descriptor
    std::vector<int> viewers_;     // descriptors of those who play
    std::string description_;      // what follows CSeq in the answer to DESCRIBE

    MediaSender sender_;
    MediaSender beginning_;
    CannedUnit keyFrame_;  // for those who begin
    Clock::time_point loopStart_;
    std::size_t next_ = 0;
    std::uint16_t sequence_ = 0;
    std::uint32_t timestamp_ = 0;  // of the first unit of this loop
};

}  // namespace rtspcanned
