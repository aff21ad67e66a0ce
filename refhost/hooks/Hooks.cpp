#include "refhost/hooks/Hooks.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/hooks/HookPost.h"
#include "refhost/threads/AllSignalsBlocked.h"

namespace refhost
{
namespace
{

const HookTarget* named(std::string_view hook)
{
    const auto* const found = std::find_if(hookTargets.begin(), hookTargets.end(),
                                           [hook](const HookTarget& each) { return each.hook == hook; });
    return found == hookTargets.end() ? nullptr : found;
}

std::string textOf(const ServerEvent& event, std::string_view field)
{
    const ServerEvent::Value* const value = event.find(field);
    const auto* const text = value == nullptr ? nullptr : std::get_if<std::string>(value);
    return text == nullptr ? std::string() : *text;
}

bool isDown(const std::string& state)
{
    return state == "unreachable" || state == "refused" || state == "failed";
}

std::string_view hookOfState(const ServerEvent& event)
{
    const std::string state = textOf(event, "state");
    if (state == "running")
    {
        return "on-camera-up";
    }
    if (state == "frozen")
    {
        return "on-camera-frozen";
    }
    return isDown(state) && !isDown(textOf(event, "before")) ? "on-camera-down" : "";
}

}  // namespace

Hooks::Hooks(const HooksConfig& config, const HookLauncher* launcher, ServerEvents& events)
    : config_(config), launcher_(launcher)
{
    if (std::all_of(hookTargets.begin(), hookTargets.end(),
                    [this](const HookTarget& each) { return (config_.*each.target).empty(); }))
    {
        return;
    }
    const AllSignalsBlocked blocked;
    try
    {
        for (int i = 0; i < config_.parallel; ++i)
        {
            threads_.emplace_back([this] { work(); });
        }
    }
    catch (const std::system_error&)
    {
        end();
        throw;
    }
    const MutexLock guard(mutex_);
    subscription_ = events.subscribe(maxQueued, [this] { onEvents(); });
}

Hooks::~Hooks()
{
    std::shared_ptr<ServerEvents::Subscription> subscription;
    {
        const MutexLock guard(mutex_);
        subscription = subscription_;
    }
    if (subscription)
    {
        subscription->close();
    }
    awaitIdle();
    end();
}

void Hooks::awaitIdle()
{
    const auto deadline = std::chrono::steady_clock::now() + grace;
    const MutexLock guard(mutex_);
    while ((running_ > 0 || hasJobs()) && changed_.waitUntil(mutex_, deadline))
    {
    }
}

void Hooks::end()
{
    stop_.stop();
    {
        const MutexLock guard(mutex_);
        stopping_ = true;
    }
    changed_.notifyAll();
    for (std::thread& thread : threads_)
    {
        thread.join();
    }
}

const HookTarget* Hooks::hookOf(const ServerEvent& event)
{
    if (event.name == "camera-state")
    {
        return named(hookOfState(event));
    }
    constexpr std::array<std::pair<std::string_view, std::string_view>, 5> names{
        {{"recording-segment", "on-recording-segment"},
         {"session-started", "on-session-start"},
         {"session-ended", "on-session-end"},
         {"talk-back-taken", "on-talk-start"},
         {"talk-back-ended", "on-talk-end"}}};
    const auto* const found = std::find_if(names.begin(), names.end(),
                                           [&event](const auto& name) { return name.first == event.name; });
    return found == names.end() ? nullptr : named(found->second);
}

/// On the publisher's thread.
void Hooks::onEvents()
{
    const MutexLock guard(mutex_);
    for (ServerEvents::EventPtr& event : subscription_->take().events)
    {
        const HookTarget* const hook = hookOf(*event);
        if (hook == nullptr || (config_.*hook->target).empty())
        {
            continue;
        }
        std::deque<Job>& jobs = jobs_.at(static_cast<std::size_t>(hook->kind));
        if (jobs.size() >= maxQueued)
        {
            Log::limited(Log::Level::warning, "hooks left out", "{} is left out: too many hooks wait",
                         hook->hook);
            continue;
        }
        jobs.push_back({hook, std::move(event)});
    }
    changed_.notifyAll();
}

bool Hooks::hasJobs() const
{
    return std::any_of(jobs_.begin(), jobs_.end(), [](const auto& jobs) { return !jobs.empty(); });
}

/// Requires: there is one.
Hooks::Job Hooks::nextJob()
{
    while (jobs_.at(turn_).empty())
    {
        turn_ = (turn_ + 1) % jobs_.size();
    }
    std::deque<Job>& jobs = jobs_.at(turn_);
    turn_ = (turn_ + 1) % jobs_.size();
    Job job = std::move(jobs.front());
    jobs.pop_front();
    return job;
}

void Hooks::work()
{
    pthread_setname_np(pthread_self(), "hook");
    for (;;)
    {
        Job job;
        {
            const MutexLock guard(mutex_);
            while (!stopping_ && !hasJobs())
            {
                changed_.wait(mutex_);
            }
            if (stopping_)
            {
                return;
            }
            job = nextJob();
            ++running_;
        }
        run(job);
        {
            const MutexLock guard(mutex_);
            --running_;
        }
        changed_.notifyAll();
    }
}

void Hooks::run(const Job& job) const
{
    const std::string_view name = job.hook->hook;
    ServerEvent event = *job.event;
    event.fields.insert(event.fields.begin(), {"hook", std::string(name)});
    const std::string input = event.json() + "\n";
    const std::string& target = config_.*job.hook->target;
    HookOutcome outcome{false, "no process runs commands"};
    if (HookPost::isUrl(target))
    {
        outcome = HookPost::run(target, input, HookStop::Clock::now() + std::chrono::seconds(config_.timeout),
                                stop_);
    }
    else if (launcher_ != nullptr)
    {
        outcome = launcher_->run(static_cast<std::size_t>(job.hook - hookTargets.data()), input, stop_);
    }
    if (outcome.done)
    {
        Log::debug("{}: {}", name, outcome.text);
        return;
    }
    Log::limited(Log::Level::warning, "hooks that failed", "{} failed: {}", name, outcome.text);
}

}  // namespace refhost
