#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Replaceable.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/media/StreamSource.h"
#include "refhost/recording/DamageLog.h"
#include "refhost/recording/EventGate.h"
#include "refhost/recording/LogPause.h"
#include "refhost/recording/RecordingDisk.h"
#include "refhost/recording/SegmentCutter.h"
#include "refhost/recording/SegmentLedger.h"
#include "refhost/recording/SegmentWriter.h"
#include "refhost/recording/SlownessLog.h"

namespace refhost
{

/// Records one stream: keeps its source running, writes segments below the index's directory as
/// `<camera>/<stream>/<begin in UTC>.mkv`, and notes them in the ledger.
///
/// Units are gathered, and written together by the threads of the disk: in order, and never by two threads at
/// once; DiskSync syncs them. The source is never held up: where the disk is too slow, units are left out up to
/// the next key frame. When the disk fails, or is full and no room can be made, recording pauses and is tried
/// again; one line in the log says so, repeated every ten minutes, and another one when it works again.
/// Malformed media is left out, with at most one line in ten minutes. Frames that miss packets of the camera are
/// recorded and logged (DamageLog).
///
/// A stream may be recorded around events alone (EventGate); what lies between them is a gap.
///
/// A killed process loses what is gathered: `gather` and the pool's grain. A power cut also loses what DiskSync
/// has not synced: its interval, and the duration of one pass.
///
/// A segment is dated when it starts, its units by their distance to its begin. When the wall clock is set, the
/// next key frame starts a segment with a new date; no frame is lost or dated twice.
///
/// Threads: any.
class Recorder : public EncodedUnitSink,
                 public std::enable_shared_from_this<Recorder>,
                 private PooledWork,
                 private SegmentSink
{
public:
    struct Options
    {
        Duration segmentLength = std::chrono::seconds(10);  ///< requested
        Duration gather = std::chrono::milliseconds(500);   ///< how long units wait to be written together
        Duration grow = std::chrono::seconds(1);    ///< between two updates of an open segment in the ledger
        Duration retry = std::chrono::seconds(10);  ///< pause after a failure of the disk
        std::size_t maxGathered = 1048576;          ///< bytes; beyond, units are written at once
        /// Bytes that may wait for the disk, within RecordingDisk's bound; on events those of a pre-roll besides.
        std::size_t maxQueued = std::size_t{16} * 1048576;
        std::optional<EventGate::Rolls> rolls;  ///< nothing: everything is recorded
        /// Dates the segments. Not null, outlives the recorder.
        const HostClock* clock = &HostClock::system();
    };

    struct Stream
    {
        int cameraId;
        int streamId;
        std::shared_ptr<StreamSource> source;
        std::string name;  ///< in the log
    };

    /// Called on a thread of the disk; each may be empty.
    struct Hooks
    {
        std::function<void()> segmentClosed;         ///< a segment was closed
        SegmentWriter::MakeRoom makeRoom;            ///< the disk is full
        std::function<bool(std::string&)> mayStart;  ///< asked before each segment; false with the reason set
    };

    /// \param disk  outlives the recording, up to the end that awaitEnd() waits for
    static std::shared_ptr<Recorder> start(const Stream& stream, std::shared_ptr<SegmentLedger> ledger,
                                           RecordingDisk& disk, const Options& options, Hooks hooks);
    /// After stop().
    ~Recorder() override;

    /// Whether it records this stream.
    bool records(int cameraId, int streamId) const
    {
        return stream_.cameraId == cameraId && stream_.streamId == streamId;
    }

    const std::shared_ptr<StreamSource>& source() const
    {
        return stream_.source;
    }

    /// Applies another configuration of the same stream: its name in the log, the length of segments, the present
    /// one included, and whether it is recorded around events (EventGate::setRolls()). Nothing is lost.
    void change(const std::string& name, Duration segmentLength,
                const std::optional<EventGate::Rolls>& rolls);

    /// What is recorded at present.
    struct State
    {
        bool onEvents = false;
        bool recording = false;         ///< true between events only from an event to its end
        std::optional<WallTime> until;  ///< of the present event, at least
    };
    State state() const;

    /// There is an event: where the stream is recorded around events, the pre-roll is recorded, and what follows up to
    /// the end of the post-roll. A later event prolongs it. Holds the lock that delivers units for as long as it takes
    /// to move the pointers of the pre-roll.
    /// \param after  the post-roll; nothing: as configured
    State noteEvent(const std::optional<Duration>& after);

    const Stream& stream() const
    {
        return stream_;
    }

    /// Detaches from the source. What was gathered is written and the segment closed soon, see awaitEnd().
    void stop();
    /// Waits until everything from before stop() is written.
    /// \returns false at the deadline: hooks may be called later
    bool awaitEnd(std::chrono::steady_clock::time_point deadline);

    void onEncodedUnit(const EncodedUnitPtr& unit) override;
    void onDiscontinuity() override;

private:
    /// In the order of arrival; null: the stream was interrupted.
    using Units = EventGate::Units;

    Recorder(const Stream& stream, std::shared_ptr<SegmentLedger> ledger, RecordingDisk& disk,
             const Options& options, Hooks hooks);
    std::size_t maxQueued(const std::optional<EventGate::Rolls>& rolls) const;
    void accept(Units& units) OV_REQUIRES(inletMutex_);
    State stateNow() const OV_REQUIRES(inletMutex_);
    bool admits(const EncodedUnit& unit, std::size_t bytes) OV_REQUIRES(inletMutex_);
    void gather(const EncodedUnitPtr& unit) OV_REQUIRES(inletMutex_);
    void wakeIn(Duration delay) OV_REQUIRES(inletMutex_);

    // On one thread of the disk at a time.
    MonotonicTime run(MonotonicTime now) override;
    void writeAll(Units& units);
    void endIfStopped();
    void take(const EncodedUnitPtr& unit);
    void followWallClock();
    std::string freePath(WallTime& begin) const;
    void flush();
    std::string syncFailure();
    void startAgainAfterFailure();
    void fail(const std::string& why);
    void measureUnfinished();
    void noteEnd();
    bool makeFolder(std::string& error);
    void chooseTracks(const Tracks& tracks);
    void reportMalformed(const std::string& what);
    SegmentCutter::Expected expected() const;

    void startSegment(MonotonicTime begin, const Tracks& tracks) override;
    void writeUnit(std::size_t track, const EncodedUnitPtr& unit) override;
    void endSegment(Duration duration) override;

    const Stream stream_;
    Replaceable<std::string> title_;
    std::atomic<Duration> segmentLength_;
    const std::shared_ptr<SegmentLedger> ledger_;
    RecordingDisk& disk_;
    const Options options_;
    const Hooks hooks_;

    mutable Mutex inletMutex_;
    EventGate gate_ OV_GUARDED_BY(inletMutex_);
    Units passed_ OV_GUARDED_BY(inletMutex_);  ///< by the gate; empty between two calls
    std::size_t maxQueued_ OV_GUARDED_BY(inletMutex_);
    LogPause shortagePause_ OV_GUARDED_BY(inletMutex_);
    Units gathered_ OV_GUARDED_BY(inletMutex_);
    std::size_t gatheredBytes_ OV_GUARDED_BY(inletMutex_) = 0;
    std::optional<Duration> wokenIn_ OV_GUARDED_BY(inletMutex_);  ///< the shortest, for what is gathered
    std::size_t queued_ OV_GUARDED_BY(inletMutex_) = 0;           ///< bytes that wait for the disk
    bool skipping_ OV_GUARDED_BY(inletMutex_) = false;            ///< until the disk has caught up
    SlownessLog slowness_ OV_GUARDED_BY(inletMutex_);
    bool stopping_ OV_GUARDED_BY(inletMutex_) = false;
    bool ended_ OV_GUARDED_BY(inletMutex_) = false;
    ConditionVariable endedChanged_;

    // Used in run() only, which the pool calls one at a time.
    SegmentCutter cutter_;
    std::unique_ptr<SegmentWriter> writer_;
    bool unflushed_ = false;                          ///< something was written since the last flush
    SyncedFile::Result lastResult_;                   ///< of the last file that was finished
    Tracks offered_;                                  ///< of the cutter's present segment
    std::vector<std::optional<std::size_t>> places_;  ///< of these in the file; nothing for a malformed one
    Tracks written_;                                  ///< those in the file
    WallClock::Mapping dates_;                        ///< how capture times are dated
    RecordedSegment segment_;                         ///< that is being written
    MonotonicTime begin_;                             ///< capture time of its begin
    MonotonicTime now_;                               ///< capture time of the present unit
    MonotonicTime nextFlush_;                         ///< capture time, where more than usual was gathered
    MonotonicTime nextGrow_;                          ///< capture time
    bool failing_ = false;                            ///< reported, and not taken back yet
    std::optional<MonotonicTime> failed_;             ///< capture time of a failure that the pause follows
    std::optional<WallTime> lostSince_;   ///< what was first not recorded since then; set while failing_
    std::optional<MonotonicTime> tried_;  ///< begin of what is written since a failure
    LogPause failPause_;
    LogPause malformedPause_;
    DamageLog damage_;
};

}  // namespace refhost
