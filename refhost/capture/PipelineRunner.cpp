#include "refhost/capture/PipelineRunner.h"

#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace refhost
{
namespace
{

/// Counts what was abandoned, by stream.
class AbandonedCount
{
public:
    static AbandonedCount& instance()
    {
        // Never destroyed: abandoned threads may outlive everything.
        static auto* const count = new AbandonedCount;
        return *count;
    }

    void change(const std::string& title, int by)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if ((counts_[title] += by) == 0)
        {
            counts_.erase(title);
        }
    }

    int of(const std::string& title) const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto found = counts_.find(title);
        return found == counts_.end() ? 0 : found->second;
    }

    int all() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        int sum = 0;
        for (const auto& [title, count] : counts_)
        {
            sum += count;
        }
        return sum;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, int> counts_;
};

/// Signals are for the program's first thread: new threads inherit the mask.
class AllSignalsBlocked
{
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~AllSignalsBlocked()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

/// As many as a usual pipeline makes. Where the system does not have them, GStreamer's plugins partly end the
/// program and partly go on without saying a word, so that it is better not to start.
constexpr int threadsNeeded = 24;

/// \returns whether the system has so many threads just now
bool haveThreads()
{
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    std::vector<std::thread> threads;
    bool enough = true;
    try
    {
        while (threads.size() < threadsNeeded)
        {
            threads.emplace_back(
                [&]
                {
                    std::unique_lock<std::mutex> guard(mutex);
                    changed.wait(guard, [&] { return done; });
                });
        }
    }
    catch (const std::system_error&)
    {
        enough = false;
    }
    {
        const std::lock_guard<std::mutex> guard(mutex);
        done = true;
    }
    changed.notify_all();
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return enough;
}

}  // namespace

/// Shared by the runner and its thread, whichever lives longer.
struct PipelineRunner::State
{
    std::string title;
    std::unique_ptr<StreamPipeline> pipeline;  ///< destroyed by the thread

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::function<void()> stopped;
    StreamPipeline::Taps taps;
    bool tapsChanged = false;
    bool keyFrameRequested = false;
    bool stopping = false;
    bool ended = false;
    bool abandoned = false;
    std::optional<Clock::time_point> busySince;
    std::uint64_t packets = 0;  ///< when it ended
    bool otherTransport = false;
};

PipelineRunner::PipelineRunner(const StreamConfig& config, const std::string& title, unsigned attempt,
                               std::shared_ptr<MediaTap> mediaTap, const StreamPipeline::Taps& taps,
                               Events events)
    : state_(std::make_shared<State>())
{
    state_->title = title;
    state_->stopped = std::move(events.stopped);
    state_->taps = taps;
    state_->busySince = Clock::now();
    state_->pipeline = std::make_unique<StreamPipeline>(config, title, attempt, std::move(mediaTap),
                                                        std::move(events.pipeline));
    const AllSignalsBlocked blocked;
    std::thread([state = state_] { run(state); }).detach();
}

PipelineRunner::~PipelineRunner()
{
    mute();
    stop();
    const std::lock_guard<std::mutex> guard(state_->mutex);
    if (!state_->ended)
    {
        state_->abandoned = true;
        AbandonedCount::instance().change(state_->title, 1);
    }
}

void PipelineRunner::setTaps(const StreamPipeline::Taps& taps)
{
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->taps = taps;
        state_->tapsChanged = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
    }
    state_->changed.notify_all();
}

void PipelineRunner::requestKeyFrame()
{
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->keyFrameRequested = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
    }
    state_->changed.notify_all();
}

std::uint64_t PipelineRunner::packetCount() const
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->pipeline ? state_->pipeline->packetCount() : state_->packets;
}

bool PipelineRunner::mayWorkByAnotherTransport() const
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->pipeline ? state_->pipeline->mayWorkByAnotherTransport() : state_->otherTransport;
}

bool PipelineRunner::describe(bool partial, std::vector<SubMediaInfo>& tracks) const
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->pipeline && state_->pipeline->describe(partial, tracks);
}

PipelineRunner::Clock::duration PipelineRunner::busyFor() const
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->busySince ? Clock::now() - *state_->busySince : Clock::duration(0);
}

void PipelineRunner::stop()
{
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->stopping = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
        if (state_->pipeline)
        {
            state_->pipeline->mute();
        }
    }
    state_->changed.notify_all();
}

void PipelineRunner::mute()
{
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->stopped = nullptr;
    if (state_->pipeline)
    {
        state_->pipeline->mute();
    }
}

bool PipelineRunner::awaitEnd(Clock::time_point deadline) const
{
    std::unique_lock<std::mutex> guard(state_->mutex);
    return state_->changed.wait_until(guard, deadline, [this] { return state_->ended; });
}

int PipelineRunner::abandoned()
{
    return AbandonedCount::instance().all();
}

int PipelineRunner::abandoned(const std::string& title)
{
    return AbandonedCount::instance().of(title);
}

void PipelineRunner::run(const std::shared_ptr<State>& state)
{
    pthread_setname_np(pthread_self(), "pipeline");
    // Only this thread takes the pipeline away, so that it may be used without the lock here.
    StreamPipeline& pipeline = *state->pipeline;
    std::unique_lock<std::mutex> guard(state->mutex);
    bool startNow = true;
    while (!state->stopping)
    {
        if (!startNow && !state->tapsChanged && !state->keyFrameRequested)
        {
            state->busySince.reset();
            state->changed.wait(guard);
            continue;
        }
        const StreamPipeline::Taps taps = state->taps;
        const bool tapsChanged = std::exchange(state->tapsChanged, false) && !startNow;
        const bool keyFrame = std::exchange(state->keyFrameRequested, false) && !startNow;
        guard.unlock();
        if (startNow)
        {
            std::string error;
            startNow = false;
            if (!haveThreads())
            {
                pipeline.reportFailure("the source cannot be started: the system has too few threads");
            }
            else if (!pipeline.start(taps, error))
            {
                // An error message of the bus says more than that it did not start; it comes before this.
                pipeline.reportFailure(error);
            }
        }
        if (tapsChanged)
        {
            pipeline.setTaps(taps);
        }
        if (keyFrame)
        {
            pipeline.requestKeyFrame();
        }
        guard.lock();
    }
    guard.unlock();
    pipeline.stop();
    guard.lock();
    state->packets = pipeline.packetCount();
    state->otherTransport = pipeline.mayWorkByAnotherTransport();
    std::unique_ptr<StreamPipeline> pipelineGone = std::move(state->pipeline);
    guard.unlock();
    pipelineGone.reset();
    guard.lock();
    state->ended = true;
    if (state->abandoned)
    {
        AbandonedCount::instance().change(state->title, -1);
    }
    state->busySince.reset();
    if (state->stopped)
    {
        state->stopped();
    }
    state->changed.notify_all();
}

}  // namespace refhost
