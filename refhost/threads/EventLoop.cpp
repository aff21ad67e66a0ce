#include "refhost/threads/EventLoop.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Descriptor.h"
#include "refhost/base/Log.h"
#include "refhost/threads/LoopMonitor.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t maxName = 15;  // of a thread on Linux
constexpr std::size_t eventsAtOnce = 128;
constexpr std::uint64_t wakeUp = ~std::uint64_t{0};

[[noreturn]] void fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

std::uint32_t toEpoll(std::uint32_t events)
{
    std::uint32_t result = 0;
    if ((events & EventLoop::readable) != 0)
    {
        result |= EPOLLIN;
    }
    if ((events & EventLoop::writable) != 0)
    {
        result |= EPOLLOUT;
    }
    if ((events & EventLoop::exclusive) != 0)
    {
        result |= EPOLLEXCLUSIVE;
    }
    return result;
}

std::uint32_t fromEpoll(std::uint32_t events)
{
    std::uint32_t result = 0;
    if ((events & EPOLLIN) != 0)
    {
        result |= EventLoop::readable;
    }
    if ((events & EPOLLOUT) != 0)
    {
        result |= EventLoop::writable;
    }
    if ((events & (EPOLLHUP | EPOLLERR)) != 0)
    {
        result |= EventLoop::hungUp;
    }
    return result;
}

Descriptor opened(int number, const char* what)
{
    if (number < 0)
    {
        fail(what);
    }
    return Descriptor(number);
}

}  // namespace

// One lock guards all tables. It is never held while a handler runs or is destroyed, because both may call
// back.
//
// An event names its watch by descriptor and serial number and not by address: events of one batch may arrive
// for a watch that an earlier handler of the batch removed, or whose descriptor already serves another watch.
struct EventLoop::Impl
{
    struct Watch
    {
        std::uint32_t serial;
        std::uint32_t events;
        IoHandler handler;
    };

    struct Timer
    {
        milliseconds interval;  // none for one that runs once
        Task task;
    };

    explicit Impl(const std::string& loopName);
    ~Impl();

    void run();
    void dispatch(const epoll_event* events, int count) OV_REQUIRES(mutex);
    void runPosted() OV_REQUIRES(mutex);
    void runTimers() OV_REQUIRES(mutex);
    int timeUntilNext() const OV_REQUIRES(mutex);

    template <class Call>
    void guarded(const Call& call) const OV_EXCLUDES(mutex);
    void finished() OV_REQUIRES(mutex);
    void waitWhileRunning(const Watch* watch) OV_REQUIRES(mutex);
    TimerId addTimer(Clock::time_point due, Timer timer) OV_EXCLUDES(mutex);
    bool takeWakeUp() OV_REQUIRES(mutex);
    void wake() const;
    bool isOwnThread() const;

    const std::string name;
    const Descriptor epoll = opened(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    const Descriptor wakeDescriptor = opened(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");

    Mutex mutex;
    ConditionVariable handlerEnded;
    std::vector<std::shared_ptr<Watch>> watches OV_GUARDED_BY(mutex);  // by descriptor
    std::uint32_t lastSerial OV_GUARDED_BY(mutex) = 0;
    std::vector<Task> posted OV_GUARDED_BY(mutex);
    std::map<TimerId, Timer> timers OV_GUARDED_BY(mutex);  // by when they are due
    std::uint64_t lastTimer OV_GUARDED_BY(mutex) = 0;
    const Watch* running OV_GUARDED_BY(mutex) = nullptr;  // whose handler runs now
    int waiters OV_GUARDED_BY(mutex) = 0;                 // for handlerEnded
    bool asleep OV_GUARDED_BY(mutex) = false;             // a change needs a wake-up to be seen
    bool stopping OV_GUARDED_BY(mutex) = false;

    std::vector<Task> batch;  // used on the loop's thread only; kept for its memory
    std::thread thread;
};

EventLoop::Impl::Impl(const std::string& loopName) : name(loopName.substr(0, maxName))
{
    // Edge-triggered: every write is a new event, and the counter needs no reading.
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.u64 = wakeUp;
    if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, wakeDescriptor.get(), &event) != 0)
    {
        fail("epoll_ctl");
    }
    // The new thread inherits the mask: signals are for the program's main thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        thread = std::thread([this] { run(); });
    }
    catch (...)
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

