#include "refhost/rtsp/session/PlayMethods.h"

#include <algorithm>

#include "refhost/base/Decimal.h"
#include "refhost/rtsp/message/RangeHeader.h"

namespace refhost
{

PlayMethods::PlayMethods(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions,
                         const RequestAccess& access)
    : services_(services), connection_(connection), sessions_(sessions), access_(access)
{
}

MethodResult PlayMethods::play(RequestContext& context, RtspSession::Attempt attempt)
{
    const auto session = sessions_.of(context);
    if (session == nullptr)
    {
        return MethodResult::answered;
    }
    if (const auto lacked = session->lackedRight(*services_.users->rights.rules()))
    {
        access_.refuse(context, session->target(), *lacked);
        return MethodResult::answered;
    }
    PlayRequest order;
    RtspStatus status = parse(context, *session, order);
    bool notReady = false;
    if (status == rtspOk)
    {
        const auto answer = [&](const RtspSession::Played& played)
        { answerPlay(context, *session, order, played); };
        status = session->play(context.url.track, order, attempt, answer, notReady);
    }
    if (status != rtspOk)
    {
        context.answer(status);
    }
    return notReady ? MethodResult::notReady : MethodResult::answered;
}

/// A live stream has no positions and speeds: every well-formed request plays from now on.
RtspStatus PlayMethods::parse(const RequestContext& context, RtspSession& session, PlayRequest& order)
{
    if (session.recorded())
    {
        return PlayRequest::parse(context.request, session.replays(context.require.replay), order);
    }
    const RtspRequest::Header* const range = context.request.find("Range");
    return range == nullptr ? rtspOk : RangeHeader::checkLive(range->value);
}

void PlayMethods::answerPlay(RequestContext& context, const RtspSession& session, const PlayRequest& order,
                             const RtspSession::Played& played)
{
    ResponseWriter& out = context.start(rtspOk);
    sessions_.addHeader(out, session);
    if (played.recorded)
    {
        addRecorded(out, order, *played.recorded);
    }
    else
    {
        out.header("Range", RangeHeader::live);
    }
    addRtpInfo(out, context.url.base, played.tracks);
    context.send();
    flushBeforePackets(played.tracks);
}

void PlayMethods::addRecorded(ResponseWriter& out, const PlayRequest& order,
                              const RecordedPlay::Outcome& outcome)
{
    out.startHeader("Range");
    RangeHeader::append(out.text(), order.range ? order.range->unit : RangeHeader::Unit::npt, outcome.begin,
                        outcome.end);
    out.endHeader();
    if (order.scale)
    {
        out.startHeader("Scale");
        PlayRequest::appendRate(out.text(), outcome.speed.scale);
        out.endHeader();
    }
    if (order.speed)
    {
        out.startHeader("Speed");
        PlayRequest::appendRate(out.text(), outcome.speed.speed);
        out.endHeader();
    }
}

/// The response is queued ahead of this connection's packets, but not of packets on other transports.
void PlayMethods::flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks)
{
    const auto elsewhere = [this](const RtspSession::PlayedTrack& track)
    { return track.connection != connection_.serial(); };
    if (std::any_of(tracks.begin(), tracks.end(), elsewhere))
    {
        connection_.flush();
    }
}

void PlayMethods::addRtpInfo(ResponseWriter& out, std::string_view base,
                             const std::vector<RtspSession::PlayedTrack>& tracks)
{
    if (tracks.empty())
    {
        return;
    }
    out.startHeader("RTP-Info");
    std::string& text = out.text();
    std::string_view separator;
    for (const RtspSession::PlayedTrack& track : tracks)
    {
        text.append(separator).append("url=").append(base).append("/").append(track.id);
        if (track.known)
        {
            text += ";seq=";
            appendDecimal(text, track.first.sequenceNumber);
            text += ";rtptime=";
            appendDecimal(text, track.first.rtpTimestamp);
        }
        separator = ",";
    }
    out.endHeader();
}

void PlayMethods::pause(RequestContext& context)
{
    const auto session = sessions_.of(context);
    if (session == nullptr)
    {
        return;
    }
    const RtspStatus status =
        session->recorded() ? pauseRecording(context, *session) : session->pause(context.url.track);
    ResponseWriter& out = context.start(status);
    sessions_.addHeader(out, *session);
    context.send();
}

RtspStatus PlayMethods::pauseRecording(const RequestContext& context, RtspSession& session)
{
    const RtspRequest::Header* const header = context.request.find("Range");
    if (header == nullptr)
    {
        return session.pause(context.url.track);
    }
    RangeHeader point;
    const RtspStatus status = RangeHeader::parsePoint(header->value, point);
    return status == rtspOk ? session.pauseAt(context.url.track, point) : status;
}

}  // namespace refhost
