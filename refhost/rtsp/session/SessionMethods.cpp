#include "refhost/rtsp/session/SessionMethods.h"

#include "hostapi/description/MediaInfo.h"
#include "live/IRTSPControllerFactory.h"
#include "refhost/base/HeaderText.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/rtsp/message/StatusMap.h"

namespace refhost
{
namespace
{

constexpr std::string_view sdpType = "application/sdp";

/// Without an Accept header every type is accepted (RFC 2326, section 12.1).
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
            std::string_view entry = HeaderText::cut(list, ',');
            const std::string_view type = HeaderText::cut(entry, ';');
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

SessionMethods::SessionMethods(RtspServices& services, ClientConnection& connection,
                               ConnectionSessions& sessions, const RequestAccess& access, Memory& memory)
    : services_(services),
      connection_(connection),
      sessions_(sessions),
      access_(access),
      deliveries_(services, connection, memory.channels),
      security_(services, connection, memory.keys)
{
}

/// \param talkBack  whether to include the presentation's back channel
RtspStatus SessionMethods::createController(const RequestContext& context, bool talkBack,
                                            std::optional<SafePointer<IRTSPController>>& out, bool& notReady)
{
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    if (route == nullptr)
    {
        return rtspNotFound;
    }
    if (route->ready && !route->ready(context.url.presentation))
    {
        notReady = true;
        return rtspServiceUnavailable;
    }
    out.emplace();
    const int code = route->factory->createMedia(context.url.presentation, *out, talkBack && route->talkBack);
    notReady = code == hostStreamNotReady;
    if (code != 0)
    {
        out.reset();
    }
    return StatusMap::ofCode(StatusMap::Step::create, code);
}

SessionMethods::Result SessionMethods::describe(RequestContext& context, bool lastTry)
{
    if (!acceptsSdp(context.request))
    {
        context.answer(rtspNotAcceptable);
        return Result::answered;
    }
    // For those who may not talk it is left out: many clients require the back channel and can do without.
    bool talkBack = context.require.backchannel;
    if (const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation))
    {
        const MediaTarget target = MediaTarget::of(*route, context.url.presentation);
        talkBack = talkBack && route->talkBack && access_.allows(context, target, Right::talk);
        if (!talkBack && !access_.allows(context, target, target.right))
        {
            access_.refuse(context, target, target.right);
            return Result::answered;
        }
    }
    const RequestSecurity::Description security = security_.description(context);
    if (!security.refusal.empty())
    {
        RequestSecurity::refuse(context, security.refusal);
        return Result::answered;
    }
    std::optional<SafePointer<IRTSPController>> controller;
    bool notReady = false;
    RtspStatus status = createController(context, talkBack, controller, notReady);
    if (notReady && !lastTry)
    {
        return Result::notReady;
    }
    MediaInfo info;
    if (status == rtspOk)
    {
        status = StatusMap::ofCode(StatusMap::Step::create, (*controller)->getMediaInfo(info));
    }
    if (status == rtspOk && !context.url.track.empty())
    {
        SubMediaInfo track;
        status = info.getSubMediaInfo(context.url.track, track) ? rtspOk : rtspNotFound;
    }
    if (status != rtspOk)
    {
        context.answer(status);
        return Result::answered;
    }
    MulticastDestination destination;
    const bool multicast = services_.routes.find(context.url.presentation)->multicast();
    MulticastPool::Stream group;
    if (multicast && !findGroup(*controller, group, destination))
    {
        context.answer(rtspServiceUnavailable);
        return Result::answered;
    }
    const auto keys = multicast && security.srtp
                          ? security_.offerGroupKeys(context, group, info)
                          : security_.offerKeys(context.url.presentation, info, security.srtp);
    std::string description;
    description.reserve(1024);
    services_.sdp.append(description, info, {connection_.local().text(), connection_.local().isIpv6()},
                         multicast ? &destination : nullptr,
                         context.require.replay ? RangeHeader::Unit::clock : RangeHeader::Unit::npt,
                         security.srtp ? &keys : nullptr);
    ResponseWriter& out = context.start(rtspOk);
    out.startHeader("Content-Base");
    out.text().append(context.url.base).append("/");
    out.endHeader();
    context.send(sdpType, description);
    return Result::answered;
}

/// \returns false when the controller's stream has none
bool SessionMethods::findGroup(SafePointer<IRTSPController>& controller, MulticastPool::Stream& stream,
                               MulticastDestination& destination)
{
    stream = SharedStream::of(controller).stream;
    return services_.multicast != nullptr && services_.multicast->describe(stream, destination);
}

SessionMethods::Result SessionMethods::setup(RequestContext& context, bool lastTry)
{
    if (context.request.find("Transport") == nullptr)
    {
        context.answer(rtspBadRequest);
        return Result::answered;
    }
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    if (!permitSetup(context, route))
    {
        return Result::answered;
    }
    std::shared_ptr<RtspSession> session;
    if (context.request.find("Session") != nullptr)
    {
        session = sessions_.find(context);
        if (session == nullptr || session->presentation() != context.url.presentation)
        {
            context.answer(session == nullptr ? rtspSessionNotFound : rtspAggregateNotAllowed);
            return Result::answered;
        }
    }
    std::string_view refusal;
    const auto admit = [&](TransportChoice& choice) { return security_.admits(context, choice, refusal); };
    const auto choice = deliveries_.choose(context.request, route != nullptr && route->multicast(), admit);
    if (!choice && !refusal.empty())
    {
        RequestSecurity::refuse(context, refusal);
        return Result::answered;
    }
    if (!choice)
    {
        context.answer(rtspUnsupportedTransport);
        return Result::answered;
    }
    std::optional<SrtpKey> clientKey;
    if (choice->secure && !RequestSecurity::readClientKey(context.request, clientKey))
    {
        context.answer(rtspKeyManagementFailure);
        return Result::answered;
    }
    if (session == nullptr)
    {
        bool notReady = false;
        const RtspStatus status = createSession(context, session, notReady);
        if (notReady && !lastTry)
        {
            return Result::notReady;
        }
        if (status != rtspOk)
        {
            context.answer(status);
            return Result::answered;
        }
    }
    setupTrack(context, session, *choice, clientKey);
    return Result::answered;
}

/// Answers users who may use no track of the presentation, before anything is made for them.
bool SessionMethods::permitSetup(RequestContext& context, const MediaRoutes::Route* route) const
{
    if (route == nullptr)
    {
        return true;  // answered 404
    }
    const MediaTarget target = MediaTarget::of(*route, context.url.presentation);
    const bool some = access_.allows(context, target, target.right) ||
                      (route->talkBack && access_.allows(context, target, Right::talk));
    if (!some)
    {
        access_.refuse(context, target, target.right);
    }
    return some;
}

/// The same for the request's track.
bool SessionMethods::permitTrack(RequestContext& context, RtspSession& session) const
{
    if (!services_.users->rights.rules()->enabled())
    {
        return true;
    }
    const MediaTarget& target = session.target();
    const Right right = session.isBackChannel(context.url.track) ? Right::talk : target.right;
    const bool permitted = access_.allows(context, target, right);
    if (!permitted)
    {
        access_.refuse(context, target, right);
    }
    return permitted;
}

RtspStatus SessionMethods::createSession(RequestContext& context, std::shared_ptr<RtspSession>& out,
                                         bool& notReady)
{
    std::optional<SafePointer<IRTSPController>> controller;
    // With the back channel in any case: a client that knows its name got it by DESCRIBE, and many clients
    // require it only with that track's SETUP, which may not be the session's first.
    const RtspStatus status = createController(context, true, controller, notReady);
    if (status != rtspOk)
    {
        return status;
    }
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    out = services_.sessions.create(
        context.url.presentation,
        route->commonControllers ? services_.controllers.common(*route, *controller) : *controller, *route,
        {connection_.peer().key(), context.user}, services_.now());
    return out == nullptr ? rtspServiceUnavailable : rtspOk;
}

void SessionMethods::setupTrack(RequestContext& context, const std::shared_ptr<RtspSession>& session,
                                const TransportChoice& choice, const std::optional<SrtpKey>& clientKey)
{
    if (!permitTrack(context, *session))
    {
        endIfEmpty(session);
        return;
    }
    std::optional<SrtpKey> newKey;
    std::optional<GroupKeys::Track> group;
    std::string transportText;
    std::uint32_t ssrc = 0;
    RtspStatus status = rtspInternalError;
    try
    {
        status = session->setup(
            context.url.track,
            [&](RtspSession::Delivery& out)
            {
                std::shared_ptr<ProtectedSender> protection;
                if (choice.secure && choice.multicast)
                {
                    const int number = session->shared()->numberOf(context.url.track);
                    if (number < 0 || number >= MulticastGroup::tracks)
                    {
                        return rtspNotFound;
                    }
                    group = security_.protectGroup(context, session->shared()->stream, number);
                    if (!group)
                    {
                        return rtspKeyManagementFailure;
                    }
                    protection = group->sender;
                }
                else if (choice.secure)
                {
                    protection = security_.protect(context.url, clientKey, newKey);
                }
                const RtspStatus made =
                    deliveries_.make(choice, *session, context.url.track, protection, out, transportText);
                if (made == rtspOk && !(*out.transport)->traits().shared)
                {
                    (*out.transport)->start = LiveStart::named(context.request.value("Live-Start"));
                    (*out.transport)->client = std::make_shared<RtpTransport::Client>(
                        RtpTransport::Client{connection_.peer().key(), context.user, context.url.base});
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
        context.answer(status);
        return;
    }
    // Rights may have been taken away since, when the session did not have this track yet.
    if (const auto lacked = session->lackedRight(*services_.users->rights.rules()))
    {
        services_.sessions.end(session);
        access_.refuse(context, session->target(), *lacked);
        return;
    }
    // As may the group's key have been replaced.
    if (group && !services_.groupKeys.isCurrent(session->shared()->stream,
                                                session->shared()->numberOf(context.url.track), group->key))
    {
        services_.sessions.end(session);
        context.answer(rtspKeyManagementFailure);
        return;
    }
    sessions_.use(session);
    session->noteStarted(context.url.base, transportWord(choice));
    session->replays(context.require.replay);
    session->noteRequest(connection_.serial(), services_.now());
    ResponseWriter& out = context.start(rtspOk);
    TrackDeliveries::answer(out, transportText, ssrc);
    sessions_.addHeader(out, *session);
    if (newKey)
    {
        RequestSecurity::addKey(out, context.url, *newKey, {ssrc, 0});
    }
    if (group)
    {
        RequestSecurity::addKey(out, context.url, group->key, group->joining(ssrc, services_.now()));
    }
    out.header("Cache-Control", "no-cache");
    context.send();
}

/// As the audit log names it.
std::string_view SessionMethods::transportWord(const TransportChoice& choice) const
{
    if (choice.multicast)
    {
        return "multicast";
    }
    if (choice.interleaved && connection_.encrypted())
    {
        return "tls";
    }
    if (choice.secure)
    {
        return "srtp";
    }
    return choice.interleaved ? "tcp" : "udp";
}

/// A session without a track would only wait for its timeout.
void SessionMethods::endIfEmpty(const std::shared_ptr<RtspSession>& session)
{
    if (session->trackCount() == 0)
    {
        services_.sessions.end(session);
    }
}

void SessionMethods::teardown(RequestContext& context)
{
    const auto session = sessions_.of(context);
    if (session == nullptr)
    {
        return;
    }
    bool empty = false;
    const RtspStatus status = session->teardown(context.url.track, empty);
    if (empty)
    {
        services_.sessions.end(session);
    }
    context.answer(status);
}

}  // namespace refhost