EventLoop::Impl::~Impl()
{
    {
        const MutexLock guard(mutex);
        stopping = true;
    }
    wake();
    thread.join();
    // Handlers end while the tables are whole: their captures may call back.
    const auto endedWatches = std::move(watches);
    const auto endedTimers = std::move(timers);
    const auto endedTasks = std::move(posted);
    watches.clear();
    timers.clear();
    posted.clear();
}

void EventLoop::Impl::run()
{
    pthread_setname_np(pthread_self(), name.c_str());
    std::array<epoll_event, eventsAtOnce> events;
    const MutexLock lock(mutex);
    while (!stopping)
    {
        const int timeout = timeUntilNext();
        asleep = timeout != 0;
        int count = 0;
        {
            const MutexUnlock unlocked(mutex);
            count = ::epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()), timeout);
        }
        asleep = false;
        dispatch(events.data(), count);
        runPosted();
        runTimers();
    }
}

void EventLoop::Impl::dispatch(const epoll_event* events, int count)
{
    for (int i = 0; i < count && !stopping; ++i)
    {
        const std::uint64_t key = events[i].data.u64;
        const std::size_t descriptor = static_cast<std::uint32_t>(key);
        if (key == wakeUp || descriptor >= watches.size())
        {
            continue;
        }
        std::shared_ptr<Watch> watch = watches[descriptor];
        if (watch == nullptr || watch->serial != key >> 32)
        {
            continue;
        }
        // Events that an earlier handler of the batch stopped watching are not reported.
        const std::uint32_t happened = fromEpoll(events[i].events) & (watch->events | hungUp);
        if (happened == 0)
        {
            continue;
        }
        running = watch.get();
        {
            const MutexUnlock unlocked(mutex);
            guarded([&] { watch->handler(happened); });
            watch.reset();
        }
        finished();
    }
}

void EventLoop::Impl::runPosted()
{
    if (posted.empty() || stopping)
    {
        return;
    }
    // What these tasks post runs after the next look at the descriptors, which thus cannot be starved.
    batch.swap(posted);
    for (Task& task : batch)
    {
        {
            const MutexUnlock unlocked(mutex);
            guarded(task);
            task = nullptr;
        }
        if (stopping)
        {
            break;
        }
    }
    const MutexUnlock unlocked(mutex);
    batch.clear();
}

void EventLoop::Impl::runTimers()
{
    if (timers.empty())
    {
        return;
    }
    const Clock::time_point now = Clock::now();
    while (!stopping && !timers.empty() && timers.begin()->first.first <= now)
    {
        auto node = timers.extract(timers.begin());
        const milliseconds interval = node.mapped().interval;
        if (interval == milliseconds::zero())
        {
            const MutexUnlock unlocked(mutex);
            guarded(node.mapped().task);
            node = {};  // its captures may call back
            continue;
        }
        node.key().first += interval * ((now - node.key().first) / interval + 1);
        // Only this thread takes those out that run again, and others leave it where it is.
        const Task& task = timers.insert(std::move(node)).position->second.task;
        const MutexUnlock unlocked(mutex);
        guarded(task);
    }
}

