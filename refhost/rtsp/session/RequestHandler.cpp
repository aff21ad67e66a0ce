#include "refhost/rtsp/session/RequestHandler.h"

#include <array>
#include <exception>
#include <functional>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/base/LibraryOutput.h"
#include "refhost/base/Log.h"
#include "refhost/rtsp/message/RtspText.h"

namespace refhost
{
namespace
{

constexpr std::string_view allowedMethods =
    "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER, SET_PARAMETER";

enum class Method
{
    options,
    describe,
    setup,
    play,
    pause,
    teardown,
    parameters,
    notAllowed,  // known to RTSP, not for the media of this server
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

/// Methods that may be about the server instead of a presentation.
bool allowsServerUrl(Method method)
{
    return method == Method::options || method == Method::parameters || method == Method::notAllowed;
}

}  // namespace

RequestHandler::RequestHandler(RtspServices& services, ClientConnection& connection)
    : services_(services),
      connection_(connection),
      sessions_(services, connection),
      verbs_(services, connection, sessions_),
      playing_(services, connection, sessions_)
{
}

RequestHandler::Result RequestHandler::handle(const RtspRequest& request, ResponseWriter& out, bool lastTry)
{
    Exchange exchange(request, out, connection_);
    const std::function<std::string()> about = [&]
    { return fmt::format("{}: {} of {}", connection_.peer().text(), request.method, request.uri); };
    const LibraryOutput::Context context(about);
    try
    {
        const Result result = dispatch(exchange, lastTry);
        if (exchange.answered() && exchange.status() == rtspNotFound)
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
    if (!exchange.answered())
    {
        exchange.answer(rtspInternalError);
    }
    return Result::answered;
}

RequestHandler::Result RequestHandler::dispatch(Exchange& exchange, bool lastTry)
{
    const std::optional<std::string> admitted = std::exchange(admitted_, std::nullopt);
    if (!accept(exchange, admitted))
    {
        return exchange.keepsConnection ? Result::answered : Result::answeredLast;
    }
    VerbResult result = VerbResult::answered;
    switch (methodOf(exchange.request.method))
    {
        case Method::options:
            options(exchange);
            break;
        case Method::describe:
            result = verbs_.describe(exchange, lastTry);
            break;
        case Method::setup:
            result = verbs_.setup(exchange, lastTry);
            break;
        case Method::play:
            result = playing_.play(exchange, {admitted.has_value(), lastTry});
            break;
        case Method::pause:
            playing_.pause(exchange);
            break;
        case Method::teardown:
            verbs_.teardown(exchange);
            break;
        case Method::parameters:
            parameters(exchange);
            break;
        default:
            methodNotAllowed(exchange);
            break;
    }
    if (result == VerbResult::notReady)
    {
        admitted_ = exchange.user;
        return Result::notReady;
    }
    return exchange.keepsConnection ? Result::answered : Result::answeredLast;
}

/// Checks what every request must fulfil, and answers one that does not.
bool RequestHandler::accept(Exchange& exchange, const std::optional<std::string>& admitted)
{
    const RtspRequest& request = exchange.request;
    exchange.keepsConnection = !equalsIgnoringCase(request.value("Connection"), "close");
    const std::string_view cseq = request.value("CSeq");
    constexpr std::uint64_t largestCseq = 0xffffffff;
    if (!parseDecimal<std::uint64_t>(cseq, largestCseq))
    {
        exchange.answer(rtspBadRequest);
        return false;
    }
    exchange.cseq = cseq;
    const Method method = methodOf(request.method);
    if (method == Method::unknown)
    {
        ResponseWriter& out = exchange.begin(rtspNotImplemented);
        out.header("Public", allowedMethods);
        exchange.send();
        return false;
    }
    auto url = RtspUrl::parse(request.uri);
    if (!url || (url->server && !allowsServerUrl(method)))
    {
        exchange.answer(rtspBadRequest);
        return false;
    }
    exchange.url = std::move(*url);
    exchange.require = RequireHeader::of(request);
    const MediaRoutes::Route* const route = services_.routes.find(exchange.url.presentation);
    if (exchange.require.replay && route != nullptr && !route->recorded)
    {
        exchange.require.refuseReplay();
    }
    if (!exchange.require.unsupported.empty())
    {
        ResponseWriter& out = exchange.begin(rtspOptionNotSupported);
        out.header("Unsupported", exchange.require.unsupported);
        exchange.send();
        return false;
    }
    // Everybody may ask what the server can do; clients probe with it before they know that they must log in.
    if (method == Method::options && request.find("Session") == nullptr)
    {
        return true;
    }
    // A request that had to wait comes in again with credentials that were good once and are used up by now.
    if (admitted)
    {
        exchange.user = *admitted;
        return true;
    }
    return authorize(exchange);
}

bool RequestHandler::authorize(Exchange& exchange)
{
    const RtspRequest& request = exchange.request;
    const Authenticator::Decision decision =
        services_.authenticator.check(request.method, request.uri, request.value("Authorization"), client());
    if (decision.verdict == Authenticator::Verdict::granted)
    {
        exchange.user = decision.user;
        loggedIn_ = loggedIn_ || services_.authenticator.enabled();
        return true;
    }
    if (decision.verdict == Authenticator::Verdict::denied && request.find("Authorization") != nullptr)
    {
        Log::limited(Log::Level::info, "requests with wrong credentials", "{}: wrong credentials for {}",
                     connection_.peer().text(), Log::safe(request.uri));
    }
    ResponseWriter& out = exchange.begin(rtspUnauthorized);
    services_.authenticator.challenge(out, decision.verdict == Authenticator::Verdict::stale, client());
    exchange.send();
    return false;
}

Authenticator::Client RequestHandler::client() const
{
    return {connection_.peer().key(), connection_.serial()};
}

void RequestHandler::options(Exchange& exchange)
{
    const auto session = sessions_.find(exchange);
    if (session == nullptr && exchange.request.find("Session") != nullptr)
    {
        exchange.answer(rtspSessionNotFound);
        return;
    }
    ResponseWriter& out = exchange.begin(rtspOk);
    out.header("Public", allowedMethods);
    if (session != nullptr)
    {
        sessions_.addHeader(out, *session);
    }
    exchange.send();
}

/// Without a body it keeps the session alive; there is no parameter that a body could ask for.
void RequestHandler::parameters(Exchange& exchange)
{
    const RtspRequest& request = exchange.request;
    const auto session = sessions_.find(exchange);
    if (session == nullptr && request.find("Session") != nullptr)
    {
        exchange.answer(rtspSessionNotFound);
        return;
    }
    if (RtspText::trim(request.body).empty())
    {
        ResponseWriter& out = exchange.begin(rtspOk);
        if (session != nullptr)
        {
            sessions_.addHeader(out, *session);
        }
        exchange.send();
        return;
    }
    std::string_view type = request.value("Content-Type");
    type = RtspText::cut(type, ';');
    const bool understood = type.empty() || equalsIgnoringCase(type, "text/parameters");
    exchange.answer(understood ? rtspParameterNotUnderstood : rtspUnsupportedMediaType);
}

void RequestHandler::methodNotAllowed(Exchange& exchange)
{
    ResponseWriter& out = exchange.begin(rtspMethodNotAllowed);
    out.header("Allow", allowedMethods);
    exchange.send();
}

RequestHandler::Result RequestHandler::reject(const RtspRequest& request,
                                              const RequestReader::Problem& problem, ResponseWriter& out)
{
    Exchange exchange(request, out, connection_);
    exchange.keepsConnection = !problem.fatal;
    const std::string_view cseq = request.value("CSeq");
    exchange.cseq = parseDecimal<std::uint64_t>(cseq, 0xffffffff) ? cseq : std::string_view();
    exchange.answer(problem.status);
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
        verbs_.received(frame.channel, frame.data, frame.size);
    }
    catch (const std::exception& error)
    {
        Log::error("{}: taking RTCP failed: {}", connection_.peer().text(), error.what());
    }
}

bool RequestHandler::loggedIn() const
{
    return loggedIn_;
}

bool RequestHandler::carriesSession()
{
    return sessions_.carriesSession();
}

void RequestHandler::connectionAnswered(std::int64_t ms)
{
    sessions_.connectionAnswered(ms);
}

void RequestHandler::connectionEnded()
{
    sessions_.connectionEnded();
}

}  // namespace refhost
