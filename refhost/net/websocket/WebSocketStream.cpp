#include "refhost/net/websocket/WebSocketStream.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/websocket/RtspMessages.h"

namespace refhost
{

WebSocketStream::WebSocketStream(std::shared_ptr<ByteStream> carrier, std::string response,
                                 std::string_view received)
    : FilterStream(std::move(carrier), std::move(response))
{
    const MutexLock guard(mutex_);
    take(received);
}

WebSocketStream::~WebSocketStream()
{
    close();
}

void WebSocketStream::take(std::string_view bytes)
{
    frames_.read(bytes, decoded_, unsent_);
    if (frames_.reads() || ended_ || failed_)
    {
        return;
    }
    if (frames_.closedByPeer())
    {
        ended_ = true;
        return;
    }
    Log::debug("{}: WebSocket ended: the client violates the protocol", peer().text());
    flush();  // the close frame
    failed_ = true;
}

bool WebSocketStream::onCarrierReceivable()
{
    return true;
}

/// Not while the client leaves answers unread: it could ask for them for ever.
bool WebSocketStream::watchesCarrier() const
{
    return watchesReceive_ && decoded_.empty() && !ended_ && unsent_.size() <= maxAccepted;
}

ByteStream::Status WebSocketStream::pump()
{
    if (unsent_.size() > maxAccepted)
    {
        return Status::blocked;
    }
    char bytes[readSize];
    const Result result = carrier().receive(bytes, sizeof bytes);
    if (result.status == Status::done)
    {
        take({bytes, result.count});
        return failed_ ? Status::failed : ended_ && decoded_.empty() ? Status::ended : Status::done;
    }
    // Without a close frame the client's last message may be truncated.
    failed_ = failed_ || result.status == Status::failed || result.status == Status::ended;
    return failed_ ? Status::failed : Status::blocked;
}

ByteStream::Result WebSocketStream::send(const std::string_view* parts, std::size_t count, bool more)
{
    const MutexLock guard(mutex_);
    if (failed_ || closed_ || !frames_.sends())
    {
        return {Status::failed};
    }
    if (!unsent_.empty())
    {
        flush(more);
        update();
    }
    if (failed_ || !unsent_.empty())
    {
        return {failed_ ? Status::failed : Status::blocked};
    }
    std::size_t accepted = 0;
    for (std::size_t i = 0; i < std::min(count, maxParts); ++i)
    {
        for (std::string_view rest = parts[i]; !rest.empty();)
        {
            const std::string_view message = rest.substr(0, RtspMessages::firstSize(rest));
            if (accepted != 0 && accepted + message.size() > maxAccepted)
            {
                i = maxParts;
                break;
            }
            // A larger one than is ever sent: as much as is held.
            WebSocketFrames::append(message.substr(0, maxAccepted), unsent_);
            accepted += std::min(message.size(), maxAccepted);
            rest.remove_prefix(std::min(message.size(), maxAccepted));
        }
    }
    flush(more);
    update();
    return failed_ ? Result{Status::failed} : Result{Status::done, accepted};
}

void WebSocketStream::endSending()
{
    {
        const MutexLock guard(mutex_);
        if (!closed_ && !failed_)
        {
            frames_.close(WebSocketFrames::End::normal, unsent_);
        }
    }
    FilterStream::endSending();
}

void WebSocketStream::close()
{
    if (!beginClose())
    {
        return;
    }
    const MutexLock guard(mutex_);
    if (!failed_)
    {
        frames_.close(WebSocketFrames::End::goingAway, unsent_);
        flush();
    }
    // What the peer sent is read: closing a TCP connection with unread bytes resets it, which can cost the peer
    // the close frame.
    constexpr int reads = 16;
    char dropped[readSize];
    for (int i = 0; i < reads && carrier().receive(dropped, sizeof dropped).status == Status::done; ++i)
    {
    }
    carrier().close();
}

}  // namespace refhost
