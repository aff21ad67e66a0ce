#pragma once
// Tested by tests/refhost/net/websocket/WebSocketFrames_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct wslay_event_context;

namespace refhost
{

/// The frames of one WebSocket connection, the server's side (RFC 6455, sections 5 to 7).
///
/// Binary and text messages of the client are the same: their bytes in order. Frames must be masked, and hold
/// at most `maxFrame` bytes; messages may have any number of frames. Pings are answered, and a close frame.
///
/// Memory: some 9 KiB. Threads: one at a time.
class WebSocketFrames
{
public:
    static constexpr std::size_t maxFrame = std::size_t{128} * 1024;

    /// Why the connection ends.
    enum class End : std::uint16_t
    {
        normal = 1000,
        goingAway = 1001,
        unsupportedData = 1003,
        policyViolation = 1008,
        tryAgainLater = 1013
    };

    /// The messages that a client may send.
    enum class Accepts : std::uint8_t
    {
        all,
        binary  ///< a text message ends the connection
    };

    /// \throws std::bad_alloc
    explicit WebSocketFrames(Accepts accepts = Accepts::all);
    ~WebSocketFrames();
    WebSocketFrames(const WebSocketFrames&) = delete;
    WebSocketFrames& operator=(const WebSocketFrames&) = delete;

    /// Reads bytes of the client.
    /// \param[out] payload  the bytes of its messages are appended
    /// \param[out] answers  whole frames to send are appended: pongs, close
    void read(std::string_view bytes, std::string& payload, std::string& answers);

    /// Whether more of the client is read: false after its close frame and after a violation of the protocol,
    /// of which the client is informed by a close frame.
    bool reads() const;
    /// Whether a close frame came.
    bool closedByPeer() const;

    /// Appends a close frame to `out`, unless there was one.
    void close(End reason, std::string& out);
    /// Whether messages may be sent: no close frame was.
    bool sends() const;

    enum class Kind : std::uint8_t
    {
        text = 1,  ///< UTF-8
        binary = 2
    };

    /// Appends one message to `out`.
    static void append(std::string_view message, std::string& out, Kind kind = Kind::binary);
    /// Appends what stands in front of a message of `size` bytes.
    static void appendHead(std::size_t size, std::string& out, Kind kind = Kind::binary);

private:
    struct Calls;
    struct Free
    {
        void operator()(wslay_event_context* context) const;
    };

    std::unique_ptr<wslay_event_context, Free> context_;
    std::string_view input_;
    std::string* payload_ = nullptr;
    std::string* answers_ = nullptr;
    const Accepts accepts_;
    bool dataFrame_ = false;  // the present frame is no control frame
    bool refused_ = false;    // a message of a kind that is not accepted
};

}  // namespace refhost
