#include "refhost/playback/PlaybackTrack.h"

#include <cstdlib>
#include <utility>

#include "refhost/playback/PlaybackSession.h"

namespace refhost
{
PlaybackTrack::PlaybackTrack(std::weak_ptr<PlaybackSession> session, const SubMediaInfo& info, int packetSize,
                             const RtcpWriter::Name& name, const PlaybackSettings& settings)
    : id(info.trackId),
      encodingName(info.encodingName),
      video(info.mediaType == "video"),
      payloadSize(packetSize),
      rtpClock(rtpClockOf(info.clockRate)),
      sender(info.payloadType, name, *settings.clock, settings.reportInterval),
      session_(std::move(session)),
      clock_(*settings.clock),
      maxSilence_(settings.maxSilence),
      lastActivity_(clock_.now())
{
}

PlaybackTrack::~PlaybackTrack() noexcept = default;

std::uint32_t PlaybackTrack::timestamp(PlayTime play) const
{
    return sender.firstTimestamp() +
           static_cast<std::uint32_t>(rtpClock.nearestTicks(play.time_since_epoch()));
}

bool PlaybackTrack::audioIsFull(PlayTime end) const
{
    return audioFollows_ && RtpClock::difference(timestamp(end), audioNext_) <= 0;
}

std::uint32_t PlaybackTrack::audioTimestamp(PlayTime play, Duration tolerance) const
{
    const std::uint32_t exact = timestamp(play);
    const std::int64_t off = RtpClock::difference(exact, audioNext_);
    return audioFollows_ && std::abs(off) <= rtpClock.nearestTicks(tolerance) ? audioNext_ : exact;
}

void PlaybackTrack::sent(std::uint32_t timestamp, Duration length)
{
    brokenOff_ = false;
    audioFollows_ = length > Duration::zero();
    audioNext_ = timestamp + static_cast<std::uint32_t>(rtpClock.nearestTicks(length));
}

void PlaybackTrack::noteActivity()
{
    lastActivity_ = clock_.now();
}

bool PlaybackTrack::silent() const
{
    const RtpTransport* const transport = sender.transport();
    const bool expected =
        maxSilence_ > Duration::zero() && transport != nullptr && transport->traits().silentWhenGone;
    return expected && clock_.now() - lastActivity_ > maxSilence_;
}

void PlaybackTrack::sendBye(WallTime wall, PlayTime play)
{
    if (!state_.is(PlaybackTrackState::silent))
    {
        state_.enter(PlaybackTrackState::silent);
        sender.sendBye(wall, timestamp(play));
    }
}

void PlaybackTrack::onTransportReady()
{
    if (const auto session = session_.lock())
    {
        session->wake();
    }
}

void PlaybackTrack::onRtcp(const std::uint8_t* data, std::size_t size)
{
    if (const auto session = session_.lock())
    {
        session->readReport(*this, data, size);
    }
}

}  // namespace refhost
