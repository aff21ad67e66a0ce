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

/// One track of one session: its position in the stream and its RTP source.
///
/// Sends from its cursor in the LiveTrack's ring up to the head, as far as the transport takes it. SSRC,
/// sequence numbers and timestamps continue across pauses, congestion and restarts of the source. Threads:
/// under its session's lock; the TransportListener's operations take it.
class TrackSender : public TransportListener
{
public:
    /// \param session  the owner of this sender
    /// \param name     the session's canonical name, shared by its tracks
    /// \param info     payload type, clock rate and media type are used
    TrackSender(std::weak_ptr<LiveSession> session, const std::string& streamKey, const SubMediaInfo& info,
                std::shared_ptr<LiveStream> stream, int payloadSize, const RtcpWriter::Name& name);
    ~TrackSender() noexcept override;

    /// A new sender of the same track, to replace this one when it has ended.
    /// \param name  the session's
    std::shared_ptr<TrackSender> successor(const RtcpWriter::Name& name) const;

    bool is(const std::string& streamKey, const std::string& trackId) const
    {
        return name_->trackId == trackId && name_->streamKey == streamKey;
    }

    const std::string& streamKey() const
    {
        return name_->streamKey;
    }

    const std::string& trackId() const
    {
        return name_->trackId;
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

    /// Sets the transport to the client; replaces the previous one.
    /// \returns 0; hostConnectionUnusable, with nothing changed, when it is no RtpTransport of this host
    int connect(const SafePointer<IConnection>& connection, const std::shared_ptr<TransportListener>& self);

    /// Counts a viewer and requests a start, which pump() makes.
    /// \returns 0, even if it plays already; hostConnectionUnusable without an open transport;
    ///          hostStreamFailed when the source is gone
    int play(const std::shared_ptr<LiveSession>& session);
    /// Stops sending and uncounts the viewer; the next play() continues.
    void pause();
    /// Sends BYE and releases the transport and the stream; nothing is sent after that. Further calls do
    /// nothing.
    void end();

    /// Sends what can be sent now.
    /// \param fresh    the unit that has just arrived, of any track; may be null
    /// \param videoSender  the video that this audio starts with; null for video and for audio alone
    /// \param more     the frame follows at once on the same transport
    void pump(const FreshUnit* fresh, TrackSender* videoSender, bool more);

    /// If a start is chosen and none of it sent, sends the report that dates its first unit, before units of
    /// the past arrive faster than they were captured.
    void reportStart(TrackSender* videoSender);

    /// Whether its transport is held until a request is answered.
    bool held() const
    {
        return playing() && sender_.transport()->state() == SendStatus::held;
    }

    /// Whether the next pump() sends this unit.
    bool takesNow(const FreshUnit& fresh) const;

    /// Adds the memory that pump() uses.
    void addFootprint(Footprint& footprint) const;

    /// Determines the first packet of the last play().
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
    void noteJoin();

    const std::weak_ptr<LiveSession> session_;
    const std::shared_ptr<LiveStream> stream_;
    const std::shared_ptr<const LiveStream::TrackName> name_;
    const LiveSettings& settings_;  // the stream's
    const bool video_;
    const std::shared_ptr<LiveTrack> track_;
    std::shared_ptr<StreamSource> viewed_;  // set while counted as its viewer
    LiveTrack::SubscriberSlot slot_ = LiveTrack::noSlot;

    RtpSender sender_;
    StateMachine<SenderState> state_{SenderState::idle};
    StateMachine<SenderFlow> flow_{SenderFlow::keepingUp};
    RtpTimeline timeline_;

    AccessUnitPtr unit_;  // being sent, or chosen as the next
    std::uint32_t unitEpoch_ = 0;
    std::uint32_t unitTimestamp_ = 0;
    std::size_t unitPackets_ = 0;  // packets of it already sent
    std::uint64_t cursor_ = 0;     // number of the unit to send next, or of unit_
    std::uint64_t earliest_ = 0;   // the first number to start from
    MonotonicTime startCapture_;
    MonotonicTime playedAt_;
    MonotonicTime waitingSince_;    // capture time of the first block waiting for a frame
    MonotonicTime congestedSince_;  // while congested
    bool alone_ = false;            // audio without a video to start with
    bool paced_ = false;            // sends the past at a limited rate
    MonotonicTime pacedSince_;      // when its first unit was sent
    std::uint64_t seenHead_ = 0;
    unsigned credit_ = 0;  // units that may be sent before the next one arrives, on a paced transport
    RTPPacketInfo first_;
};

}  // namespace refhost
