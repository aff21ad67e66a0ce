#include "hostapi/threads/GThread.h"

#include <mutex>
#include <thread>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/ThreadState.h"

struct GThread::Body
{
    Body(const function<int>& runs, const std::string& threadName, const function<int>& comesBefore,
         const function<int>& comesAfter)
        : run(runs), name(threadName), before(comesBefore), after(comesAfter)
    {
    }

    function<int> run;
    std::string name;
    function<int> before;
    function<int> after;
    std::mutex mutex;  // serialises start() and stop()
    std::thread thread;
    std::atomic<std::thread::id> threadId{std::thread::id()};
    std::atomic<bool> stopAsked{false};
};

namespace
{

void log(const char* operation)
{
    FakeHost::instance().called("GThread", 0, operation);
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
GThread::GThread(function<int> run, const std::string& name, function<int> before, function<int> after)
    : body_(new Body(run, name, before, after))
{
    FakeHost::instance().born("GThread");
    FakeHost::instance().called("GThread", 0, "GThread", name);
}

GThread::~GThread() noexcept(false)
{
    if (state_->running || body_->thread.joinable())
    {
        stop();
    }
    FakeHost::instance().died("GThread");
    delete body_;
}

int GThread::start()
{
    const std::lock_guard<std::mutex> lock(body_->mutex);
    FakeHost& host = FakeHost::instance();
    if (state_->running)
    {
        return 1;
    }
    if (host.outcomeOf("GThread", 0, "start", 1).result == 0)
    {
        return 0;
    }
    if (body_->thread.joinable())
    {
        // Its own body asked it to end: nobody has waited for it yet.
        body_->thread.join();
    }
    body_->stopAsked = false;
    state_->running = true;
    if (!host.threadsRun())
    {
        return 1;
    }
    body_->thread = std::thread(
        [this]
        {
            body_->threadId = std::this_thread::get_id();
            body_->before();
            while (!body_->stopAsked)
            {
                body_->run();
                FakeHost::instance().bodyRan();
                std::this_thread::yield();
            }
            body_->after();
            state_->running = false;
        });
    return 1;
}

void GThread::stop()
{
    if (body_->threadId.load() == std::this_thread::get_id())
    {
        body_->stopAsked = true;
        return;
    }
    const std::lock_guard<std::mutex> lock(body_->mutex);
    log("stop");
    body_->stopAsked = true;
    if (body_->thread.joinable())
    {
        body_->thread.join();
        body_->threadId = std::thread::id();
    }
    state_->running = false;
}

int GThread::emptyFun()
{
    return 0;
}
