#pragma once
// Tested by tests/refhost/ingest/client/RtspClientBytes_test.cpp.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/Times.h"
#include "refhost/ingest/client/CameraReceiver.h"
#include "refhost/net/ByteStream.h"

namespace refhost
{

/// The RTSP connection to a camera: receives messages and packets, and sends as fast as the camera takes it.
///
/// Threads: the loop's.
class CameraConnection
{
public:
    /// Bytes that are received before other work of the loop gets its turn.
    static constexpr std::size_t maxBytesAtOnce = 262144;
    /// Bytes that wait for a camera that takes none.
    static constexpr std::size_t maxUnsentBytes = 65536;

    enum class Ended
    {
        connection,  ///< the camera closed it, or it broke
        protocol     ///< the camera sends what is not RTSP
    };

    /// What a connection reports. Each call may close it, which ends the reports.
    class Events
    {
    public:
        virtual void onMessage(CameraMessage& message) = 0;
        /// \param data  1 to 65535 bytes, until the return
        virtual void onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                                   MonotonicTime arrival) = 0;
        /// A description came without Content-Length: endBody() ends it.
        virtual void onOpenBody() = 0;
        /// The connection is closed. \param error  why: one line
        virtual void onClosed(Ended why, const std::string& error) = 0;

    protected:
        ~Events() = default;
    };

    /// \param owner  owns the connection; held while it reports
    /// \throws std::system_error when the loop cannot have the stream
    CameraConnection(EventLoop& loop, std::unique_ptr<ByteStream> stream, Events& events,
                     std::weak_ptr<void> owner);

    ~CameraConnection();
    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;

    /// Sends a message behind what waits.
    /// \returns false when the camera takes nothing and too much waits already, or the connection is closed
    bool send(std::string_view text);
    /// Sends an interleaved packet, or drops it.
    /// \param size  1 to 65535
    bool sendPacket(int channel, const std::uint8_t* data, std::size_t size);

    /// Takes the message whose body is open, where there still is one, and what came behind.
    void endBody();

    /// Reports nothing any more. Does nothing the second time.
    void close();

    bool isOpen() const
    {
        return open_;
    }
    const ByteStream& stream() const
    {
        return *stream_;
    }

private:
    void onReady(std::uint32_t ready);
    void receive();
    bool takeReceived(MonotonicTime arrival);
    void flush();
    bool sendParts(const std::string_view* parts, std::size_t count);
    void fail(Ended why, const std::string& error);

    const std::unique_ptr<ByteStream> stream_;
    Events& events_;
    CameraReceiver receiver_;
    bool bodyOpen_ = false;
    bool open_ = true;
    std::string unsent_;
};

}  // namespace refhost
