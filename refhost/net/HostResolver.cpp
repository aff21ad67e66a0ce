#include "refhost/net/HostResolver.h"

#include <netdb.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <deque>
#include <map>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds idleTime(10);  // of a thread before it ends
constexpr std::chrono::seconds endTime(1);

/// A thread that takes no signals: those are for the program's main thread.
template <class Run>
void startDetached(const Run& run)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        std::thread(run).detach();
    }
    catch (...)
    {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

// All of it is guarded by the mutex of the State.
struct HostResolver::Waiter
{
    EventLoop* loop = nullptr;  // null once abandoned or answered
    std::string host;
    Found found;
};

// Shared with the threads, which may outlive the resolver.
struct HostResolver::State
{
    using Waiters = std::set<std::shared_ptr<Waiter>>;

    static void run(const std::shared_ptr<State>& self);
    bool nextHost(std::string& host) OV_REQUIRES(mutex);
    void answer(const std::string& host, const Result& result) OV_REQUIRES(mutex);
    void ensureThread(const std::shared_ptr<State>& self) OV_REQUIRES(mutex);
    static void post(const std::shared_ptr<State>& self, const std::shared_ptr<Waiter>& waiter,
                     const Result& result);
    void abandon(const std::shared_ptr<Waiter>& waiter);

    LookUp lookUp;
    Mutex mutex;
    ConditionVariable work;
    ConditionVariable ended;
    std::weak_ptr<State> own;
    std::map<std::string, Waiters> asked OV_GUARDED_BY(mutex);  // by host, waiting or being looked up
    std::deque<std::string> hosts OV_GUARDED_BY(mutex);         // of those, not being looked up yet
    std::size_t queries OV_GUARDED_BY(mutex) = 0;
    std::size_t threads OV_GUARDED_BY(mutex) = 0;
    std::size_t idle OV_GUARDED_BY(mutex) = 0;
    bool closing OV_GUARDED_BY(mutex) = false;
};

void HostResolver::State::run(const std::shared_ptr<State>& self)
{
    pthread_setname_np(pthread_self(), "resolver");
    const MutexLock lock(self->mutex);
    std::string host;
    while (self->nextHost(host))
    {
        Result result;
        {
            const MutexUnlock unlocked(self->mutex);
            result = self->lookUp(host);
        }
        self->answer(host, result);
    }
    --self->threads;
    self->ended.notifyAll();
}

/// Waits for work. \returns false when the thread is to end
bool HostResolver::State::nextHost(std::string& host)
{
    const Clock::time_point deadline = Clock::now() + idleTime;
    ++idle;
    while (!closing && hosts.empty() && work.waitUntil(mutex, deadline))
    {
    }
    --idle;
    if (closing || hosts.empty())
    {
        return false;
    }
    host = std::move(hosts.front());
    hosts.pop_front();
    return true;
}

void HostResolver::State::answer(const std::string& host, const Result& result)
{
    const auto found = asked.find(host);
    if (found == asked.end())
    {
        return;
    }
    const Waiters waiters = std::move(found->second);
    asked.erase(found);
    for (const std::shared_ptr<Waiter>& waiter : waiters)
    {
        post(own.lock(), waiter, result);
    }
}

/// Requires: the mutex is held, and the waiter not abandoned.
void HostResolver::State::post(const std::shared_ptr<State>& self, const std::shared_ptr<Waiter>& waiter,
                               const Result& result)
{
    waiter->loop->post(
        [self, waiter, result]
        {
            Found found;
            {
                const MutexLock guard(self->mutex);
                if (waiter->loop == nullptr)
                {
                    return;
                }
                waiter->loop = nullptr;
                --self->queries;
                found = std::move(waiter->found);
            }
            found(result);
        });
}

void HostResolver::State::ensureThread(const std::shared_ptr<State>& self)
{
    if (idle >= hosts.size() || threads == maxThreads)
    {
        work.notifyOne();
        return;
    }
    try
    {
        ++threads;
        startDetached([self] { run(self); });
    }
    catch (const std::system_error& error)
    {
        --threads;
        Log::limited(Log::Level::warning, "look-ups without a thread", "no thread to look up a host: {}",
                     error.what());
        if (threads == 0)
        {
            const std::string host = std::move(hosts.front());
            hosts.pop_front();
            answer(host, {{}, "the system has no thread to look it up"});
        }
    }
}

void HostResolver::State::abandon(const std::shared_ptr<Waiter>& waiter)
{
    Found found;  // ends without the lock: it may hold what calls back
    const MutexLock guard(mutex);
    if (waiter->loop == nullptr)
    {
        return;
    }
    waiter->loop = nullptr;
    --queries;
    found.swap(waiter->found);
    const auto host = asked.find(waiter->host);
    if (host == asked.end())
    {
        return;
    }
    Waiters& waiters = host->second;
    waiters.erase(waiter);
    // What nobody waits for is not looked up, but what a thread is at stays, so that no other starts it again.
    const auto queued = std::find(hosts.begin(), hosts.end(), waiter->host);
    if (waiters.empty() && queued != hosts.end())
    {
        hosts.erase(queued);
        asked.erase(host);
    }
}

HostResolver::Query::Query(std::shared_ptr<State> state, std::shared_ptr<Waiter> waiter)
    : state_(std::move(state)), waiter_(std::move(waiter))
{
}

HostResolver::Query::~Query()
{
    state_->abandon(waiter_);
}

HostResolver::Result HostResolver::systemLookUp(const std::string& host)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* list = nullptr;
    const int failure = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (failure != 0)
    {
        return {{}, ::gai_strerror(failure)};
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> guard(list, &::freeaddrinfo);
    Result result;
    for (const addrinfo* each = list; each != nullptr && result.addresses.size() < maxAddresses;
         each = each->ai_next)
    {
        if (each->ai_family == AF_INET || each->ai_family == AF_INET6)
        {
            result.addresses.emplace_back(each->ai_addr);
        }
    }
    if (result.addresses.empty())
    {
        result.error = "it has no address";
    }
    return result;
}

HostResolver::HostResolver(LookUp lookUp) : state_(std::make_shared<State>())
{
    state_->lookUp = std::move(lookUp);
    state_->own = state_;
}

HostResolver::~HostResolver()
{
    const Clock::time_point deadline = Clock::now() + endTime;
    const MutexLock guard(state_->mutex);
    state_->closing = true;
    state_->work.notifyAll();
    while (state_->threads > 0 && state_->ended.waitUntil(state_->mutex, deadline))
    {
    }
}

std::unique_ptr<HostResolver::Query> HostResolver::find(EventLoop& loop, const std::string& host, Found found)
{
    auto waiter = std::make_shared<Waiter>();
    waiter->loop = &loop;
    waiter->host = host;
    waiter->found = std::move(found);
    auto query = std::make_unique<Query>(state_, waiter);
    const MutexLock guard(state_->mutex);
    if (++state_->queries > maxQueries)
    {
        State::post(state_, waiter, {{}, "too many hosts are being looked up"});
        return query;
    }
    const auto [asked, fresh] = state_->asked.try_emplace(host);
    asked->second.insert(std::move(waiter));
    if (fresh)
    {
        state_->hosts.push_back(host);
        state_->ensureThread(state_);
    }
    return query;
}

}  // namespace refhost
