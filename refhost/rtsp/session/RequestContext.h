#pragma once
// Tested by tests/refhost/rtsp/session/RequestHandler_test.cpp.

#include <string>
#include <string_view>

#include "refhost/rtsp/message/RequireHeader.h"
#include "refhost/rtsp/message/ResponseWriter.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/RtspUrl.h"
#include "refhost/rtsp/session/ClientConnection.h"

namespace refhost
{

/// What became of a request at its method.
enum class MethodResult
{
    answered,
    /// The media is not ready yet and nothing was answered: ask again later.
    notReady
};

/// One request on the way to its one response. Lives on the stack while the request is handled.
class RequestContext
{
public:
    RequestContext(const RtspRequest& rtspRequest, ResponseWriter& responseWriter,
                   ClientConnection& clientConnection);

    const RtspRequest& request;
    ClientConnection& connection;
    RtspUrl url;
    /// What the request insists on; without unknown features once a method handles it.
    RequireHeader require;
    /// Who authenticated; empty without users, and for requests that need no credentials.
    std::string user;
    /// The request's CSeq; empty until it was found to be a number.
    std::string_view cseq;
    /// False to have the connection ended after the response.
    bool keepsConnection = true;

    /// Starts the response; the caller may add headers before send().
    ResponseWriter& begin(RtspStatus status);
    void send();
    void send(std::string_view contentType, std::string_view body);
    /// A response without anything of its own.
    void answer(RtspStatus status);

    bool answered() const;
    /// The status that begin() was given last; `rtspOk` before.
    RtspStatus status() const;

private:
    void addConnectionHeader();

    ResponseWriter& writer_;
    RtspStatus status_ = rtspOk;
    bool answered_ = false;
};

}  // namespace refhost
