#include "hostapi/threads/GThread.h"

#include <pthread.h>

#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "refhost/base/Mutex.h"
#include "refhost/threads/OVThreadState.h"

namespace
{

constexpr std::size_t maxName = 15;  // of a thread on Linux

}  // namespace

struct GThread::Body
{
    /// Everything that the thread uses; outlives the thread object.
    struct Calls
    {
        function<int> run;
        function<int> before;
        function<int> after;
        const std::string name;
        std::shared_ptr<OVThread::State::Shared> state;

        void loop()
        {
            state->owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
            pthread_setname_np(pthread_self(), name.c_str());
            before();
            while (!state->endAsked.load(std::memory_order_acquire))
            {
                run();
            }
            after();
            // The system may reuse the thread's id.
            state->owner.store(std::thread::id(), std::memory_order_relaxed);
            state->running.store(false, std::memory_order_release);
        }
    };

    bool isOwnThread() const
    {
        return calls->state->owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

    std::shared_ptr<Calls> calls;
    // One start() or stop() at a time; never locked on the thread itself, which stop() waits for.
    refhost::Mutex control;
    std::thread thread OV_GUARDED_BY(control);
};

// By value: the host contract has this signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
GThread::GThread(function<int> run, const std::string& name, function<int> before, function<int> after)
    : body_(new Body)
{
    body_->calls.reset(new Body::Calls{run, before, after, name.substr(0, maxName), state_->shared});
}

GThread::~GThread() noexcept(false)
{
    const bool onOwnThread = body_->isOwnThread();
    stop();
    if (onOwnThread)
    {
        body_->thread.detach();
    }
    delete body_;
}

int GThread::start()
{
    if (body_->isOwnThread())
    {
        return 1;
    }
    const refhost::MutexLock guard(body_->control);
    OVThread::State::Shared& shared = *state_->shared;
    if (body_->thread.joinable())
    {
        if (!shared.endAsked.load(std::memory_order_acquire))
        {
            return 1;
        }
        // The body itself called stop().
        body_->thread.join();
    }
    shared.endAsked.store(false, std::memory_order_release);
    shared.running.store(true, std::memory_order_release);
    try
    {
        body_->thread = std::thread([calls = body_->calls] { calls->loop(); });
    }
    catch (const std::system_error&)
    {
        shared.running.store(false, std::memory_order_release);
        return 0;
    }
    return 1;
}

void GThread::stop()
{
    if (body_->isOwnThread())
    {
        state_->shared->endAsked.store(true, std::memory_order_release);
        return;
    }
    const refhost::MutexLock guard(body_->control);
    state_->shared->endAsked.store(true, std::memory_order_release);
    if (body_->thread.joinable())
    {
        body_->thread.join();
    }
}

int GThread::emptyFun()
{
    return 0;
}
