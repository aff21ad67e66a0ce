#pragma once
// Tested by tests/refhost/rtsp/session/RequestHandler_test.cpp.

#include <chrono>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/RequireHeader.h"
#include "refhost/rtsp/message/ResponseWriter.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/RtspUrl.h"
#include "refhost/rtsp/session/ClientConnection.h"

namespace refhost
{

/// The result of a method.
enum class MethodResult
{
    answered,
    /// The media is not ready; nothing was answered: call again later.
    notReady
};

/// One request and its response. Lives on the stack while the request is handled.
class RequestContext
{
public:
    RequestContext(const RtspRequest& rtspRequest, ResponseWriter& responseWriter,
                   ClientConnection& clientConnection);

    const RtspRequest& request;
    ClientConnection& connection;
    RtspUrl url;
    /// The features that the request requires; all known once a method handles it.
    RequireHeader require;
    /// The authenticated user; empty without users, and for requests that need no credentials.
    std::string user;
    /// The request's CSeq; empty until it is known to be a number.
    std::string_view cseq;
    /// False to close the connection after the response.
    bool keepsConnection = true;
    /// Sent with 503 (RFC 2326, section 12.31): a camera may be starting, or an index being rebuilt.
    std::chrono::seconds retryAfter{5};

    /// Starts the response; the caller may add headers before send().
    ResponseWriter& start(RtspStatus status);
    void send();
    void send(std::string_view contentType, std::string_view body);
    /// Sends a response without headers of its own.
    void answer(RtspStatus status);

    bool answered() const;
    /// The status of the last start(); `rtspOk` before.
    RtspStatus status() const;

private:
    void addConnectionHeader();

    ResponseWriter& writer_;
    RtspStatus status_ = rtspOk;
    bool answered_ = false;
};

}  // namespace refhost
