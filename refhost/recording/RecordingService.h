#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/media/StreamSource.h"
#include "refhost/recording/LogPause.h"
#include "refhost/recording/Recorder.h"
#include "refhost/recording/RecordingControl.h"
#include "refhost/recording/RecordingDisk.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/RecordingIndex.h"
#include "refhost/recording/RecordingRetention.h"
#include "refhost/recording/RecordingRoom.h"
#include "refhost/recording/SegmentLedger.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// All recording of a server: runs a recorder for each stream with `record`, opens the index and publishes it
/// as Device::recordings(), repairs what a crash left, and keeps the limits.
///
/// Recording starts as soon as the folder can be used, and does not wait for the index or the repair. A folder
/// that cannot be used, or is used by another server, and an index that cannot be opened are reported once and
/// tried again; the streams are live meanwhile. Recordings are expected (Device) while the index is opened, and
/// incomplete (RecordingIndex) while it is repaired. When the folder's disk is unmounted, recording stops until
/// one is mounted there. A disk that hangs is not waited for; nothing is recorded until it answers. Earlier
/// recordings are published even if nothing is recorded now.
///
/// Threads: start(), setConfig() and stop() from one; the work is done on a thread of its own.
class RecordingService
{
public:
    struct Pauses
    {
        std::chrono::milliseconds retry;   ///< before a folder or an index that cannot be used is tried again
        std::chrono::milliseconds closed;  ///< from the end of a segment to a check of the limits
        std::chrono::milliseconds anyway;  ///< between two checks of the limits, segments or not
        std::chrono::milliseconds end;     ///< max wait for the segments to be closed
    };
    static constexpr Pauses usualPauses{std::chrono::seconds(10), std::chrono::seconds(5),
                                        std::chrono::seconds(60), std::chrono::milliseconds(2500)};

    /// Recordings are expected (Device) from now until the index was opened, or cannot be.
    RecordingService(const ServerConfig& config, std::shared_ptr<StreamDirectory> streams,
                     const Pauses& pauses = usualPauses);
    ~RecordingService();
    RecordingService(const RecordingService&) = delete;
    RecordingService& operator=(const RecordingService&) = delete;

    void start();

    /// Applies another configuration soon: starts and ends the recorders of streams that it does or does not record,
    /// changes limits, names and the length of segments. Other recorders go on without a gap. The folder stays.
    /// Requires: the streams were given the configuration before.
    void setConfig(const ServerConfig& config);

    /// Closes every segment and withdraws the index; waits for the disk for at most Pauses::end.
    void stop();

    /// What users change while it runs; valid as long as the service.
    RecordingControl& control()
    {
        return control_;
    }

    /// Number of attempts to open the folder or the index.
    int attempts() const
    {
        return attempts_;
    }
    /// Number of checks of the limits.
    int retentions() const
    {
        return retentions_;
    }

private:
    /// What a disk that hangs may still use.
    struct Hanging
    {
        std::shared_ptr<SegmentLedger> ledger;
        std::shared_ptr<RecordingRoom> room;
        std::vector<std::shared_ptr<Recorder>> recorders;
        /// Last: its end waits for its threads.
        std::unique_ptr<RecordingDisk> disk;
    };

    bool recordsAnything() const;
    bool hasWork() const;
    void open();
    bool openFolder();
    void openIndex();
    void repair();
    void record();
    void change(const ServerConfig& config);
    void applySwitches();
    RecordMode modeOf(const CameraConfig& camera, const StreamConfig& stream) const;
    void startRecorder(const CameraConfig& camera, const StreamConfig& stream);
    void endUnrecorded();
    void dropEnded();
    bool mayStart(std::string& why);
    void leave();
    void end();
    bool haveEnded(const std::vector<std::shared_ptr<Recorder>>& recorders,
                   std::chrono::milliseconds max) const;
    bool stillHangs();
    void retain();
    void reportClock(const RecordingRetention::Outcome& outcome);
    void retainSoon();
    void retainRegularly();

    RecordingControl control_;
    ServerConfig config_;  ///< changed on the service's thread
    const std::shared_ptr<StreamDirectory> streams_;
    RecordingRetention retention_;
    const Pauses pauses_;
    std::atomic<bool> retainsSoon_{false};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> leaving_{false};

    // Used on the service's thread only, or after its end; recorders_ is empty while others change.
    std::unique_ptr<RecordingFolder> folder_;
    std::shared_ptr<SegmentLedger> ledger_;
    std::shared_ptr<RecordingRoom> room_;
    std::shared_ptr<RecordingIndex> index_;
    std::unique_ptr<RecordingDisk> disk_;
    std::vector<std::shared_ptr<Recorder>> recorders_;
    std::vector<std::shared_ptr<Recorder>> stopped_;  ///< by another configuration, and not ended yet
    std::optional<Hanging> hanging_;
    bool failureReported_ = false;
    bool indexFailureReported_ = false;
    bool retains_ = false;
    bool stuckReported_ = false;
    bool clockDoubted_ = false;
    bool retainsSlowly_ = false;
    LogPause roomPause_;
    std::atomic<int> attempts_{0};
    std::atomic<int> retentions_{0};

    /// Last: its thread uses everything above.
    TaskQueue queue_;
};

}  // namespace refhost
