#pragma once
// Tested by tests/refhost/net/websocket/WebSocketStream_test.cpp.

#include <memory>
#include <string>

#include "refhost/net/FilterStream.h"
#include "refhost/net/websocket/WebSocketFrames.h"

namespace refhost
{

/// RTSP over WebSocket: the client's messages are its bytes; each response and each interleaved frame of the
/// server is one binary message.
///
/// The client's close frame is the end of its sending. A client that violates the protocol is sent a close
/// frame that says so, and receive() fails.
///
/// Memory: 9 KiB, a few KiB of decoded bytes, and `maxAccepted` bytes that the carrier did not accept yet.
/// Nothing more is received of a client that reads none of the answers to its pings.
class WebSocketStream final : public FilterStream
{
public:
    static constexpr std::size_t maxAccepted = std::size_t{64} * 1024;

    /// \param carrier   detached; its handshake was read
    /// \param response  to the handshake, sent first
    /// \param received  what followed the handshake
    WebSocketStream(std::shared_ptr<ByteStream> carrier, std::string response, std::string_view received);
    ~WebSocketStream() override;

    Result send(const std::string_view* parts, std::size_t count, bool more) override;
    void endSending() override;
    void close() override;

private:
    Status pump() OV_REQUIRES(mutex_) override;
    bool onCarrierReceivable() OV_REQUIRES(mutex_) override;
    bool watchesCarrier() const OV_REQUIRES(mutex_) override;
    void take(std::string_view bytes) OV_REQUIRES(mutex_);

    WebSocketFrames frames_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
