#include "refhost/ingest/client/CameraSetUp.h"

#include <fmt/format.h>

#include <utility>

#include "refhost/base/Log.h"
#include "refhost/ingest/client/RtspRefusal.h"

namespace refhost
{
namespace
{

const char* nameOf(CameraTransport transport)
{
    return transport == CameraTransport::tcp ? "TCP" : "UDP";
}

RtspClientEnd endOf(RtspClientEnd::Kind kind, std::string text, int status)
{
    RtspClientEnd reason;
    reason.kind = kind;
    reason.text = std::move(text);
    reason.status = status;
    return reason;
}

}  // namespace

CameraSetUp::CameraSetUp(EventLoop& loop, const RtspClientOptions& options, CameraDatagrams::Events& events)
    : loop_(loop), options_(options), events_(events), transport_(options.transport)
{
}

std::optional<RtspClientEnd> CameraSetUp::prepare(const ByteStream& connection,
                                                  const std::weak_ptr<void>& owner)
{
    CameraTracks::Track& track = *tracks_.next();
    encrypted_ = connection.encrypted();
    transport_ = encrypted_ ? CameraTransport::tcp : transport_;
    if (!overUdp())
    {
        track.datagrams = nullptr;
        return std::nullopt;
    }
    std::string error;
    track.datagrams = CameraDatagrams::open(loop_, connection.local(), connection.peer(), track.index,
                                            events_, owner, error);
    return track.datagrams != nullptr
               ? std::nullopt
               : std::optional(endOf(RtspClientEnd::Kind::noUsableTransport, std::move(error), 0));
}

const std::string& CameraSetUp::uri()
{
    return tracks_.next()->control;
}

CameraRequests::Headers CameraSetUp::headers()
{
    // What a server of this kind has kept of the past would arrive at once, as if it were captured at once.
    return withSession(
        {{"Transport", CameraTracks::transportOf(*tracks_.next())}, {"Live-Start", "key-frame"}});
}

std::optional<RtspClientEnd> CameraSetUp::take(const CameraMessage& answer, const std::string& host)
{
    CameraTracks::Track& track = *tracks_.next();
    if (answer.status == RtspRefusal::unsupportedTransport && !tracks_.anyPlaying() && mayRequestOther())
    {
        transportRefused_ = true;
        transport_ = otherTransport();
        return std::nullopt;
    }
    if (answer.status == RtspRefusal::ok)
    {
        if (std::optional<RtspClientEnd> end = takeGranted(answer, track))
        {
            return end;
        }
    }
    else if (!track.video && tracks_.anyVideo() && answer.status != RtspRefusal::unauthorized)
    {
        Log::info("{}: the camera does not set up a track: {}", host, RtspRefusal::outcomeOf(answer));
        track.datagrams = nullptr;
    }
    else
    {
        return RtspRefusal::endOf("SETUP", answer);
    }
    tracks_.advance();
    return std::nullopt;
}

std::optional<RtspClientEnd> CameraSetUp::takeGranted(const CameraMessage& answer, CameraTracks::Track& track)
{
    SessionReply session = SessionReply::read(answer.header("session"));
    if (!session.id.empty())
    {
        session_ = std::move(session);
    }
    const CameraTracks::Play outcome = tracks_.play(track, TransportReply::read(answer.header("transport")));
    track.playing = true;  // the session is to be ended, whatever came
    if (outcome == CameraTracks::Play::channelTaken)
    {
        return endOf(RtspClientEnd::Kind::protocolError, "the camera sends two tracks in one channel",
                     answer.status);
    }
    if (outcome == CameraTracks::Play::otherTransport)
    {
        const std::string text = fmt::format("the camera does not send over {}", nameOf(transport_));
        const auto end = endForOtherTransport(text, answer.status);
        return end ? end : endOf(RtspClientEnd::Kind::noUsableTransport, text, answer.status);
    }
    return std::nullopt;
}

CameraRequests::Headers CameraSetUp::withSession(CameraRequests::Headers headers) const
{
    if (!session_.id.empty())
    {
        headers.emplace_back("Session", session_.id);
    }
    return headers;
}

std::optional<RtspClientEnd> CameraSetUp::endForOtherTransport(std::string text, int status) const
{
    if (!mayRequestOther())
    {
        return std::nullopt;
    }
    RtspClientEnd reason = endOf(RtspClientEnd::Kind::noUsableTransport, std::move(text), status);
    reason.otherTransport = otherTransport();
    return reason;
}

CameraTransport CameraSetUp::otherTransport() const
{
    return overUdp() ? CameraTransport::tcp : CameraTransport::udp;
}

bool CameraSetUp::mayRequestOther() const
{
    // Media would leave an encrypted connection in the clear.
    return options_.otherTransport && !transportRefused_ && !encrypted_;
}

}  // namespace refhost
