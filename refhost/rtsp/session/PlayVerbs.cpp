#include "refhost/rtsp/session/PlayVerbs.h"

#include <algorithm>

#include "refhost/base/Decimal.h"
#include "refhost/rtsp/message/RangeHeader.h"

namespace refhost
{

PlayVerbs::PlayVerbs(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions)
    : services_(services), connection_(connection), sessions_(sessions)
{
}

VerbResult PlayVerbs::play(Exchange& exchange, RtspSession::Attempt attempt)
{
    const auto session = sessions_.of(exchange);
    if (session == nullptr)
    {
        return VerbResult::answered;
    }
    PlayOrder order;
    RtspStatus status = parse(exchange, *session, order);
    bool notReady = false;
    if (status == rtspOk)
    {
        const auto answer = [&](const RtspSession::Played& played)
        { answerPlay(exchange, *session, order, played); };
        status = session->play(exchange.url.track, order, attempt, answer, notReady);
    }
    if (status != rtspOk)
    {
        exchange.answer(status);
    }
    return notReady ? VerbResult::notReady : VerbResult::answered;
}

/// A live stream has no positions and speeds: whatever is well-formed plays from now on.
RtspStatus PlayVerbs::parse(const Exchange& exchange, RtspSession& session, PlayOrder& order)
{
    if (session.recorded())
    {
        return PlayOrder::parse(exchange.request, session.replays(exchange.require.replay), order);
    }
    const RtspRequest::Header* const range = exchange.request.find("Range");
    return range == nullptr ? rtspOk : RangeHeader::checkLive(range->value);
}

void PlayVerbs::answerPlay(Exchange& exchange, const RtspSession& session, const PlayOrder& order,
                           const RtspSession::Played& played)
{
    ResponseWriter& out = exchange.begin(rtspOk);
    sessions_.addHeader(out, session);
    if (played.recorded)
    {
        addRecorded(out, order, *played.recorded);
    }
    else
    {
        out.header("Range", RangeHeader::live);
    }
    addRtpInfo(out, exchange.url.base, played.tracks);
    exchange.send();
    flushBeforePackets(played.tracks);
}

void PlayVerbs::addRecorded(ResponseWriter& out, const PlayOrder& order, const RecordedPlay::Outcome& outcome)
{
    out.beginHeader("Range");
    RangeHeader::append(out.text(), order.range ? order.range->unit : RangeHeader::Unit::npt, outcome.begin,
                        outcome.end);
    out.endHeader();
    if (order.scale)
    {
        out.beginHeader("Scale");
        PlayOrder::appendRate(out.text(), outcome.speed.scale);
        out.endHeader();
    }
    if (order.speed)
    {
        out.beginHeader("Speed");
        PlayOrder::appendRate(out.text(), outcome.speed.speed);
        out.endHeader();
    }
}

/// The answer stands in one queue with the packets of this connection, but nothing else keeps packets behind
/// it.
void PlayVerbs::flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks)
{
    const auto elsewhere = [this](const RtspSession::PlayedTrack& track)
    { return track.connection != connection_.serial(); };
    if (std::any_of(tracks.begin(), tracks.end(), elsewhere))
    {
        connection_.flush();
    }
}

void PlayVerbs::addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks)
{
    if (tracks.empty())
    {
        return;
    }
    out.beginHeader("RTP-Info");
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

void PlayVerbs::pause(Exchange& exchange)
{
    const auto session = sessions_.of(exchange);
    if (session == nullptr)
    {
        return;
    }
    const RtspStatus status =
        session->recorded() ? pauseRecording(exchange, *session) : session->pause(exchange.url.track);
    ResponseWriter& out = exchange.begin(status);
    sessions_.addHeader(out, *session);
    exchange.send();
}

RtspStatus PlayVerbs::pauseRecording(const Exchange& exchange, RtspSession& session)
{
    const RtspRequest::Header* const header = exchange.request.find("Range");
    if (header == nullptr)
    {
        return session.pause(exchange.url.track);
    }
    RangeHeader point;
    const RtspStatus status = RangeHeader::parsePoint(header->value, point);
    return status == rtspOk ? session.pauseAt(exchange.url.track, point) : status;
}

}  // namespace refhost
