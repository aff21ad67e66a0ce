#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/RTPPacketInfo.h"
#include "live/IRTSPController.h"
#include "refhost/rtp/RtpTransport.h"
#include "refhost/rtsp/InterleavedChannels.h"
#include "refhost/rtsp/MediaRoutes.h"
#include "refhost/rtsp/RtspStatus.h"
#include "refhost/rtsp/SocketAddress.h"
#include "support/SafePointer.h"

namespace refhost
{

/// One RTSP session: a presentation's controller and the tracks that a client set up with it.
///
/// Made by SessionTable, which finds it by its id; ends once, by end(). Every track that was set up is
/// stopped exactly once, however the session ends.
///
/// Threads: any; one lock of its own serialises the verbs, as controllers want it, and is held across the
/// controller's operations. Operations on an ended session answer 454.
class RtspSession
{
public:
    /// One track's way to the client, as SETUP made it.
    struct Delivery
    {
        std::optional<SafePointer<RtpTransport>> transport;
        std::unique_ptr<InterleavedChannels::Lease> channels;  ///< null for UDP
        std::uint64_t link = 0;  ///< serial of the connection that it ends with; 0 for UDP
    };

    /// What RTP-Info says of one track.
    struct PlayedTrack
    {
        std::string_view id;
        bool known = false;      ///< `first` is filled in
        std::uint64_t link = 0;  ///< serial of the connection that its packets take; 0 for UDP
        RTPPacketInfo first;
    };

    using MakeDelivery = std::function<RtspStatus(Delivery& out)>;
    using AnswerPlay = std::function<void(const std::vector<PlayedTrack>& tracks)>;

    RtspSession(std::string id, std::string presentation, const SafePointer<IRTSPController>& controller,
                FirstPacketFunction firstPacket, const SocketAddress::Key& client, std::int64_t nowMs);
    ~RtspSession() noexcept(false);
    RtspSession(const RtspSession&) = delete;
    RtspSession& operator=(const RtspSession&) = delete;

    const std::string& id() const;
    /// What a log may show: whoever knows the whole id may drive the session.
    std::string logName() const;
    const std::string& presentation() const;
    const SocketAddress::Key& client() const;
    std::shared_ptr<SessionLiveness> liveness() const;

    /// Sets a track up, or changes the way of one that does not play: its former way ends first, also when
    /// the new one fails. An empty track id means the only track of the presentation. \param make      called
    /// under the lock when the track may be set up \param[out] ssrc the SSRC of the track's packets \returns
    /// 200, 455 for a track that plays, 459 for an empty track id where there are several tracks, the
    ///          status of `make`, or what the controller's code means
    RtspStatus setup(std::string trackId, const MakeDelivery& make, std::uint32_t& ssrc);

    /// Plays one track, or all with an empty id. No packet leaves before `answer` has returned; it is called
    /// when every track plays, and only then.
    /// \returns 200 after `answer`; 404 or 455 for a track that is not set up; otherwise what the
    /// controller's
    ///          code means, with the tracks paused again that this call had started
    RtspStatus play(std::string_view trackId, const AnswerPlay& answer);

    /// \returns 200; 404 or 455 for a track that is not set up or when nothing plays
    RtspStatus pause(std::string_view trackId);

    /// Ends one track, or all with an empty id.
    /// \param[out] empty  true when no track is left: the session is to be ended
    RtspStatus teardown(std::string_view trackId, bool& empty);

    /// Stops every track and lets go of the controller. Does nothing the second time.
    void end();

    /// A request named the session.
    void heard(std::uint64_t link, std::int64_t nowMs);

    /// The connection took bytes: its client lives, if this session sends something over it.
    void linkMoved(std::uint64_t link, std::int64_t nowMs);

    /// A connection that used the session is gone.
    /// \returns true when the session must end with it, because a track is interleaved in it
    bool linkEnded(std::uint64_t link, std::int64_t nowMs);

    /// True when the client was not heard for too long: `sessionTimeoutMs` in general, `orphanTimeoutMs`
    /// after its connection went, unless it was heard since.
    bool expired(std::int64_t nowMs, std::int64_t sessionTimeoutMs, std::int64_t orphanTimeoutMs) const;

    std::size_t trackCount() const;

private:
    struct Track
    {
        std::string id;
        Delivery delivery;
        bool playing = false;
    };

    Track* findTrack(std::string_view trackId);
    RtspStatus select(std::string_view trackId, std::vector<Track*>& out);
    RtspStatus onlyTrack(std::string& trackId);
    void stopTrack(Track& track);
    bool hasTrackInDescription(std::string_view trackId);

    const std::string id_;
    const std::string presentation_;
    const FirstPacketFunction firstPacket_;
    const SocketAddress::Key client_;
    const std::shared_ptr<SessionLiveness> liveness_;
    std::atomic<std::int64_t> orphanedMs_{-1};

    mutable std::mutex mutex_;
    bool ended_ = false;
    std::uint64_t link_ = 0;  // that named the session last
    std::optional<SafePointer<IRTSPController>> controller_;
    std::vector<std::unique_ptr<Track>> tracks_;
};

}  // namespace refhost
