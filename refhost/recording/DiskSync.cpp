#include "refhost/recording/DiskSync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;

constexpr Duration usualEnd = std::chrono::milliseconds(500);

}  // namespace

DiskSync::DiskSync(const Options& options) : state_(std::make_shared<State>(options)) {}

DiskSync::~DiskSync()
{
    close(usualEnd);
}

void DiskSync::add(const std::shared_ptr<SyncedFile>& file)
{
    if (file->waiting_.exchange(true))
    {
        return;
    }
    bool isFull = false;
    bool isFirst = false;
    {
        const MutexLock guard(state_->mutex);
        if (state_->closing)
        {
            return;
        }
        isFull = state_->waiting.size() >= state_->options.maxWaiting;
        isFirst = state_->waiting.empty();
        if (!isFull)
        {
            state_->waiting.push_back(file);
            makeThread();
        }
    }
    if (isFull)
    {
        file->waiting_ = false;
        return sync(*file);
    }
    if (isFirst)
    {
        state_->changed.notifyOne();
    }
}

void DiskSync::makeThread()
{
    if (thread_.joinable())
    {
        return;
    }
    try
    {
        thread_ = std::thread([state = state_] { serve(*state); });
    }
    catch (const std::system_error& error)
    {
        // The next call tries again.
        if (!std::exchange(failureReported_, true))
        {
            Log::error("no thread can be made: {}", error.what());
        }
    }
}

bool DiskSync::close(Duration max)
{
    const Clock::time_point deadline = Clock::now() + max;
    std::thread thread;
    bool ended = false;
    {
        const MutexLock guard(state_->mutex);
        state_->closing = true;
        state_->changed.notifyAll();
        thread = std::move(thread_);
        while (thread.joinable() && !state_->ended && state_->changed.waitUntil(state_->mutex, deadline))
        {
        }
        ended = state_->ended || !thread.joinable();
    }
    if (thread.joinable())
    {
        ended ? thread.join() : thread.detach();
    }
    return ended;
}

void DiskSync::serve(State& state)
{
    const MutexLock guard(state.mutex);
    Clock::time_point next = Clock::now();
    while (!state.closing)
    {
        if (state.waiting.empty())
        {
            state.changed.wait(state.mutex);
            continue;
        }
        const Clock::time_point now = Clock::now();
        if (now < next)
        {
            state.changed.waitUntil(state.mutex, next);
            continue;
        }
        next = now + state.options.interval;
        Files files = std::exchange(state.waiting, {});
        const MutexUnlock unguarded(state.mutex);
        runPass(state, std::move(files));
    }
    const Files rest = std::exchange(state.waiting, {});
    {
        const MutexUnlock unguarded(state.mutex);
        startAll(rest);
    }
    state.ended = true;
    state.changed.notifyAll();
}

void DiskSync::runPass(State& state, Files files)
{
    startAll(files);
    for (std::shared_ptr<SyncedFile>& file : files)
    {
        if (!state.closing)
        {
            sync(*file);
        }
        // The last hold may be this one: closed here, where nobody waits for it.
        file.reset();
    }
}

void DiskSync::startAll(const Files& files)
{
    for (const std::shared_ptr<SyncedFile>& file : files)
    {
        // What is written from here on is for the next pass.
        file->waiting_ = false;
        if (::sync_file_range(file->descriptor(), 0, 0, SYNC_FILE_RANGE_WRITE) != 0)
        {
            file->outcome_->failure = errno;
        }
    }
}

void DiskSync::sync(SyncedFile& file)
{
    if (::fdatasync(file.descriptor()) != 0)
    {
        file.outcome_->failure = errno;
    }
}

}  // namespace refhost
