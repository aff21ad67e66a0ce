#include "refhost/rtsp/PlayVerbs.h"

#include <algorithm>

#include "refhost/rtsp/RangeHeader.h"
#include "refhost/rtsp/RtspText.h"

namespace refhost
{

PlayVerbs::PlayVerbs(FrontServices& services, ClientLink& link, LinkSessions& sessions)
    : services_(services), link_(link), sessions_(sessions)
{
}

void PlayVerbs::play(Exchange& exchange)
{
    const auto session = sessions_.of(exchange);
    if (session == nullptr)
    {
        return;
    }
    const RtspRequest::Header* const range = exchange.request.find("Range");
    const RtspStatus rangeStatus = range == nullptr ? rtspOk : RangeHeader::checkLive(range->value);
    if (rangeStatus != rtspOk)
    {
        exchange.answer(rangeStatus);
        return;
    }
    const auto answer = [&](const std::vector<RtspSession::PlayedTrack>& tracks)
    {
        ResponseWriter& out = exchange.begin(rtspOk);
        sessions_.addHeader(out, *session);
        out.header("Range", RangeHeader::live);
        addRtpInfo(out, exchange.url.base, tracks);
        exchange.send();
        flushBeforePackets(tracks);
    };
    const RtspStatus status = session->play(exchange.url.track, answer);
    if (status != rtspOk)
    {
        exchange.answer(status);
    }
}

/// The answer stands in one queue with the packets of this connection, but nothing else keeps packets behind
/// it.
void PlayVerbs::flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks)
{
    const auto elsewhere = [this](const RtspSession::PlayedTrack& track)
    { return track.link != link_.serial(); };
    if (std::any_of(tracks.begin(), tracks.end(), elsewhere))
    {
        link_.flush();
    }
}

void PlayVerbs::addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks)
{
    out.beginHeader("RTP-Info");
    std::string& text = out.text();
    std::string_view separator;
    for (const RtspSession::PlayedTrack& track : tracks)
    {
        text.append(separator).append("url=").append(base).append("/").append(track.id);
        if (track.known)
        {
            text += ";seq=";
            RtspText::appendNumber(text, track.first.sequenceNumber);
            text += ";rtptime=";
            RtspText::appendNumber(text, track.first.rtpTimestamp);
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
    const RtspStatus status = session->pause(exchange.url.track);
    ResponseWriter& out = exchange.begin(status);
    sessions_.addHeader(out, *session);
    exchange.send();
}

}  // namespace refhost
