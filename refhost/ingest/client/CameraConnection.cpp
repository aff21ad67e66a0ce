#include "refhost/ingest/client/CameraConnection.h"

#include <array>
#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/HostClock.h"

namespace refhost
{

CameraConnection::CameraConnection(EventLoop& loop, std::unique_ptr<ByteStream> stream, Events& events,
                                   std::weak_ptr<void> owner)
    : stream_(std::move(stream)), events_(events)
{
    stream_->attach(loop,
                    [this, owner = std::move(owner)](std::uint32_t ready)
                    {
                        if (const auto held = owner.lock())
                        {
                            onReady(ready);
                        }
                    });
}

CameraConnection::~CameraConnection()
{
    close();
}

bool CameraConnection::send(std::string_view text)
{
    return sendParts(&text, 1);
}

bool CameraConnection::sendPacket(int channel, const std::uint8_t* data, std::size_t size)
{
    std::array<std::uint8_t, 4> framing{'$', static_cast<std::uint8_t>(channel)};
    writeBig16(framing.data() + 2, static_cast<std::uint16_t>(size));
    const std::array<std::string_view, 2> parts{
        std::string_view(reinterpret_cast<const char*>(framing.data()), framing.size()),
        std::string_view(reinterpret_cast<const char*>(data), size)};
    return sendParts(parts.data(), parts.size());
}

bool CameraConnection::sendParts(const std::string_view* parts, std::size_t count)
{
    std::size_t size = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        size += parts[i].size();
    }
    if (!open_ || unsent_.size() + size > maxUnsentBytes)
    {
        return false;
    }
    std::size_t sent = 0;
    const bool waits = !unsent_.empty();
    if (!waits)
    {
        // A failure is reported by the stream; not from in here.
        sent = stream_->send(parts, count, false).count;
    }
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t skipped = std::min(sent, parts[i].size());
        unsent_.append(parts[i].substr(skipped));
        sent -= skipped;
    }
    if (!waits && !unsent_.empty())
    {
        stream_->watchSend(true);
    }
    return true;
}

void CameraConnection::onReady(std::uint32_t ready)
{
    if ((ready & ByteStream::sendable) != 0)
    {
        flush();
    }
    if (open_ && (ready & (ByteStream::receivable | ByteStream::hungUp)) != 0)
    {
        receive();
    }
}

void CameraConnection::receive()
{
    std::size_t total = 0;
    for (bool more = true; more && total < maxBytesAtOnce;)
    {
        const CameraReceiver::Room room = receiver_.room();
        const ByteStream::Result result = stream_->receive(room.bytes, room.size);
        if (result.status == ByteStream::Status::blocked)
        {
            return;
        }
        if (result.status != ByteStream::Status::done)
        {
            endBody();
            fail(Ended::connection, result.status == ByteStream::Status::ended
                                        ? "the camera closed the connection"
                                        : "the connection to the camera broke");
            return;
        }
        receiver_.received(result.count);
        total += result.count;
        more = result.count == room.size;
        if (!takeReceived(HostClock::system().now()))
        {
            return;
        }
    }
}

/// \returns false when the connection is closed
bool CameraConnection::takeReceived(MonotonicTime arrival)
{
    while (open_)
    {
        switch (receiver_.next())
        {
            case CameraReceiver::Next::packet:
                events_.onInterleaved(receiver_.channel(), receiver_.packet(), receiver_.packetSize(),
                                      arrival);
                break;
            case CameraReceiver::Next::message:
                bodyOpen_ = false;
                events_.onMessage(receiver_.message());
                break;
            case CameraReceiver::Next::incomplete:
                return true;
            case CameraReceiver::Next::openBody:
                bodyOpen_ = true;
                events_.onOpenBody();
                return open_;
            case CameraReceiver::Next::broken:
                fail(Ended::protocol, "the camera sends what is not RTSP");
                return false;
        }
    }
    return false;
}

void CameraConnection::endBody()
{
    if (open_ && std::exchange(bodyOpen_, false))
    {
        receiver_.endBody();
        events_.onMessage(receiver_.message());
    }
}

void CameraConnection::flush()
{
    const std::string_view left = unsent_;
    const ByteStream::Result result = stream_->send(&left, 1, false);
    unsent_.erase(0, result.count);
    if (result.status == ByteStream::Status::failed)
    {
        fail(Ended::connection, "the connection to the camera broke");
        return;
    }
    if (unsent_.empty())
    {
        stream_->watchSend(false);
    }
}

void CameraConnection::close()
{
    if (std::exchange(open_, false))
    {
        stream_->close();
    }
}

void CameraConnection::fail(Ended why, const std::string& error)
{
    if (open_)
    {
        close();
        events_.onClosed(why, error);
    }
}

}  // namespace refhost
