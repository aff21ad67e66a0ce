#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hostapi/description/RTPPacketInfo.h"
#include "live/IRTSPController.h"
#include "refhost/access/AccessRules.h"
#include "refhost/base/SmallMutex.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtsp/message/PlayRequest.h"
#include "refhost/rtsp/message/RtspStatus.h"
#include "refhost/rtsp/session/ClientPresence.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "refhost/rtsp/session/MediaTarget.h"
#include "refhost/rtsp/session/RecordedPlay.h"
#include "refhost/rtsp/session/SessionAudit.h"
#include "refhost/rtsp/session/SessionOwner.h"
#include "refhost/rtsp/session/SessionState.h"
#include "refhost/rtsp/session/SessionSummary.h"
#include "refhost/rtsp/session/SessionTracks.h"
#include "refhost/rtsp/session/SharedStream.h"
#include "refhost/rtsp/session/TransportHold.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One RTSP session: a presentation's controller and the tracks that a client set up.
///
/// Made by SessionTable, which finds it by its id; ends once, by end(). However it ends, every track is
/// stopped exactly once.
///
/// Threads: any; a lock serializes the methods, as controllers require, and is held across the controller's
/// operations. It is the session's own, or shared by all sessions of a multicast route. Operations on an
/// ended session return 454.
class RtspSession
{
public:
    using Delivery = TrackDelivery;

    /// One track's entry in RTP-Info, which excludes back channels.
    struct PlayedTrack
    {
        std::string_view id;
        bool known = false;            ///< `first` is filled in
        std::uint64_t connection = 0;  ///< serial of the connection with its packets; 0 for UDP
        RTPPacketInfo first;
    };

    /// The result of PLAY.
    struct Played
    {
        std::vector<PlayedTrack> tracks;
        std::optional<RecordedPlay::Outcome> recorded;  ///< nothing for a live stream
    };

    /// An attempt at one PLAY request.
    struct Attempt
    {
        bool again = false;  ///< repeated: the controller has the request already
        bool last = false;   ///< answer now
    };

    using MakeDelivery = std::function<RtspStatus(Delivery& out)>;
    using AnswerPlay = std::function<void(const Played& played)>;

    /// \param route  outlives the session
    RtspSession(std::string id, std::string presentation, const SafePointer<IRTSPController>& controller,
                const MediaRoutes::Route& route, SessionOwner owner, MonotonicTime now);
    ~RtspSession() noexcept(false);
    RtspSession(const RtspSession&) = delete;
    RtspSession& operator=(const RtspSession&) = delete;

    const std::string& id() const;
    /// A shortened id for the log: whoever knows the whole id may control the session.
    std::string logName() const;
    const std::string& presentation() const;
    /// A number that names the session without giving control of it; never reused.
    std::uint64_t number() const
    {
        return number_;
    }
    /// Waits for a request of the session that is being handled: not for an event loop.
    SessionSummary summary() const;
    /// Whether the presentation is a recording, which supports positions and speeds.
    bool recorded() const;
    /// Whether packets carry the replay header extension: some request of the session required it.
    /// \param required  the present request requires it
    bool replays(bool required);
    /// The stream shared with other sessions; null without multicast.
    const SharedStream* shared() const;
    const SessionOwner& owner() const;
    const MediaTarget& target() const;
    /// \see MediaTarget::liveStreamOf()
    std::optional<std::pair<int, int>> liveStream() const;
    std::shared_ptr<SessionLiveness> liveness() const;

    /// Sets a track up, or changes the transport of one that does not play. The previous transport ends
    /// first, even if the new one fails; a shared one is kept then. An empty track id means the only track
    /// that the device sends.
    /// \param make       called under the lock if the track can be set up
    /// \param[out] ssrc  SSRC of the track's packets; on a back channel, of the device's reports
    /// \returns 200, 455 for a track that plays, 459 for an empty track id with several tracks, the status of
    ///          `make`, or that of the controller's code
    RtspStatus setup(std::string trackId, const MakeDelivery& make, std::uint32_t& ssrc);

    /// Writes the session's start to the audit log, the first time. Its end is written then, too.
    /// \param transport  of the first track, a constant word
    void noteStarted(std::string_view url, std::string_view transport);

