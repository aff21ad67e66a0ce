#include "refhost/rtsp/session/RequestHandler.h"

#include <array>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/base/LibraryOutput.h"
#include "refhost/base/Log.h"
#include "refhost/rtsp/session/PlayMethods.h"

namespace refhost
{
namespace
{

constexpr std::string_view allowedMethods =
    "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER, SET_PARAMETER";

using LoginResult = ConnectionLogin::Result;

enum class Method
{
    options,
    describe,
    setup,
    play,
    pause,
    teardown,
    parameters,
    notAllowed,  // an RTSP method, but not for the media of this server
    unknown
};

Method methodOf(std::string_view name)
{
    struct Entry
    {
        std::string_view name;
        Method method;
    };
    constexpr std::array<Entry, 11> methods{{{"OPTIONS", Method::options},
                                             {"DESCRIBE", Method::describe},
                                             {"SETUP", Method::setup},
                                             {"PLAY", Method::play},
                                             {"PAUSE", Method::pause},
                                             {"TEARDOWN", Method::teardown},
                                             {"GET_PARAMETER", Method::parameters},
                                             {"SET_PARAMETER", Method::parameters},
                                             {"ANNOUNCE", Method::notAllowed},
                                             {"RECORD", Method::notAllowed},
                                             {"REDIRECT", Method::notAllowed}}};
    for (const Entry& entry : methods)
    {
        if (entry.name == name)
        {
            return entry.method;
        }
    }
    return Method::unknown;
}

/// Methods that may address the server instead of a presentation.
bool allowsServerUrl(Method method)
{
    return method == Method::options || method == Method::parameters || method == Method::notAllowed;
}

}  // namespace

RequestHandler::RequestHandler(RtspServices& services, ClientConnection& connection)
    : services_(services), connection_(connection), sessions_(services, connection), login_(*services.users)
{
}

RequestHandler::Result RequestHandler::handle(const RtspRequest& request, ResponseWriter& out, bool lastTry)
{
    RequestContext context(request, out, connection_);
    const std::function<std::string()> about = [&]
    { return fmt::format("{}: {} of {}", connection_.peer().text(), request.method, request.uri); };
    const LibraryOutput::Context lineContext(about);
    try
    {
        const Result result = dispatch(context, lastTry);
        if (context.answered() && context.status() == rtspNotFound)
        {
            Log::limited(Log::Level::info, "requests for what does not exist", "{}: {} of {}: not found",
                         connection_.peer().text(), Log::safe(request.method, 20), Log::safe(request.uri));
        }
        return result;
    }
    catch (const std::exception& error)
    {
        Log::error("{}: {} of {} failed: {}", connection_.peer().text(), Log::safe(request.method, 20),
                   Log::safe(request.uri), error.what());
    }
    if (!context.answered())
    {
        context.answer(rtspInternalError);
    }
    return Result::answered;
}

RequestHandler::Result RequestHandler::dispatch(RequestContext& context, bool lastTry)
{
    const std::unique_ptr<const std::string> admitted = std::move(admitted_);
    decided_ = LoginResult::challenge;
    lastTry_ = lastTry;
    if (!accept(context, admitted.get()))
    {
        if (decided_ == LoginResult::delayed)
        {
            return Result::delayed;
        }
        if (decided_ == LoginResult::pending)
        {
            return Result::notReady;
        }
        return context.keepsConnection ? Result::answered : Result::answeredLast;
    }
    const RequestAccess rights = access();
    SessionMethods methods(services_, connection_, sessions_, rights, memory_);
    PlayMethods playing(services_, connection_, sessions_, rights);
    MethodResult result = MethodResult::answered;
    switch (methodOf(context.request.method))
    {
        case Method::options:
            options(context);
            break;
        case Method::describe:
            result = methods.describe(context, lastTry);
            break;
        case Method::setup:
            result = methods.setup(context, lastTry);
            break;
        case Method::play:
            result = playing.play(context, {admitted != nullptr, lastTry});
            break;
        case Method::pause:
            playing.pause(context);
            break;
        case Method::teardown:
            methods.teardown(context);
            break;
        case Method::parameters:
            parameters(context);
            break;
        default:
            methodNotAllowed(context);
            break;
    }
    if (result == MethodResult::notReady)
    {
        admitted_ = std::make_unique<const std::string>(context.user);
        return Result::notReady;
    }
    return context.keepsConnection ? Result::answered : Result::answeredLast;
}

/// Checks what holds for every request, and answers one that fails.
bool RequestHandler::accept(RequestContext& context, const std::string* admitted)
{
    const RtspRequest& request = context.request;
    context.keepsConnection = !equalsIgnoringCase(request.value("Connection"), "close");
    const std::string_view cseq = request.value("CSeq");
    constexpr std::uint64_t largestCseq = 0xffffffff;
    if (!parseDecimal<std::uint64_t>(cseq, largestCseq))
    {
        context.answer(rtspBadRequest);
        return false;
    }
    context.cseq = cseq;
    const Method method = methodOf(request.method);
    if (method == Method::unknown)
    {
        ResponseWriter& out = context.start(rtspNotImplemented);
        out.header("Public", allowedMethods);
        context.send();
        return false;
    }
    auto url = RtspUrl::parse(request.uri);
    if (!url || (url->server && !allowsServerUrl(method)))
    {
        context.answer(rtspBadRequest);
        return false;
    }
    context.url = std::move(*url);
    if (connection_.encrypted())
    {
        // Some clients write rtsp:// in requests over TLS.
        context.url.setEncrypted();
    }
    context.require = RequireHeader::of(request);
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    if (context.require.replay && route != nullptr && !route->recorded)
    {
        context.require.refuseReplay();
    }
    if (!context.require.unsupported.empty())
    {
        ResponseWriter& out = context.start(rtspOptionNotSupported);
        out.header("Unsupported", context.require.unsupported);
        context.send();
        return false;
    }
    // OPTIONS is open to everybody: clients probe with it before they know that they must log in.
    if (method == Method::options && request.find("Session") == nullptr)
    {
        return true;
    }
    // A deferred request is handled again with credentials that have been used by now.
    if (admitted != nullptr)
    {
        context.user = *admitted;
        return true;
    }
    return authorize(context);
}

RequestAccess RequestHandler::access() const
{
    return {services_, connection_};
}

bool RequestHandler::authorize(RequestContext& context)
{
    const RtspRequest& request = context.request;
    const std::string certificate = connection_.certificateName();
    const ConnectionLogin::Request credentials{
        request.method,     request.uri,          request.value("Authorization"),
        connection_.peer(), connection_.serial(), connection_.encrypted(),
        certificate,        &RtspUrl::authorizes};
    if (!login_.isCertified(credentials) && admitAnonymous(context))
    {
        return true;
    }
    ConnectionLogin::Outcome outcome = login_.attempt(credentials, lastTry_);
    decided_ = outcome.result;
    delay_ = outcome.span;
    switch (decided_)
    {
        case LoginResult::granted:
            context.user = std::move(outcome.user);
            return true;
        case LoginResult::challenge:
        case LoginResult::stale:
            access().challenge(context, decided_ == LoginResult::stale);
            return false;
        case LoginResult::refused:
            refuse(context, delay_);
            return false;
        case LoginResult::busy:
            context.answer(rtspServiceUnavailable);
            return false;
        case LoginResult::delayed:
        case LoginResult::pending:
            break;
    }
    return false;
}

/// Answers a request whose client was wrong too often.
void RequestHandler::refuse(RequestContext& context, Duration span)
{
    context.retryAfter = std::chrono::ceil<std::chrono::seconds>(span);
    context.keepsConnection = context.keepsConnection && sessions_.carriesSession();
    context.answer(rtspServiceUnavailable);
}

Duration RequestHandler::delay() const
{
    return delay_;
}

/// Clients that send credentials, or use the session of a user, log in.
bool RequestHandler::admitAnonymous(RequestContext& context)
{
    if (context.request.find("Authorization") != nullptr || !services_.users->rights.rules()->hasAnonymous())
    {
        return false;
    }
    return context.request.find("Session") == nullptr || sessions_.find(context) != nullptr;
}

void RequestHandler::options(RequestContext& context)
{
    const auto session = sessions_.find(context);
    if (session == nullptr && context.request.find("Session") != nullptr)
    {
        context.answer(rtspSessionNotFound);
        return;
    }
    ResponseWriter& out = context.start(rtspOk);
    out.header("Public", allowedMethods);
    if (session != nullptr)
    {
        sessions_.addHeader(out, *session);
    }
    context.send();
}

/// Without a body it is a keep-alive. There are no parameters to request in a body.
void RequestHandler::parameters(RequestContext& context)
{
    const RtspRequest& request = context.request;
    const auto session = sessions_.find(context);
    if (session == nullptr && request.find("Session") != nullptr)
    {
        context.answer(rtspSessionNotFound);
        return;
    }
    if (HeaderText::trim(request.body).empty())
    {
        ResponseWriter& out = context.start(rtspOk);
        if (session != nullptr)
        {
            sessions_.addHeader(out, *session);
        }
        context.send();
        return;
    }
    std::string_view type = request.value("Content-Type");
    type = HeaderText::cut(type, ';');
    const bool understood = type.empty() || equalsIgnoringCase(type, "text/parameters");
    context.answer(understood ? rtspParameterNotUnderstood : rtspUnsupportedMediaType);
}

void RequestHandler::methodNotAllowed(RequestContext& context)
{
    ResponseWriter& out = context.start(rtspMethodNotAllowed);
    out.header("Allow", allowedMethods);
    context.send();
}

RequestHandler::Result RequestHandler::reject(const RtspRequest& request,
                                              const RequestReader::Problem& problem, ResponseWriter& out)
{
    RequestContext context(request, out, connection_);
    context.keepsConnection = !problem.fatal;
    const std::string_view cseq = request.value("CSeq");
    context.cseq = parseDecimal<std::uint64_t>(cseq, 0xffffffff) ? cseq : std::string_view();
    context.answer(problem.status);
    return problem.fatal ? Result::answeredLast : Result::answered;
}

RequestHandler::Result RequestHandler::refuse(const RtspRequest& request, ResponseWriter& out)
{
    return reject(request, {rtspServiceUnavailable, true}, out);
}

void RequestHandler::received(const RequestReader::Frame& frame)
{
    try
    {
        if (memory_.channels != nullptr)
        {
            memory_.channels->received(frame.channel, frame.data, frame.size);
        }
    }
    catch (const std::exception& error)
    {
        Log::error("{}: taking RTCP failed: {}", connection_.peer().text(), error.what());
    }
}

bool RequestHandler::loggedIn() const
{
    return !login_.user().empty();
}

bool RequestHandler::carriesSession()
{
    return sessions_.carriesSession();
}

void RequestHandler::connectionAnswered(MonotonicTime time)
{
    sessions_.connectionAnswered(time);
}

void RequestHandler::connectionEnded()
{
    login_.giveUp();
    sessions_.connectionEnded();
}

}  // namespace refhost
