#include "refhost/ingest/client/RtspClient.h"

#include <utility>

#include "refhost/ingest/client/RtspClientSession.h"

namespace refhost
{

RtspClient::RtspClient(EventLoop& loop, StreamConnector& connector, const std::string& url,
                       const RtspClientOptions& options, RtspClientEvents& events)
    : session_(std::make_shared<RtspClientSession>(loop, connector, url, options, events))
{
}

RtspClient::~RtspClient()
{
    stop();
}

void RtspClient::start()
{
    session_->start();
}

void RtspClient::stop(std::function<void()> closed)
{
    session_->stop(std::move(closed));
}

bool RtspClient::sendReport(std::size_t track, const std::uint8_t* data, std::size_t size)
{
    return session_->sendReport(track, data, size);
}

RtspClientState RtspClient::state() const
{
    return session_->state();
}

}  // namespace refhost
