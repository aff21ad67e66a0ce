#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/device/Config.h"
#include "refhost/device/StreamPipeline.h"
#include "refhost/device/TaskQueue.h"
#include "refhost/live/StreamSource.h"

namespace refhost
{

/// One configured stream on GStreamer.
///
/// The pipeline runs only while it is wanted: from the first viewer, or the first wish for a description,
/// until some seconds after the last. It is started, changed and stopped on one thread of the stream's own,
/// so that a source that hangs holds up nobody else. A source that fails while there are viewers is started
/// again and again, with growing pauses. Threads: any.
class CameraStream : public StreamSource
{
public:
    struct Options
    {
        std::chrono::milliseconds linger{5000};  ///< how long the source runs on after its last viewer
        std::chrono::milliseconds describeDeadline{10000};  ///< how long a description may take
        /// How long describe() tells of a failure before it tries again: everybody who waited learns of it.
        std::chrono::milliseconds failureHold{1000};
        /// Pauses before the first, second, … new start after a failure; the last one goes on for good.
        std::vector<std::chrono::milliseconds> restartPauses{std::chrono::seconds(1), std::chrono::seconds(2),
                                                             std::chrono::seconds(5),
                                                             std::chrono::seconds(10)};
        /// A source that gives nothing for so long is taken for failed.
        std::chrono::milliseconds longestSilence{10000};
        std::chrono::milliseconds keyFrameInterval{500};  ///< least time between two forced key pictures
    };

    /// \param title    names the stream in the log and in the synthetic camera's picture
    /// \param changed  called without a lock held when a description became ready, changed or failed
    CameraStream(const StreamConfig& config, const std::string& title, const Options& options,
                 std::function<void()> changed);
    /// Stops the source. Not from within one of its calls.
    ~CameraStream() override;

    Description describe(std::vector<SubMediaInfo>& tracks) override;
    void attach(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink) override;
    void detach(const AccessUnitSink* sink) override;
    void attachMedia(std::shared_ptr<EncodedUnitSink> sink) override;
    void detachMedia(const EncodedUnitSink* sink) override;
    void acquire() override;
    void release() override;
    void requestKeyFrame() override;

    /// How often the source was started.
    int starts() const;
    /// True while the source runs.
    bool isRunning() const;

private:
    using Clock = std::chrono::steady_clock;
    using Tracks = std::vector<SubMediaInfo>;

    // On the stream's own thread.
    void update();
    void start();
    void stop();
    void onDescribed(std::uint64_t run, bool partial);
    void onDeadline(std::uint64_t wish);
    void checkForSilence(std::uint64_t run, std::uint64_t packetsBefore);
    void onEnded(std::uint64_t run, const std::string& why);
    void fail(const std::string& why);
    void scheduleStop();
    void scheduleRestart();
    void sendKeyFrameRequest();
    StreamPipeline::Taps usedTaps();

    const StreamConfig config_;
    const std::string title_;
    const Options options_;
    const std::function<void()> changed_;
    const std::shared_ptr<MediaTap> mediaTap_ = std::make_shared<MediaTap>();

    mutable std::mutex mutex_;
    std::shared_ptr<const Tracks> tracks_;  ///< null until they are known
    int viewers_ = 0;
    bool describing_ = false;
    std::uint64_t descriptionWish_ = 0;  ///< number of the present or last wish for a description
    bool failed_ = false;
    Clock::time_point failedAt_;
    StreamPipeline::Taps taps_;
    bool keyFrameAsked_ = false;
    Clock::time_point keyFrameAt_;
    int starts_ = 0;
    bool running_ = false;

    // Used on the stream's own thread only.
    std::unique_ptr<StreamPipeline> pipeline_;
    std::uint64_t run_ = 0;     ///< number of the present start; events of earlier ones are stale
    std::uint64_t wishes_ = 0;  ///< grows whenever the source is found wanted
    bool stopScheduled_ = false;
    bool restartScheduled_ = false;
    std::size_t failures_ = 0;  ///< in a row
    unsigned way_ = 0;          ///< as MediaSource::make() takes it
    Clock::time_point startedAt_;

    /// Last: its thread uses everything above.
    TaskQueue queue_;
};

}  // namespace refhost