    /// Plays one track, or all with an empty id. Calls `answer` once every track plays; no packet is sent
    /// before it returns, except on a shared transport.
    /// \param order          how to play a recording; ignored for a live stream
    /// \param[out] notReady  true while a recording still seeks, unless `attempt` is the last: nothing was
    ///                       answered, and no packet is sent before the next play(), pause() or end
    /// \returns 200 after `answer` or with `notReady`; 404 or 455 for a track that is not set up; 457 for a
    ///          range outside the recording; otherwise the status of the controller's code, with the tracks
    ///          that this request started paused again
    RtspStatus play(std::string_view trackId, const PlayRequest& order, Attempt attempt,
                    const AnswerPlay& answer, bool& notReady);

    /// Pauses at once.
    /// \returns 200; 404 or 455 for a track that is not set up or when nothing plays
    RtspStatus pause(std::string_view trackId);

    /// Pauses the tracks of a recording at a future position; they count as playing until the next pause().
    /// \returns 200; 457 for a position that playing does not reach; 404 or 455 as pause()
    RtspStatus pauseAt(std::string_view trackId, const RangeHeader& point);

    /// Ends one track, or all with an empty id. With a shared transport, always all: members of a group have
    /// all of its tracks.
    /// \param[out] empty  true when no track is left: end the session
    RtspStatus teardown(std::string_view trackId, bool& empty);

    /// Stops every track and releases the controller. Further calls do nothing.
    void end();

    /// Whether end() was called. Never waits.
    bool over() const
    {
        return over_.load(std::memory_order_acquire);
    }

    /// The connection of a client that waits for packets and was sent none, so that no BYE announced the end.
    /// \returns 0 when there is none, or before the end
    std::uint64_t unawareConnection() const;

    /// A request for the session was received.
    void noteRequest(std::uint64_t connection, MonotonicTime now);

    /// TCP acknowledged data of the connection at `time`. The client is alive then, if this session was played
    /// over that connection: a player that pauses for minutes neither reads nor writes, but its system answers.
    void connectionAnswered(std::uint64_t connection, MonotonicTime time);

    /// A connection that used the session ended.
    /// \returns true when the session must end too, because a track is interleaved in the connection
    bool connectionEnded(std::uint64_t connection, MonotonicTime now);

    /// \see ClientPresence::expired
    bool expired(MonotonicTime now, Duration sessionTimeout, Duration orphanTimeout) const;

    std::size_t trackCount() const;

    /// Whether clients send on a track; false for one that does not exist.
    bool isBackChannel(const std::string& trackId);

    /// A right that the session's tracks need and its owner does not have.
    std::optional<Right> lackedRight(const AccessRules& rules);

private:
    using Selection = SessionTracks::Selection;

    RtspStatus select(std::string_view trackId, Selection& out) OV_REQUIRES(mutex_);
    RtspStatus selectPlaying(std::string_view trackId, Selection& out) OV_REQUIRES(mutex_);
    RtspStatus start(const Selection& tracks, Attempt attempt, bool& notReady) OV_REQUIRES(mutex_);
    bool isOver(SessionTrack& track, int code, const Selection& asked) OV_REQUIRES(mutex_);
    void takeBack(const Selection& tracks) OV_REQUIRES(mutex_);
    Played played(const Selection& tracks, const PlayRequest& order) OV_REQUIRES(mutex_);
    void stopTrack(SessionTrack& track) OV_REQUIRES(mutex_);
    bool sentNothing() const OV_REQUIRES(mutex_);

    const std::string id_;
    const std::uint64_t number_;
    const WallTime since_;
    const std::string presentation_;
    const MediaRoutes::Route& route_;
    const MediaTarget target_;
    const SessionOwner owner_;
    ClientPresence presence_;
    std::atomic<bool> replays_{false};
    std::atomic<bool> over_{false};

    const std::unique_ptr<const SharedStream> shared_;  // null without multicast
    mutable SmallMutex own_;
    SmallMutex& mutex_;
    StateMachine<SessionState> state_ OV_GUARDED_BY(mutex_){SessionState::fresh};
    std::optional<SafePointer<IRTSPController>> controller_ OV_GUARDED_BY(mutex_);
    std::unique_ptr<RecordedPlay> recordedPlay_ OV_GUARDED_BY(mutex_);  // null for a live stream
    SessionTracks tracks_ OV_GUARDED_BY(mutex_);
    SessionAudit audit_ OV_GUARDED_BY(mutex_);
    bool unaware_ OV_GUARDED_BY(mutex_) = false;                    // the end left no trace for the client
    std::unique_ptr<TransportHold> waiting_ OV_GUARDED_BY(mutex_);  // of a PLAY that waits
};

}  // namespace refhost
