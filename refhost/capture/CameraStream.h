#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/capture/CameraCondition.h"
#include "refhost/capture/SourceAttempts.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/capture/StreamTaps.h"
#include "refhost/config/Config.h"
#include "refhost/media/StreamSource.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// One configured stream.
///
/// The source runs only while it is needed: from the first viewer, or the first request for a description,
/// until some seconds after the last. It is started, changed and stopped on a thread of its own, so that a
/// source that hangs blocks nobody else. A source that does not end in time is abandoned and replaced; a
/// stream with too many abandoned ones waits until one of them ends. A source that fails while there are
/// viewers is restarted with increasing pauses. Threads: any.
class CameraStream : public StreamSource
{
public:
    struct Options
    {
        std::chrono::milliseconds linger{5000};  ///< how long the source runs after its last viewer left
        std::chrono::milliseconds describeDeadline{10000};  ///< max duration of a description
        /// How long describe() returns `failed` before it tries again, so that everybody who waited gets it.
        std::chrono::milliseconds failureHold{1000};
        /// Pauses before the first, second, … restart after failures; the last one repeats. Each is up to
        /// half longer, at random.
        std::vector<std::chrono::milliseconds> restartPauses{std::chrono::seconds(1), std::chrono::seconds(2),
                                                             std::chrono::seconds(5),
                                                             std::chrono::seconds(10)};
        /// A source that delivers nothing for this time has failed.
        std::chrono::milliseconds maxSilence{10000};
        /// A source that does not end, or finish an operation, within this time is abandoned.
        std::chrono::milliseconds endDeadline{5000};
        int maxAbandoned{3};  ///< sources of the stream that hang; with so many, no further one is started
        std::chrono::milliseconds keyFrameInterval{500};  ///< min time between two requested key frames
        SourceRun::Factory makeRun;                       ///< empty: GStreamer reads every source
        bool serverClock = false;                         ///< as SourceRun::Setup holds it
        bool endsWhenAway = false;                        ///< as Setting holds it
        int cameraId = 1;                                 ///< of the camera that the stream belongs to
        /// A source that ran and delivers nothing for this time is frozen.
        std::chrono::milliseconds frozenAfter{5000};
        CameraStates* states = &CameraStates::instance();  ///< outlive the stream; not null
    };

    /// \param title    the stream's name in the log and in the synthetic camera's frames
    /// \param queue    runs the stream's tasks, none of which blocks
    /// \param changed  called without a lock when a description became ready, changed or failed
    CameraStream(const StreamConfig& config, const std::string& title, const Options& options,
                 std::shared_ptr<TaskQueue> queue, std::function<void()> changed);
    /// Stops the source, and waits for it at most for options.endDeadline.
    /// Requires: not called by one of the stream's sinks or by `changed`.
    ~CameraStream() override;

    /// What may change while the stream is used.
    struct Setting
    {
        StreamConfig config;
        std::string title;
        std::chrono::milliseconds linger;
        bool serverClock;
        bool endsWhenAway;  ///< viewers do not wait for a source that is frozen or failed: \see isAway()
    };

    /// Applies other settings of the same stream.
    /// \param restarts  the source starts again with them, and the tracks are described again; viewers stay attached.
    ///                  Otherwise a source that runs keeps its title until its next start
    void change(const Setting& setting, bool restarts);

    /// Starts to stop permanently: `changed` is not called any more.
    /// Requires: not called by one of the stream's sinks or by `changed`.
    void close();
    /// Waits until the source has stopped after close(); abandons it at `deadline`.
    void awaitEnd(std::chrono::steady_clock::time_point deadline);

    Description describe(std::vector<SubMediaInfo>& tracks) override;
    void attach(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink) override;
    void detach(const AccessUnitSink* sink) override;
    void attachMedia(std::shared_ptr<EncodedUnitSink> sink) override;
    void detachMedia(const EncodedUnitSink* sink) override;
    void acquire() override;
    void release() override;
    void requestKeyFrame() override;
    bool isNeeded() const override;
    Received received() const override;
    void restart() override;

