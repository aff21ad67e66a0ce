#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/RTPPacketInfo.h"
#include "live/IRTSPController.h"
#include "refhost/base/Mutex.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtsp/message/PlayRequest.h"
#include "refhost/rtsp/message/RtspStatus.h"
#include "refhost/rtsp/session/ClientPresence.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "refhost/rtsp/session/RecordedPlay.h"
#include "refhost/rtsp/session/SessionOwner.h"
#include "refhost/rtsp/session/SessionState.h"
#include "refhost/rtsp/session/SessionTracks.h"
#include "refhost/rtsp/session/SharedStream.h"
#include "refhost/rtsp/session/TransportHold.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One RTSP session: a presentation's controller and the tracks that a client set up with it.
///
/// Made by SessionTable, which finds it by its id; ends once, by end(). Every track that was set up is
/// stopped exactly once, however the session ends.
///
/// Threads: any; a lock serialises the methods, as controllers want it, and is held across the controller's
/// operations. It is the session's own, or the one of all sessions of a multicast route. Operations on an
/// ended session answer 454.
class RtspSession
{
public:
    using Delivery = TrackDelivery;

    /// What RTP-Info says of one track; back channels are left out.
    struct PlayedTrack
    {
        std::string_view id;
        bool known = false;            ///< `first` is filled in
        std::uint64_t connection = 0;  ///< serial of the connection that its packets take; 0 for UDP
        RTPPacketInfo first;
    };

    /// What PLAY came to.
    struct Played
    {
        std::vector<PlayedTrack> tracks;
        std::optional<RecordedPlay::Outcome> recorded;  ///< nothing for a live stream
    };

    /// Which try of the same PLAY request it is.
    struct Attempt
    {
        bool again = false;  ///< the request was not ready before: its order is given already
        bool last = false;   ///< answer now
    };

    using MakeDelivery = std::function<RtspStatus(Delivery& out)>;
    using AnswerPlay = std::function<void(const Played& played)>;

    RtspSession(std::string id, std::string presentation, const SafePointer<IRTSPController>& controller,
                const MediaRoutes::Route& route, SessionOwner owner, MonotonicTime now);
    ~RtspSession() noexcept(false);
    RtspSession(const RtspSession&) = delete;
    RtspSession& operator=(const RtspSession&) = delete;

    const std::string& id() const;
    /// What a log may show: whoever knows the whole id may drive the session.
    std::string logName() const;
    const std::string& presentation() const;
    /// Whether the presentation is a recording, with positions and speeds.
    bool recorded() const;
    /// Whether packets are to carry the replay header extension: some request of the session required it.
    /// \param required  the present one does
    bool replays(bool required);
    /// What the session shares with others; null where its packets are its own.
    const SharedStream* shared() const;
    const SessionOwner& owner() const;
    std::shared_ptr<SessionLiveness> liveness() const;

    /// Sets a track up, or changes the transport of one that does not play: its former transport ends first, also when
    /// the new one fails; a shared one is kept then. An empty track id means the only track that the device
    /// sends.
    /// \param make       called under the lock when the track may be set up
    /// \param[out] ssrc  the SSRC of the track's packets; of the device's reports on a back channel
    /// \returns 200, 455 for a track that plays, 459 for an empty track id where there are several tracks,
    ///          the status of `make`, or what the controller's code means
    RtspStatus setup(std::string trackId, const MakeDelivery& make, std::uint32_t& ssrc);

    /// Plays one track, or all with an empty id. No packet leaves before `answer` has returned, but for those
    /// of a shared transport; it is called when every track plays, and only then.
    /// \param order          what a recording is to play; a live stream plays from now on
    /// \param[out] notReady  true when a recording seeks still, unless `attempt` is the last: nothing was
    ///                       answered, and no packet leaves until the next play(), pause() or end
    /// \returns 200 after `answer` or with `notReady`; 404 or 455 for a track that is not set up; 457 for a
    ///          range that the recording has no part of; otherwise what the controller's code means, with the
    ///          tracks paused again that this request had started
    RtspStatus play(std::string_view trackId, const PlayRequest& order, Attempt attempt,
                    const AnswerPlay& answer, bool& notReady);

    /// Pauses at once.
    /// \returns 200; 404 or 455 for a track that is not set up or when nothing plays
    RtspStatus pause(std::string_view trackId);

    /// Pauses the tracks of a recording at an instant to come; they count as playing until the next pause().
    /// \returns 200; 457 for an instant that playing does not come to; 404 or 455 as pause()
    RtspStatus pauseAt(std::string_view trackId, const RangeHeader& point);

    /// Ends one track, or all with an empty id; where packets are shared, one ends them all, because a group
    /// has no use for half a member.
    /// \param[out] empty  true when no track is left: the session is to be ended
    RtspStatus teardown(std::string_view trackId, bool& empty);

    /// Stops every track and lets go of the controller. Does nothing the second time.
    void end();

    /// A request for the session was received.
    void noteRequest(std::uint64_t connection, MonotonicTime now);

    /// TCP acknowledged data of the connection at `time`. The client is alive then, if this session was played
    /// over that connection: a player that pauses for minutes neither reads nor writes, but its system answers.
    void connectionAnswered(std::uint64_t connection, MonotonicTime time);

    /// A connection that used the session is gone.
    /// \returns true when the session must end with it, because a track is interleaved in it
    bool connectionEnded(std::uint64_t connection, MonotonicTime now);

    /// As ClientPresence::expired().
    bool expired(MonotonicTime now, Duration sessionTimeout, Duration orphanTimeout) const;

    std::size_t trackCount() const;

private:
    using Selection = SessionTracks::Selection;

    RtspStatus select(std::string_view trackId, Selection& out) OV_REQUIRES(mutex_);
    RtspStatus selectPlaying(std::string_view trackId, Selection& out) OV_REQUIRES(mutex_);
    RtspStatus start(const Selection& tracks, Attempt attempt, bool& notReady) OV_REQUIRES(mutex_);
    bool isOver(SessionTrack& track, int code, const Selection& asked) OV_REQUIRES(mutex_);
    void takeBack(const Selection& tracks) OV_REQUIRES(mutex_);
    Played played(const Selection& tracks, const PlayRequest& order) OV_REQUIRES(mutex_);
    void stopTrack(SessionTrack& track) OV_REQUIRES(mutex_);

    const std::string id_;
    const std::string presentation_;
    const FirstPacketFunction firstPacket_;
    const bool recorded_;
    const SessionOwner owner_;
    ClientPresence presence_;
    std::atomic<bool> replays_{false};

    const std::optional<SharedStream> shared_;
    const std::shared_ptr<Mutex> together_;  // null: the session's own lock
    mutable Mutex own_;
    Mutex& mutex_;
    StateMachine<SessionState> state_ OV_GUARDED_BY(mutex_){SessionState::fresh};
    std::optional<SafePointer<IRTSPController>> controller_ OV_GUARDED_BY(mutex_);
    std::optional<RecordedPlay> recordedPlay_ OV_GUARDED_BY(mutex_);  // nothing for a live stream
    SessionTracks tracks_ OV_GUARDED_BY(mutex_);
    std::unique_ptr<TransportHold> waiting_ OV_GUARDED_BY(mutex_);  // of a PLAY that is not ready yet
};

}  // namespace refhost