int EventLoop::Impl::timeUntilNext() const
{
    constexpr milliseconds longest(std::chrono::hours(1));
    if (!posted.empty())
    {
        return 0;
    }
    if (timers.empty())
    {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(timers.begin()->first.first - Clock::now());
    return static_cast<int>(std::clamp(left, milliseconds(0), longest).count());
}

template <class Call>
void EventLoop::Impl::guarded(const Call& call) const
{
    try
    {
        call();
    }
    catch (const std::exception& error)
    {
        Log::error("{}: a handler failed: {}", name, Log::safe(error.what()));
    }
    catch (...)
    {
        Log::error("{}: a handler failed", name);
    }
}

void EventLoop::Impl::finished()
{
    running = nullptr;
    if (waiters > 0)
    {
        handlerEnded.notifyAll();
    }
}

void EventLoop::Impl::waitWhileRunning(const Watch* watch)
{
    if (running != watch || isOwnThread())
    {
        return;
    }
    ++waiters;
    while (running == watch)
    {
        handlerEnded.wait(mutex);
    }
    --waiters;
}

EventLoop::TimerId EventLoop::Impl::addTimer(Clock::time_point due, Timer timer)
{
    bool wakeUpNeeded = false;
    TimerId id;
    {
        const MutexLock guard(mutex);
        id = {due, ++lastTimer};
        const auto added = timers.emplace(id, std::move(timer)).first;
        wakeUpNeeded = added == timers.begin() && takeWakeUp();
    }
    if (wakeUpNeeded)
    {
        wake();
    }
    return id;
}

bool EventLoop::Impl::takeWakeUp()
{
    return std::exchange(asleep, false);
}

void EventLoop::Impl::wake() const
{
    const std::uint64_t one = 1;
    while (::write(wakeDescriptor.get(), &one, sizeof one) < 0 && errno == EINTR)
    {
    }
}

bool EventLoop::Impl::isOwnThread() const
{
    return std::this_thread::get_id() == thread.get_id();
}

EventLoop::EventLoop(const std::string& name) : impl_(std::make_unique<Impl>(name))
{
    LoopMonitor::instance().add(*this, impl_->name);
}

EventLoop::~EventLoop()
{
    LoopMonitor::instance().remove(*this);
}

void EventLoop::add(int descriptor, std::uint32_t events, IoHandler handler)
{
    auto watch = std::make_shared<Impl::Watch>(Impl::Watch{0, events, std::move(handler)});
    const MutexLock guard(impl_->mutex);
    const std::size_t index = static_cast<std::size_t>(descriptor);
    watch->serial = ++impl_->lastSerial;
    epoll_event event{};
    event.events = toEpoll(events);
    event.data.u64 = std::uint64_t{watch->serial} << 32 | static_cast<std::uint32_t>(descriptor);
    if (::epoll_ctl(impl_->epoll.get(), EPOLL_CTL_ADD, descriptor, &event) != 0)
    {
        fail("EventLoop::add");
    }
    if (index >= impl_->watches.size())
    {
        impl_->watches.resize(index + 1);
    }
    impl_->watches[index] = std::move(watch);
}

void EventLoop::modify(int descriptor, std::uint32_t events)
{
    const MutexLock guard(impl_->mutex);
    const std::size_t index = static_cast<std::size_t>(descriptor);
    if (descriptor < 0 || index >= impl_->watches.size() || impl_->watches[index] == nullptr)
    {
        return;
    }
    Impl::Watch& watch = *impl_->watches[index];
    if (watch.events == events || (watch.events & exclusive) != 0)
    {
        return;
    }
    watch.events = events;
    epoll_event event{};
    event.events = toEpoll(events);
    event.data.u64 = std::uint64_t{watch.serial} << 32 | static_cast<std::uint32_t>(descriptor);
    ::epoll_ctl(impl_->epoll.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void EventLoop::remove(int descriptor)
{
    std::shared_ptr<Impl::Watch> watch;  // outlives the lock: the handler's end may call back
    const MutexLock lock(impl_->mutex);
    const std::size_t index = static_cast<std::size_t>(descriptor);
    if (descriptor < 0 || index >= impl_->watches.size() || impl_->watches[index] == nullptr)
    {
        return;
    }
    watch.swap(impl_->watches[index]);
    ::epoll_ctl(impl_->epoll.get(), EPOLL_CTL_DEL, descriptor, nullptr);
    impl_->waitWhileRunning(watch.get());
}

void EventLoop::post(Task task)
{
    bool wake = false;
    {
        const MutexLock guard(impl_->mutex);
        impl_->posted.push_back(std::move(task));
        wake = impl_->takeWakeUp();
    }
    if (wake)
    {
        impl_->wake();
    }
}

void EventLoop::every(milliseconds interval, Task task)
{
    const milliseconds period = std::max(interval, milliseconds(1));
    impl_->addTimer(Clock::now() + period, {period, std::move(task)});
}

EventLoop::TimerId EventLoop::after(std::chrono::nanoseconds delay, Task task)
{
    // Far from what the clock cannot show any more.
    constexpr std::chrono::nanoseconds longest = std::chrono::hours(24 * 365);
    const auto now = Clock::now();
    return impl_->addTimer(now + std::clamp(delay, std::chrono::nanoseconds(0), longest),
                           {milliseconds::zero(), std::move(task)});
}

void EventLoop::cancel(const TimerId& timer)
{
    std::map<TimerId, Impl::Timer>::node_type node;  // outlives the lock: its captures may call back
    const MutexLock guard(impl_->mutex);
    node = impl_->timers.extract(timer);
}

bool EventLoop::onLoopThread() const
{
    return impl_->isOwnThread();
}

}  // namespace refhost
