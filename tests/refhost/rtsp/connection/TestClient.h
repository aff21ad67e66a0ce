#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/rtp/udp/UdpPortPair.h"

namespace refhost
{
namespace test
{

/// What the server sent: a response, or an interleaved frame.
struct Received
{
    enum class Kind
    {
        response,
        frame,
        end,     ///< the server ended the connection
        nothing  ///< nothing came in time
    };

    Kind kind = Kind::nothing;
    int status = 0;
    std::multimap<std::string, std::string> headers;
    std::string body;
    int channel = -1;
    std::string payload;

    /// The first header of that name; empty when there is none.
    std::string header(const std::string& name) const;
    /// The session id of the Session header.
    std::string session() const;
    bool isRtp() const;
    std::uint16_t sequence() const;
    std::uint32_t timestamp() const;
    std::uint32_t ssrc() const;
};

/// A blocking RTSP client with bounded waits, over loopback unless a derived class has another transport.
class TestClient
{
public:
    /// \param from  the local IPv4 address to connect from; null: the system's choice
    explicit TestClient(int port, int receiveBuffer = 0, int family = AF_INET, const char* from = nullptr);
    virtual ~TestClient();
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    void send(const std::string& bytes);
    /// Sends; ignores a closed socket.
    virtual bool trySend(const std::string& bytes);
    /// Sends until the server takes nothing for that long. \returns the bytes taken
    std::size_t sendSome(std::string_view bytes, int milliseconds);

    /// The next response or frame. Waits at most `milliseconds`.
    Received receive(int milliseconds = 5000);
    /// The next response; frames before it are kept for frames().
    Received response();
    /// The next frame of a channel, from those kept or to come.
    Received frame(int channel, int milliseconds = 5000);

    /// Sends a request with the next CSeq and returns its response, whose CSeq is checked.
    Received request(const std::string& method, const std::string& url, const std::string& headers = "",
                     const std::string& body = "");
    static std::string text(const std::string& method, const std::string& url, int cseq,
                            const std::string& headers, const std::string& body);

    /// Whether the server ends the connection in time.
    bool ended(int milliseconds = 5000);
    /// Closes the socket; with `reset`, by RST.
    void close(bool reset = false);
    void endSending();

    int localPort() const;

protected:
    /// Without a socket, for a derived class with its own trySend() and wait().
    TestClient() = default;
    /// Waits for bytes. \returns none after a timeout or the end
    virtual std::string wait(int milliseconds);

    bool end_ = false;  // the server ended the connection

private:
    bool fill(int milliseconds);
    bool takeFrame(Received& out);
    bool takeResponse(Received& out);

    int descriptor_ = -1;
    int cseq_ = 0;
    std::string buffer_;
    std::vector<Received> kept_;
};

/// A bound pair of UDP ports whose first one receives what the server sends. The second one keeps the server from taking
/// it for its own: "client_port=N" names both.
class UdpPort
{
public:
    explicit UdpPort(int family = AF_INET);

    int port() const;
    /// The next datagram; empty when none comes in time.
    std::string receive(int milliseconds = 5000);
    void sendTo(int port, const std::string& datagram);

private:
    const std::optional<UdpPortPair> pair_;
    const int family_;
};

}  // namespace test
}  // namespace refhost
