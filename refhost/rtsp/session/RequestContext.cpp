#include "refhost/rtsp/session/RequestContext.h"

namespace refhost
{
namespace
{

/// What is not available now may be soon: a camera that starts, an index that is rebuilt (RFC 2326,
/// section 12.31).
constexpr std::string_view retryAfterSeconds = "5";

}  // namespace

RequestContext::RequestContext(const RtspRequest& rtspRequest, ResponseWriter& responseWriter,
                               ClientConnection& clientConnection)
    : request(rtspRequest), connection(clientConnection), writer_(responseWriter)
{
}

ResponseWriter& RequestContext::begin(RtspStatus status)
{
    status_ = status;
    writer_.begin(status, cseq);
    if (status == rtspServiceUnavailable)
    {
        writer_.header("Retry-After", retryAfterSeconds);
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
    begin(status);
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
