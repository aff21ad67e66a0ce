#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/capture/StreamPipeline.h"

namespace refhost
{

/// Runs a StreamPipeline on a thread of its own, because a source may hang in any call.
///
/// Whatever the pipeline does, no operation here waits for it but awaitEnd(), which has a deadline. A runner
/// that is destroyed before its pipeline has ended abandons it: pipeline and thread stay until the source
/// lets go, muted, and are counted. Threads: any; the events are called on threads of the pipeline's and may
/// not call back.
class PipelineRunner
{
public:
    using Clock = std::chrono::steady_clock;

    struct Events
    {
        StreamPipeline::Events pipeline;
        std::function<void()> stopped;  ///< what stop() asked for is done; the runner may be destroyed
    };

    /// Starts at once; the rest as StreamPipeline takes it.
    /// \throws std::system_error when the system has no thread
    PipelineRunner(const StreamConfig& config, const std::string& title, unsigned attempt,
                   std::shared_ptr<MediaTap> mediaTap, const StreamPipeline::Taps& taps, Events events);
    ~PipelineRunner();
    PipelineRunner(const PipelineRunner&) = delete;
    PipelineRunner& operator=(const PipelineRunner&) = delete;

    void setTaps(const StreamPipeline::Taps& taps);
    void requestKeyFrame();

    std::uint64_t packetCount() const;
    bool mayWorkByAnotherTransport() const;
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const;

    /// For how long the pipeline has been busy with what it was asked for last; 0 when it is done.
    Clock::duration busyFor() const;

    /// Ends the pipeline. No event but `stopped` is called after the return.
    void stop();
    /// Has no event called any more, not even `stopped`.
    void mute();
    /// Waits until stop() is done.
    /// \returns false when it is not by then
    bool awaitEnd(Clock::time_point deadline) const;

    /// How many abandoned pipelines of the process have not ended yet.
    static int abandoned();
    /// The same of one stream. \param title  as the constructor takes it
    static int abandoned(const std::string& title);

private:
    struct State;

    static void run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
};

}  // namespace refhost
