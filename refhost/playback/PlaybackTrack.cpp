#include "refhost/playback/PlaybackTrack.h"

#include <cstdlib>
#include <utility>

#include "refhost/playback/PlayTimeline.h"
#include "refhost/playback/PlaybackSession.h"

namespace refhost
{
PlaybackTrack::PlaybackTrack(std::weak_ptr<PlaybackSession> session, const SubMediaInfo& info, int packetSize,
                             const RtcpWriter::Name& name, const PlaybackSettings& settings)
    : id(info.trackId),
      encodingName(info.encodingName),
      video(info.mediaType == "video"),
      payloadSize(packetSize),
      clockRate(rtpClockRate(info.clockRate)),
      sender(info.payloadType, name, *settings.clock, settings.reportIntervalMs),
      session_(std::move(session)),
      clock_(*settings.clock),
      silenceMs_(settings.silenceMs),
      activityMs_(clock_.monotonicMs())
{
}

PlaybackTrack::~PlaybackTrack() noexcept = default;

std::uint32_t PlaybackTrack::timestamp(std::int64_t playNs) const
{
    return sender.firstTimestamp() + PlayTimeline::ticks(playNs, clockRate);
}

bool PlaybackTrack::audioIsFull(std::int64_t endNs) const
{
    return audioFollows_ && static_cast<std::int32_t>(timestamp(endNs) - audioNext_) <= 0;
}

std::uint32_t PlaybackTrack::audioTimestamp(std::int64_t playNs, std::int64_t toleranceNs) const
{
    const std::uint32_t exact = timestamp(playNs);
    const auto off = static_cast<std::int32_t>(exact - audioNext_);
    const auto tolerance = static_cast<std::int32_t>(PlayTimeline::ticks(toleranceNs, clockRate));
    return audioFollows_ && std::abs(off) <= tolerance ? audioNext_ : exact;
}

void PlaybackTrack::sent(std::uint32_t timestamp, std::int64_t audioNs)
{
    brokenOff_ = false;
    audioFollows_ = audioNs > 0;
    audioNext_ = timestamp + PlayTimeline::ticks(audioNs, clockRate);
}

void PlaybackTrack::heard()
{
    activityMs_ = clock_.monotonicMs();
}

bool PlaybackTrack::silent() const
{
    const RtpTransport* const transport = sender.transport();
    const bool expected = silenceMs_ > 0 && transport != nullptr && transport->traits().silentWhenGone;
    return expected && clock_.monotonicMs() - activityMs_ > silenceMs_;
}

void PlaybackTrack::sendBye(std::int64_t wallNs, std::int64_t playNs)
{
    if (!state_.is(PlaybackTrackState::silent))
    {
        state_.enter(PlaybackTrackState::silent);
        sender.sendBye(wallNs, timestamp(playNs));
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