    /// Number of starts of the source.
    int starts() const;
    /// True while the source runs.
    bool isRunning() const;
    /// True while the source is frozen or failed and its viewers are to be ended. Until it is described again, newcomers
    /// wait for that, or fail.
    bool isAway() const;
    /// Number of tasks queued for the stream's thread: a few, whatever viewers do.
    std::size_t waitingTasks() const;

private:
    using Clock = std::chrono::steady_clock;
    using Tracks = std::vector<SubMediaInfo>;

    /// Shared with the stream's tasks, which check it before they use the stream.
    struct Life
    {
        Mutex mutex;
        bool alive OV_GUARDED_BY(mutex) = true;
    };

    void post(TaskQueue::Task task, std::chrono::milliseconds delay = std::chrono::milliseconds(0));

    void postUpdate();

    // On the queue's thread.
    void update();
    void start();
    void startPipeline();
    void stop();
    void onStopped(std::uint64_t run);
    void onEndDeadline(std::uint64_t run);
    void finishStop();
    void setTaps();
    void checkForHang(std::uint64_t run);
    void onClockUnusable(const std::string& why);
    void onDescribed(std::uint64_t run, bool partial);
    void onDeadline(std::uint64_t request);
    void checkForSilence(std::uint64_t run, std::uint64_t packetsBefore);
    void checkForFrames(std::uint64_t run);
    void onEnded(std::uint64_t run, const SourceFailure& why);
    void fail(const SourceFailure& why);
    void goAway();
    void comeBack(std::uint64_t run);
    void scheduleStop();
    void startAgain();
    void scheduleRestart();
    void sendKeyFrameRequest();
    void restartNow();
    void forgetTracks();
    void startOver();

    const Options options_;
    const std::function<void()> changed_;
    const std::shared_ptr<MediaTap> mediaTap_ = std::make_shared<MediaTap>();
    StreamTaps taps_;
    const std::shared_ptr<TaskQueue> queue_;
    const std::shared_ptr<Life> life_ = std::make_shared<Life>();

    mutable Mutex mutex_;
    std::shared_ptr<const Tracks> tracks_ OV_GUARDED_BY(mutex_);  ///< null until known
    int viewers_ OV_GUARDED_BY(mutex_) = 0;
    bool describing_ OV_GUARDED_BY(mutex_) = false;
    std::uint64_t descriptionRequest_ OV_GUARDED_BY(mutex_) =
        0;  ///< number of the present or last request for a description
    bool failed_ OV_GUARDED_BY(mutex_) = false;
    Clock::time_point failedAt_ OV_GUARDED_BY(mutex_);
    bool keyFrameRequested_ OV_GUARDED_BY(mutex_) = false;
    Clock::time_point keyFrameAt_ OV_GUARDED_BY(mutex_);
    bool away_ OV_GUARDED_BY(mutex_) = false;  ///< and tracks_ is null
    int starts_ OV_GUARDED_BY(mutex_) = 0;
    bool running_ OV_GUARDED_BY(mutex_) = false;

    std::atomic<std::uint64_t> packetCount_{0};
    std::atomic<bool> updatePosted_{false};
    std::atomic<bool> startsAtOnce_{false};  ///< the next update() ignores the restart pause

    // Used on the queue's thread only, and by close() and awaitEnd().
    Setting setting_;
    std::unique_ptr<SourceRun> pipeline_;
    std::unique_ptr<SourceRun> ending_;  ///< stopped, but not ended yet
    std::uint64_t endingRun_ = 0;
    bool clockReported_ = false;
    std::uint64_t run_ = 0;       ///< number of the present start; events of earlier ones are stale
    std::uint64_t requests_ = 0;  ///< incremented whenever update() finds the source needed
    bool stopScheduled_ = false;
    bool restartScheduled_ = false;
    bool waitsToStartAgain_ = false;  ///< nobody starts the source before the pause is over
    SourceAttempts attempts_;
    CameraCondition condition_;
    bool described_ = false;         ///< by the present run
    std::uint64_t packetsSeen_ = 0;  ///< of the present run, by checkForFrames()
    Clock::time_point packetsAt_;    ///< when it saw the last one of them
};

}  // namespace refhost
