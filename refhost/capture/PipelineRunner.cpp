#include "refhost/capture/PipelineRunner.h"

#include <pthread.h>

#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "refhost/base/ConditionVariable.h"
#include "refhost/capture/AbandonedRuns.h"
#include "refhost/capture/StreamPipeline.h"
#include "refhost/threads/AllSignalsBlocked.h"

namespace refhost
{
namespace
{

/// Threads of a typical pipeline. Without them, some GStreamer plugins abort the program and others fail
/// silently, so a pipeline is not started then.
constexpr int threadsNeeded = 24;

/// \returns whether the system can create that many threads now
bool haveThreads()
{
    Mutex mutex;
    ConditionVariable changed;
    bool done OV_GUARDED_BY(mutex) = false;
    std::vector<std::thread> threads;
    bool enough = true;
    try
    {
        while (threads.size() < threadsNeeded)
        {
            threads.emplace_back(
                [&]
                {
                    const MutexLock guard(mutex);
                    while (!done)
                    {
                        changed.wait(mutex);
                    }
                });
        }
    }
    catch (const std::system_error&)
    {
        enough = false;
    }
    {
        const MutexLock guard(mutex);
        done = true;
    }
    changed.notifyAll();
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

    Mutex mutex;
    ConditionVariable changed;
    std::function<void()> stopped OV_GUARDED_BY(mutex);
    Taps taps OV_GUARDED_BY(mutex);
    bool tapsChanged OV_GUARDED_BY(mutex) = false;
    bool keyFrameRequested OV_GUARDED_BY(mutex) = false;
    bool stopping OV_GUARDED_BY(mutex) = false;
    bool ended OV_GUARDED_BY(mutex) = false;
    bool abandoned OV_GUARDED_BY(mutex) = false;
    std::optional<Clock::time_point> busySince OV_GUARDED_BY(mutex);
    std::uint64_t packets OV_GUARDED_BY(mutex) = 0;  ///< packetCount() of the ended pipeline
    bool otherTransport OV_GUARDED_BY(mutex) = false;
};

PipelineRunner::PipelineRunner(Setup setup) : state_(std::make_shared<State>())
{
    state_->title = setup.title;
    state_->stopped = std::move(setup.events.stopped);
    state_->taps = std::move(setup.taps);
    state_->busySince = Clock::now();
    state_->pipeline = std::make_unique<StreamPipeline>(
        setup.config, setup.title, setup.attempt, std::move(setup.mediaTap),
        StreamPipeline::Events{std::move(setup.events.described), std::move(setup.events.ended),
                               std::move(setup.events.clockUnusable)});
    const AllSignalsBlocked blocked;
    std::thread([state = state_] { run(state); }).detach();
}

PipelineRunner::~PipelineRunner()
{
    mute();
    stop();
    const MutexLock guard(state_->mutex);
    if (!state_->ended)
    {
        state_->abandoned = true;
        AbandonedRuns::instance().change(state_->title, 1);
    }
}

void PipelineRunner::setTaps(const Taps& taps)
{
    {
        const MutexLock guard(state_->mutex);
        state_->taps = taps;
        state_->tapsChanged = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
    }
    state_->changed.notifyAll();
}

void PipelineRunner::requestKeyFrame()
{
    {
        const MutexLock guard(state_->mutex);
        state_->keyFrameRequested = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
    }
    state_->changed.notifyAll();
}

std::uint64_t PipelineRunner::packetCount() const
{
    const MutexLock guard(state_->mutex);
    return state_->pipeline ? state_->pipeline->packetCount() : state_->packets;
}

bool PipelineRunner::mayWorkByAnotherTransport() const
{
    const MutexLock guard(state_->mutex);
    return state_->pipeline ? state_->pipeline->mayWorkByAnotherTransport() : state_->otherTransport;
}

bool PipelineRunner::describe(bool partial, std::vector<SubMediaInfo>& tracks) const
{
    const MutexLock guard(state_->mutex);
    return state_->pipeline && state_->pipeline->describe(partial, tracks);
}

PipelineRunner::Clock::duration PipelineRunner::busyFor() const
{
    const MutexLock guard(state_->mutex);
    return state_->busySince ? Clock::now() - *state_->busySince : Clock::duration(0);
}

void PipelineRunner::stop()
{
    {
        const MutexLock guard(state_->mutex);
        state_->stopping = true;
        state_->busySince = state_->busySince ? state_->busySince : Clock::now();
        if (state_->pipeline)
        {
            state_->pipeline->mute();
        }
    }
    state_->changed.notifyAll();
}

void PipelineRunner::mute()
{
    const MutexLock guard(state_->mutex);
    state_->stopped = nullptr;
    if (state_->pipeline)
    {
        state_->pipeline->mute();
    }
}

bool PipelineRunner::awaitEnd(Clock::time_point deadline) const
{
    const MutexLock guard(state_->mutex);
    while (!state_->ended && state_->changed.waitUntil(state_->mutex, deadline))
    {
    }
    return state_->ended;
}

int PipelineRunner::abandoned()
{
    return AbandonedRuns::instance().all();
}

int PipelineRunner::abandoned(const std::string& title)
{
    return AbandonedRuns::instance().of(title);
}

void PipelineRunner::run(const std::shared_ptr<State>& state)
{
    pthread_setname_np(pthread_self(), "pipeline");
    // Used without the lock: only this thread resets state->pipeline.
    StreamPipeline& pipeline = *state->pipeline;
    const MutexLock guard(state->mutex);
    bool startNow = true;
    while (!state->stopping)
    {
        if (!startNow && !state->tapsChanged && !state->keyFrameRequested)
        {
            state->busySince.reset();
            state->changed.wait(state->mutex);
            continue;
        }
        const Taps taps = state->taps;
        const bool tapsChanged = std::exchange(state->tapsChanged, false) && !startNow;
        const bool keyFrame = std::exchange(state->keyFrameRequested, false) && !startNow;
        const MutexUnlock unlocked(state->mutex);
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
                // An error message of the bus says more than this one; it was reported before.
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
    }
    {
        const MutexUnlock unlocked(state->mutex);
        pipeline.stop();
    }
    state->packets = pipeline.packetCount();
    state->otherTransport = pipeline.mayWorkByAnotherTransport();
    std::unique_ptr<StreamPipeline> pipelineGone = std::move(state->pipeline);
    {
        const MutexUnlock unlocked(state->mutex);
        pipelineGone.reset();
    }
    state->ended = true;
    if (state->abandoned)
    {
        AbandonedRuns::instance().change(state->title, -1);
    }
    state->busySince.reset();
    if (state->stopped)
    {
        state->stopped();
    }
    state->changed.notifyAll();
}

}  // namespace refhost
