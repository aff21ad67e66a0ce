#pragma once
// Tested by tests/refhost/playback/PlaybackPlay_test.cpp, tests/refhost/playback/PlaybackSeek_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/base/Mutex.h"
#include "refhost/playback/PendingSeek.h"
#include "refhost/playback/PlaybackPump.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/PlaybackSource.h"
#include "refhost/playback/PlaybackTracks.h"
#include "refhost/rtp/RtcpWriter.h"
#include "refhost/threads/WorkPool.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Playback of a recording as one RTSP session controls it: interval, tracks, seeks, speed. PlaybackPump
/// sends it.
///
/// Operations return at once; a worker reads and sends the recording (WorkPool). Seeks are the
/// worker's, too: play() returns hostStreamNotReady until the position is found, which ChangeSignal
/// announces, and is called again. Positions are seconds from Interval::start.
///
/// At the end every track sends BYE; play() then plays the range that was set since, or all from the start.
/// For the states see PlaybackState. Threads: any. No packet of a track is sent after pause() or remove() of
/// it has returned.
class PlaybackSession : public PooledWork, public std::enable_shared_from_this<PlaybackSession>
{
public:
    /// The part of the recordings that is played.
    struct Interval
    {
        WallTime begin;
        WallTime end;
        /// Date of position 0: the first frame that is sent from the begin on. Before `begin` where that is
        /// inside a GOP, after it where the recording starts later.
        WallTime start;
    };

    /// \param pool  runs the session's work; outlives it
    PlaybackSession(const Interval& interval, std::unique_ptr<PlaybackSource> source, WorkPool& pool,
                    const PlaybackSettings& settings);
    ~PlaybackSession() override;

    /// Adds a track in place of the one of the same kind (video or audio).
    void addTrack(const SubMediaInfo& info, int payloadSize);

    // All of these return hostTrackUnknown when there is no such track.

    /// \returns 0 or hostConnectionUnusable
    int connect(const std::string& trackId, const SafePointer<IConnection>& connection);

    /// Plays from where the track was paused, from the range that was set since, or from the start.
    /// \returns 0, also when it plays already; hostStreamNotReady while the position is searched;
    ///          hostRangeInvalid when nothing is recorded from there on, play continues as before;
    ///          hostConnectionUnusable without an open transport to the client
    int play(const std::string& trackId);

    /// Stops sending, without loss. The session pauses with its last playing track.
    /// \returns 0, also for a track that does not play
    int pause(const std::string& trackId);

    /// Sends BYE and ends the track.
    /// \param[out] empty  true when no track is left
    int remove(const std::string& trackId, bool& empty);

    /// Sets what the next play() plays, for all tracks.
    /// \param begin, end  seconds, clamped to the presentation; backwards `end` comes before `begin`
    /// \param kind        bits of PlayRangeKind
    /// \param move        false: only `kind` is set, position and end stay
    /// \returns 0 or hostRangeInvalid for an empty range
    int setRange(const std::string& trackId, double begin, double end, int kind, bool move);

    /// Returns the position of the key frame that the last play() started with, and of the end: seconds.
    /// Backwards, the end comes before the begin.
    int range(const std::string& trackId, double& begin, double& end);

    /// Pauses all tracks when this position is reached; at once when it has passed.
    int setPausePosition(const std::string& trackId, double position);

    /// Sets the speed of all tracks to PlaySpeed::used(), at once.
    int setSpeed(const std::string& trackId, double scale, double speed);

    /// RTP-Info of the last play() (RFC 2326, section 12.33): sequence number of its first packet, and the
    /// timestamp of the begin that range() returns.
    int firstPacket(const std::string& trackId, RTPPacketInfo& out);

    int ssrc(const std::string& trackId, int& ssrc);
    /// \param[out] connected  whether the transport to the client is open, and over UDP the client was active
    ///                        within PlaybackSettings::maxSilence
    int connectionState(const std::string& trackId, bool& connected);
    int statistics(const std::string& trackId, TrackStatistics& out);

    /// Sets the mean time between two sender reports, from the next one on.
    void setReportInterval(Duration interval);

    /// Ends every track.
    void end();
    /// Whether there is no track.
    bool empty() const;

    /// Whether everything was sent and no seek was requested since.
    bool ended() const;

    /// Has a worker run the session.
    void wake();
    /// Reads a compound RTCP packet of the client. Called by the session's tracks.
    void readReport(PlaybackTrack& track, const std::uint8_t* data, std::size_t size);

    MonotonicTime run(MonotonicTime now) override;

private:
    using TrackPtr = PlaybackTracks::TrackPtr;

    WallTime instant(double seconds) const;
    PendingSeek::Target wholeInterval() const OV_REQUIRES(mutex_);
    PendingSeek::Target goingOn() const OV_REQUIRES(mutex_);
    PlaybackSource::Request requestFor(const PendingSeek::Target& target) const OV_REQUIRES(mutex_);
    void seek() OV_REQUIRES(mutex_);
    bool shouldRead(MonotonicTime now) OV_REQUIRES(mutex_);
    bool readAhead(MonotonicTime now) OV_REQUIRES(mutex_);

    const Interval interval_;
    PlaybackSettings settings_;  // the report interval under the lock; the rest is constant
    WorkPool& pool_;
    const std::unique_ptr<PlaybackSource> source_;  // run() alone, without the lock
    const RtcpWriter::Name name_;

    mutable Mutex mutex_;
    PlaybackTracks tracks_ OV_GUARDED_BY(mutex_);
    PendingSeek seek_ OV_GUARDED_BY(mutex_);
    PlaybackPump pump_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
