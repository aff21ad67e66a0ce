#include "refhost/rtsp/session/RequestContext.h"

namespace refhost
{
RequestContext::RequestContext(const RtspRequest& rtspRequest, ResponseWriter& responseWriter,
                               ClientConnection& clientConnection)
    : request(rtspRequest), connection(clientConnection), writer_(responseWriter)
{
}

ResponseWriter& RequestContext::start(RtspStatus status)
{
    status_ = status;
    writer_.start(status, cseq);
    if (status == rtspServiceUnavailable)
    {
        writer_.header("Retry-After", std::to_string(retryAfter.count()));
    }
    return writer_;
}

void RequestContext::send()
{
    addConnectionHeader();
    answered_ = true;
    connection.sendResponse(writer_.finish());
}

void RequestContext::send(std::string_view contentType, std::string_view body)
{
    addConnectionHeader();
    answered_ = true;
    connection.sendResponse(writer_.finish(contentType, body));
}

void RequestContext::answer(RtspStatus status)
{
    start(status);
    send();
}

bool RequestContext::answered() const
{
    return answered_;
}

RtspStatus RequestContext::status() const
{
    return status_;
}

void RequestContext::addConnectionHeader()
{
    if (!keepsConnection)
    {
        writer_.header("Connection", "close");
    }
}

}  // namespace refhost
