#include "refhost/rtsp/session/SessionVerbs.h"

#include "hostapi/description/MediaInfo.h"
#include "live/IRTSPControllerFactory.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/rtsp/message/RtspText.h"
#include "refhost/rtsp/message/StatusMap.h"

namespace refhost
{
namespace
{

constexpr std::string_view sdpType = "application/sdp";

/// Without an Accept header everything is accepted (RFC 2326, section 12.1).
bool acceptsSdp(const RtspRequest& request)
{
    const RtspRequest::Header* header = request.find("Accept");
    if (header == nullptr)
    {
        return true;
    }
    for (; header != nullptr; header = request.find("Accept", header))
    {
        std::string_view list = header->value;
        while (!list.empty())
        {
            std::string_view entry = RtspText::cut(list, ',');
            const std::string_view type = RtspText::cut(entry, ';');
            if (type == "*/*" || type == "*" || equalsIgnoringCase(type, "application/*") ||
                equalsIgnoringCase(type, sdpType))
            {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

SessionVerbs::SessionVerbs(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions)
    : services_(services), connection_(connection), sessions_(sessions), deliveries_(services, connection)
{
}

/// \param talkBack  whether the client may know of the presentation's back channel
RtspStatus SessionVerbs::createController(const Exchange& exchange, bool talkBack,
                                          std::optional<SafePointer<IRTSPController>>& out, bool& notReady)
{
    const MediaRoutes::Route* const route = services_.routes.find(exchange.url.presentation);
    if (route == nullptr)
    {
        return rtspNotFound;
    }
    if (route->ready && !route->ready(exchange.url.presentation))
    {
        notReady = true;
        return rtspServiceUnavailable;
    }
    out.emplace();
    const int code =
        route->factory->createMedia(exchange.url.presentation, *out, talkBack && route->talkBack);
    notReady = code == hostStreamNotReady;
    if (code != 0)
    {
        out.reset();
    }
    return StatusMap::ofCode(StatusMap::Step::create, code);
}

SessionVerbs::Result SessionVerbs::describe(Exchange& exchange, bool lastTry)
{
    if (!acceptsSdp(exchange.request))
    {
        exchange.answer(rtspNotAcceptable);
        return Result::answered;
    }
    std::optional<SafePointer<IRTSPController>> controller;
    bool notReady = false;
    RtspStatus status = createController(exchange, exchange.require.backchannel, controller, notReady);
    if (notReady && !lastTry)
    {
        return Result::notReady;
    }
    MediaInfo info;
    if (status == rtspOk)
    {
        status = StatusMap::ofCode(StatusMap::Step::create, (*controller)->getMediaInfo(info));
    }
    if (status == rtspOk && !exchange.url.track.empty())
    {
        SubMediaInfo track;
        status = info.getSubMediaInfo(exchange.url.track, track) ? rtspOk : rtspNotFound;
    }
    if (status != rtspOk)
    {
        exchange.answer(status);
        return Result::answered;
    }
    MulticastWay way;
    const bool multicast = services_.routes.find(exchange.url.presentation)->multicast();
    if (multicast && !findGroup(*controller, way))
    {
        exchange.answer(rtspServiceUnavailable);
        return Result::answered;
    }
    std::string description;
    description.reserve(1024);
    services_.sdp.append(description, info, {connection_.local().text(), connection_.local().isIpv6()},
                         multicast ? &way : nullptr,
                         exchange.require.replay ? RangeHeader::Unit::clock : RangeHeader::Unit::npt);
    ResponseWriter& out = exchange.begin(rtspOk);
    out.beginHeader("Content-Base");
    out.text().append(exchange.url.base).append("/");
    out.endHeader();
    exchange.send(sdpType, description);
    return Result::answered;
}

/// \returns false when there is none for the controller's stream
bool SessionVerbs::findGroup(SafePointer<IRTSPController>& controller, MulticastWay& way)
{
    return services_.multicast != nullptr &&
           services_.multicast->describe(SharedStream::of(controller).stream, way);
}

SessionVerbs::Result SessionVerbs::setup(Exchange& exchange, bool lastTry)
{
    if (exchange.request.find("Transport") == nullptr)
    {
        exchange.answer(rtspBadRequest);
        return Result::answered;
    }
    std::shared_ptr<RtspSession> session;
    if (exchange.request.find("Session") != nullptr)
    {
        session = sessions_.find(exchange);
        if (session == nullptr || session->presentation() != exchange.url.presentation)
        {
            exchange.answer(session == nullptr ? rtspSessionNotFound : rtspAggregateNotAllowed);
            return Result::answered;
        }
    }
    const MediaRoutes::Route* const route = services_.routes.find(exchange.url.presentation);
    const auto choice = deliveries_.choose(exchange.request, route != nullptr && route->multicast());
    if (!choice)
    {
        exchange.answer(rtspUnsupportedTransport);
        return Result::answered;
    }
    if (session == nullptr)
    {
        bool notReady = false;
        const RtspStatus status = createSession(exchange, session, notReady);
        if (notReady && !lastTry)
        {
            return Result::notReady;
        }
        if (status != rtspOk)
        {
            exchange.answer(status);
            return Result::answered;
        }
    }
    setupTrack(exchange, session, *choice);
    return Result::answered;
}

RtspStatus SessionVerbs::createSession(Exchange& exchange, std::shared_ptr<RtspSession>& out, bool& notReady)
{
    std::optional<SafePointer<IRTSPController>> controller;
    // Whoever knows the name of the back channel was told it once; many clients insist on it with that
    // track's SETUP only, which may not be the session's first.
    const RtspStatus status = createController(exchange, true, controller, notReady);
    if (status != rtspOk)
    {
        return status;
    }
    const MediaRoutes::Route* const route = services_.routes.find(exchange.url.presentation);
    out = services_.sessions.create(exchange.url.presentation, *controller, *route,
                                    {connection_.peer().key(), exchange.user}, services_.clock());
    return out == nullptr ? rtspServiceUnavailable : rtspOk;
}

void SessionVerbs::setupTrack(Exchange& exchange, const std::shared_ptr<RtspSession>& session,
                              const TransportChoice& choice)
{
    std::string transportText;
    std::uint32_t ssrc = 0;
    RtspStatus status = rtspInternalError;
    try
    {
        status = session->setup(
            exchange.url.track,
            [&](RtspSession::Delivery& out)
            {
                const RtspStatus made =
                    deliveries_.make(choice, *session, exchange.url.track, out, transportText);
                if (made == rtspOk && !(*out.transport)->traits().shared)
                {
                    (*out.transport)->start = LiveStart::named(exchange.request.value("Live-Start"));
                }
                return made;
            },
            ssrc);
    }
    catch (...)
    {
        endIfEmpty(session);
        throw;
    }
    if (status != rtspOk)
    {
        endIfEmpty(session);
        exchange.answer(status);
        return;
    }
    sessions_.use(session);
    session->replays(exchange.require.replay);
    session->heard(connection_.serial(), services_.clock());
    ResponseWriter& out = exchange.begin(rtspOk);
    TrackDeliveries::answer(out, transportText, ssrc);
    sessions_.addHeader(out, *session);
    out.header("Cache-Control", "no-cache");
    exchange.send();
}

/// A session without a track would only wait for its time-out.
void SessionVerbs::endIfEmpty(const std::shared_ptr<RtspSession>& session)
{
    if (session->trackCount() == 0)
    {
        services_.sessions.end(session);
    }
}

void SessionVerbs::teardown(Exchange& exchange)
{
    const auto session = sessions_.of(exchange);
    if (session == nullptr)
    {
        return;
    }
    bool empty = false;
    const RtspStatus status = session->teardown(exchange.url.track, empty);
    if (empty)
    {
        services_.sessions.end(session);
    }
    exchange.answer(status);
}

void SessionVerbs::received(int channel, const std::uint8_t* data, std::size_t size)
{
    deliveries_.received(channel, data, size);
}

}  // namespace refhost
