#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/live/LiveStream.h"
#include "refhost/live/LiveTrack.h"
#include "refhost/live/SenderState.h"
#include "refhost/rtp/RtcpWriter.h"
#include "refhost/rtp/RtpSender.h"
#include "refhost/rtp/RtpTimeline.h"
#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One track of one session: where it stands in the stream and how it looks on the wire.
///
/// It sends from its place in the LiveTrack's ring up to the head, as far as the transport takes it. SSRC, sequence
/// numbers and timestamps go on over pauses, congestion and restarts of the source.
/// Threads: under its session's lock, but for the TransportListener's operations, which take it.
class TrackSender : public TransportListener
{
public:
    /// \param session  the session that holds this sender
    /// \param name     the session's canonical name, one for all its tracks
    /// \param info     payload type, clock rate and kind are kept
    TrackSender(std::weak_ptr<LiveSession> session, std::string streamKey, const SubMediaInfo& info,
                std::shared_ptr<LiveStream> stream, int payloadSize, const RtcpWriter::Name& name);
    ~TrackSender() noexcept override;

    /// A sender of the same track that starts from nothing, for the place of this one when it has ended.
    /// \param name  the session's
    std::shared_ptr<TrackSender> successor(const RtcpWriter::Name& name) const;

    bool is(const std::string& streamKey, const std::string& trackId) const
    {
        return trackId_ == trackId && streamKey_ == streamKey;
    }

    const std::string& streamKey() const
    {
        return streamKey_;
    }

    const std::string& trackId() const
    {
        return trackId_;
    }

    bool video() const
    {
        return video_;
    }

    SenderState state() const
    {
        return state_.state();
    }

    /// Whether end() was called.
    bool ended() const
    {
        return state_.is(SenderState::ended);
    }

    /// Whether there is a transport to the client, open or closed.
    bool hasConnection() const
    {
        return sender_.transport() != nullptr;
    }

    std::uint32_t ssrc() const
    {
        return sender_.ssrc();
    }

    const TrackStatistics& statistics() const
    {
        return sender_.statistics();
    }

    /// Sets the transport to the client in place of the former one.
    /// \returns 0; hostConnectionUnusable, and nothing changes, when it is not an RtpTransport of this host
    int connect(const SafePointer<IConnection>& connection, const std::shared_ptr<TransportListener>& self);

    /// Counts a viewer and arranges for a start; pump() makes it.
    /// \returns 0, also when it plays already; hostConnectionUnusable without a transport to the client or when it
    ///          is closed; hostStreamFailed when the source is gone
    int play(const std::shared_ptr<LiveSession>& session);
    /// Sends nothing more and takes the viewer back; the next play() goes on.
    void pause();
    /// Says BYE and lets go of the transport and the stream; nothing is sent any more. Does nothing the second
    /// time.
    void end();

    /// Sends what can be sent now.
    /// \param fresh    the unit that has just come, whichever track's; null otherwise
    /// \param frame  the video that this audio starts with; null for video and for audio alone
    /// \param more     the frame follows at once on the same way
    void pump(const FreshUnit* fresh, TrackSender* videoSender, bool more);

    /// Where a start is settled and nothing of it was sent, sends the report that tells when its first unit
    /// was captured: before the units of the past come, which arrive faster than they were captured.
    void reportStart(TrackSender* videoSender);

    /// Whether its transport is kept back until a request is answered.
    bool held() const
    {
        return playing() && sender_.transport()->state() == SendStatus::held;
    }

    /// Whether this sender is going to send this unit, as soon as it is pumped.
    bool takesNow(const FreshUnit& fresh) const;

    /// Fixes and tells the first packet of the last play().
    /// \returns false when it never played
    bool firstPacket(RTPPacketInfo& out, TrackSender* videoSender);

    void onTransportReady() override;
    void onRtcp(const std::uint8_t* data, std::size_t size) override;

private:
    bool playing() const
    {
        return state_.is(SenderState::running) || state_.is(SenderState::announced) ||
               state_.is(SenderState::starting);
    }

    void onJoin();
    bool start(TrackSender* videoSender, MonotonicTime now);
    LiveTrack::Found startingPoint(TrackSender* videoSender, MonotonicTime now);
    bool steady() const;
    bool waitsForFrame(const FreshUnit* fresh, const TrackSender* videoSender);
    bool next(const FreshUnit* fresh, MonotonicTime now);
    bool skipToStart(const LiveTrack::View& view);
    void report(MonotonicTime now);
    bool deliver(MonotonicTime now, bool more);
    bool isEarly();
    void abandonUnit();

    const std::weak_ptr<LiveSession> session_;
    const std::string streamKey_;
    const std::string trackId_;
    const std::shared_ptr<LiveStream> stream_;
    const LiveSettings& settings_;  // the stream's
    const bool video_;
    const int payloadSize_;
    const std::shared_ptr<LiveTrack> track_;
    std::shared_ptr<StreamSource> viewed_;  // set while this sender counts as its viewer
    LiveTrack::SubscriberSlot slot_ = LiveTrack::noSlot;

    RtpSender sender_;
    StateMachine<SenderState> state_{SenderState::idle};
    StateMachine<SenderFlow> flow_{SenderFlow::keepingUp};
    RtpTimeline timeline_;

    AccessUnitPtr unit_;  // being sent, or settled to be the next
    std::uint32_t unitEpoch_ = 0;
    std::uint32_t unitTimestamp_ = 0;
    std::size_t unitPackets_ = 0;  // how many of its packets are sent
    std::uint64_t cursor_ = 0;     // number of the unit to send next, or of unit_
    std::uint64_t earliest_ = 0;   // a start may not lie before
    MonotonicTime startCapture_;
    MonotonicTime playedAt_;
    MonotonicTime waitingSince_;    // capture time of the first block that waits for a frame
    MonotonicTime congestedSince_;  // while congested
    bool paced_ = false;            // it goes through the past at a limited rate
    MonotonicTime pacedSince_;      // when its first unit was sent
    std::uint64_t seenHead_ = 0;
    unsigned credit_ =
        0;  // units that may still go before the next one comes, where the transport wants that
    RTPPacketInfo first_;
};

}  // namespace refhost
