#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "refhost/rtsp/connection/RtspServer.h"
#include "tests/refhost/rtsp/connection/HandFedStreams.h"
#include "tests/refhost/rtsp/connection/SteppedClock.h"
#include "tests/refhost/rtsp/connection/TestClient.h"

namespace refhost
{
namespace test
{

/// A server on a loopback port, with the real library and dispatch, two hand-fed streams and a manual clock.
class RtspServerFixture : public testing::Test
{
public:
    /// The library's controller that serves orv/live.
    enum class Controller
    {
        first,
        second
    };

protected:
    static constexpr const char* udpPorts = "Transport: RTP/AVP;unicast;client_port=";
    static constexpr const char* tcp = "Transport: RTP/AVP/TCP;unicast\r\n";

    explicit RtspServerFixture(Controller controller = Controller::first);
    ~RtspServerFixture() override;

    /// Starts a server with `config`.
    void start();
    /// The routes of a server: orv/live by the library. A test may add its own before start().
    MediaRoutes routes;

    std::string url(const std::string& path = "orv/live/1/0") const;
    static std::string track(const std::string& presentation, int number);
    static std::string session(const std::string& id);

    /// Sets tracks of stream 1/0 up over interleaved TCP and returns the session's id.
    std::string setUpTcp(TestClient& client, int tracks = 2);
    std::string setUpUdp(TestClient& client, const UdpPort& port);

    /// Feeds one frame of `packets` packets to stream 1/0.
    void frame(bool key, std::size_t packets = 3);
    void feedAudio();

    /// Lets the handshake timeout pass until the client's connection ends: the server may accept the client
    /// only after the first. \returns false when it did not end
    bool endedAfterHandshakeTimes(TestClient& client, int times = 500);

    /// Waits, bounded, until `done`.
    static bool eventually(const std::function<bool()>& done);
    /// Tracks in the dispatcher of the first controller plus sessions in that of the second.
    static std::size_t dispatched();
    static int openDescriptors();
    static int threads();

    ServerConfig config;
    SteppedClock time;
    std::shared_ptr<HandFedStreams> streams = std::make_shared<HandFedStreams>();
    std::unique_ptr<RtspServer> server;

private:
    std::uint32_t videoTime_ = 1000;
    std::uint32_t audioTime_ = 5000;
};

}  // namespace test
}  // namespace refhost
