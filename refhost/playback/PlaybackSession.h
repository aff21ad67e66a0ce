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
#include "refhost/playback/PlaybackScheduler.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/PlaybackSource.h"
#include "refhost/playback/PlaybackTracks.h"
#include "refhost/rtp/RtcpWriter.h"
#include "support/SafePointer.h"

namespace refhost
{

/// A recording as one RTSP session controls it: the interval, its tracks, seeks and what the client asks
/// for. PlaybackPump sends it.
///
/// The operations answer at once; a worker reads the recording and sends it (PlaybackScheduler). Finding a
/// place in the recording is the worker's: play() answers hostStreamNotReady until the place is found, which
/// ChangeSignal announces, and is asked again. Positions are seconds from Interval::start.
///
/// After the end every track has sent BYE; a play() with a new range plays again, one without from the begin.
/// PlaybackState has the states. Threads: any. No packet of a track leaves after pause() or remove() of it
/// has returned.
class PlaybackSession : public PlaybackWork, public std::enable_shared_from_this<PlaybackSession>
{
public:
    /// The part of the recordings that a URL names.
    struct Interval
    {
        WallTime begin;
        WallTime end;
        /// Where the presentation's time is 0: the first frame that a play() from the begin sends. Before the
        /// begin, where that is in a GOP, or behind it, where recorded media starts later.
        WallTime start;
    };

    /// \param scheduler  runs the session's work; outlives it
    PlaybackSession(const Interval& interval, std::unique_ptr<PlaybackSource> source,
                    PlaybackScheduler& scheduler, const PlaybackSettings& settings);
    ~PlaybackSession() override;

    /// Adds a track in place of the one of the same kind (video or audio).
    void addTrack(const SubMediaInfo& info, int payloadSize);

    // In all of these: hostTrackUnknown when there is no such track.

    /// \returns 0 or hostConnectionUnusable
    int connect(const std::string& trackId, const SafePointer<IConnection>& connection);

    /// Plays on from where the track was paused, from the range that was set since, or from the begin.
    /// \returns 0, also when it plays already; hostStreamNotReady while the place is looked for;
    /// hostRangeInvalid
    ///          when there is no recorded media from there on, and what played before goes on;
    ///          hostConnectionUnusable without an open transport to the client
    int play(const std::string& trackId);

    /// Stops sending; nothing is lost. The session pauses when its last playing track does.
    /// \returns 0, also for a track that does not play
    int pause(const std::string& trackId);

    /// Says BYE and ends the track.
    /// \param[out] empty  true when no track is left
    int remove(const std::string& trackId, bool& empty);

    /// Sets what the next play() plays, for all tracks.
    /// \param begin, end  seconds, within the presentation; while it plays backwards `end` comes before
    /// `begin` \param kind        bits of PlayRangeKind \param move        false: the place and the end stay,
    /// only the bits of `kind` are taken over
    int setRange(const std::string& trackId, double begin, double end, int kind, bool move);

    /// Tells where the last play() really started, its key frame, and where it ends: seconds. Backwards, the
    /// end comes before the begin.
    int range(const std::string& trackId, double& begin, double& end);

    /// Pauses all tracks when this position is reached; at once where it lies behind.
    int setPausePosition(const std::string& trackId, double position);

    /// Takes effect at once, for all tracks; what is really done is PlaySpeed::used().
    int setSpeed(const std::string& trackId, double scale, double speed);

    /// The first packet of the last play(): its sequence number, and the timestamp of the begin that range()
    /// tells (RFC 2326, section 12.33).
    int firstPacket(const std::string& trackId, RTPPacketInfo& out);

    int ssrc(const std::string& trackId, int& ssrc);
    /// \param[out] connected  whether there is a transport to the client that is not closed, and over UDP a sign of
    ///                        life within PlaybackSettings::maxSilence
    int connectionState(const std::string& trackId, bool& connected);
    int statistics(const std::string& trackId, TrackStatistics& out);

    /// Mean time between two sender reports; from the next one on.
    void setReportInterval(Duration interval);

    /// Ends every track.
    void end();
    /// There is no track.
    bool empty() const;

    /// Everything was sent up to the end, and nothing was asked for since.
    bool ended() const;

    /// Has the worker look at the session.
    void wake();
    /// For the session's tracks alone: a compound RTCP packet of a client's.
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
    PlaybackScheduler& scheduler_;
    const std::unique_ptr<PlaybackSource> source_;  // run() alone, without the lock
    const RtcpWriter::Name name_;

    mutable Mutex mutex_;
    PlaybackTracks tracks_ OV_GUARDED_BY(mutex_);
    PendingSeek seek_ OV_GUARDED_BY(mutex_);
    PlaybackPump pump_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
