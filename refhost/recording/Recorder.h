#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/media/StreamSource.h"
#include "refhost/recording/LogPause.h"
#include "refhost/recording/SegmentCutter.h"
#include "refhost/recording/SegmentLedger.h"
#include "refhost/recording/SegmentWriter.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// Records one stream: keeps its source running, writes segments below the index's directory as
/// `<camera>/<stream>/<begin in UTC>.mkv`, and notes them in the ledger.
///
/// All writing is done on a thread of its own; a disk that is slow or fails never holds up the source. What a
/// slow disk leaves behind is left out up to the next key frame. When the disk fails, or is full and
/// nothing makes room, recording stops with one line in the log, repeated every ten minutes, and is tried
/// again after a pause, with one line when it works again. Malformed media is left out, with one line in ten
/// minutes at most, and stops nothing.
///
/// A segment is dated when it starts; within it, time is what passed since. When the wall clock is set, the
/// next segment starts with the next key frame, dated again; no frame is lost, and none is dated twice.
/// Threads: any.
class Recorder : public EncodedUnitSink, public std::enable_shared_from_this<Recorder>, private SegmentSink
{
public:
    struct Options
    {
        Duration segmentLength = std::chrono::seconds(10);  ///< requested
        Duration flush = std::chrono::milliseconds(500);    ///< media that a crash may lose
        Duration writeOut =
            std::chrono::seconds(2);                ///< media that wait before the system writes them to disk
        Duration grow = std::chrono::seconds(1);    ///< how often the ledger learns how long a segment is
        Duration retry = std::chrono::seconds(10);  ///< pause after a failure of the disk
        std::size_t maxQueued = 16 * 1048576;       ///< bytes that may wait for the disk
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

    /// What a recorder calls on its thread; each may be empty.
    struct Hooks
    {
        std::function<void()> segmentClosed;         ///< a segment came to its end
        SegmentWriter::MakeRoom makeRoom;            ///< the disk is full
        std::function<bool(std::string&)> mayStart;  ///< asked before each segment; false with the reason set
    };

    static std::shared_ptr<Recorder> start(const Stream& stream, std::shared_ptr<SegmentLedger> ledger,
                                           const Options& options, Hooks hooks);
    /// After stop().
    ~Recorder() override;

    /// Writes what has come, ends the segment and lets the source go. Waits for the disk.
    void stop();

    void onEncodedUnit(const EncodedUnitPtr& unit) override;
    void onDiscontinuity() override;

private:
    Recorder(const Stream& stream, std::shared_ptr<SegmentLedger> ledger, const Options& options,
             Hooks hooks);
    bool admits(std::size_t bytes);

    // On the recorder's thread.
    void take(const EncodedUnitPtr& unit);
    void followWallClock();
    std::string freePath(WallTime& begin) const;
    void flushWhenDue();
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
    const std::string title_;
    const std::shared_ptr<SegmentLedger> ledger_;
    const Options options_;
    const Hooks hooks_;

    Mutex inletMutex_;
    std::size_t queued_ OV_GUARDED_BY(inletMutex_) = 0;  ///< bytes that wait for the disk
    bool skipping_ OV_GUARDED_BY(inletMutex_) = false;   ///< until the disk has caught up
    bool slownessReported_ OV_GUARDED_BY(inletMutex_) = false;

    // Used on the recorder's thread only.
    SegmentCutter cutter_;
    std::unique_ptr<SegmentWriter> writer_;
    Tracks offered_;                                  ///< of the cutter's present segment
    std::vector<std::optional<std::size_t>> places_;  ///< of these in the file; nothing for a malformed one
    Tracks written_;                                  ///< those in the file
    WallClock::Mapping dates_;                        ///< how capture times are dated
    RecordedSegment segment_;                         ///< that is being written
    MonotonicTime begin_;                             ///< capture time of its begin
    MonotonicTime now_;                               ///< capture time of the present unit
    MonotonicTime nextFlush_;                         ///< capture time
    MonotonicTime nextWriteOut_;                      ///< capture time
    MonotonicTime nextGrow_;                          ///< capture time
    bool failing_ = false;                            ///< told in the log, and not taken back yet
    std::optional<MonotonicTime> failed_;             ///< capture time of a failure that the pause follows
    std::optional<MonotonicTime> tried_;              ///< begin of what is written since a failure
    LogPause failPause_;
    LogPause malformedPause_;

    /// Last: its thread uses everything above.
    TaskQueue queue_;
};

}  // namespace refhost
