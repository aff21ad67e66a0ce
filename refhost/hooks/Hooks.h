#pragma once
// Tested by tests/refhost/hooks/Hooks_test.cpp.

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/ServerEvents.h"
#include "refhost/config/Config.h"
#include "refhost/hooks/HookLauncher.h"
#include "refhost/hooks/HookStop.h"
#include "refhost/hooks/HookTargets.h"

namespace refhost
{

/// Runs what the configuration has for events of the server: a command with JSON on its standard input, or a URL that
/// JSON is posted to.
///
/// At most `HooksConfig::parallel` run at once, each on a thread of this class; others wait in a queue of their kind, and
/// beyond `maxQueued` are left out and counted in the log. Kinds take turns, so that clients who come and go by the
/// thousand keep no recording from being archived; hooks of one kind start in the order of the events. Who publishes an
/// event never waits for a hook.
///
/// Threads: construction and destruction: one thread; the destructor ends what still runs after `grace`.
class Hooks
{
public:
    /// Hooks of each kind that wait.
    static constexpr std::size_t maxQueued = 256;
    /// How long the destructor lets hooks run, such as those of the last segments.
    static constexpr std::chrono::milliseconds grace{500};

    /// \param launcher  of the same configuration; outlives the hooks; null: no hook is a command
    /// \param events    outlives the hooks
    /// \throws std::system_error when the system has no thread for them
    Hooks(const HooksConfig& config, const HookLauncher* launcher,
          ServerEvents& events = ServerEvents::instance());
    ~Hooks();
    Hooks(const Hooks&) = delete;
    Hooks& operator=(const Hooks&) = delete;

    /// The hook of an event; null when none is for it.
    static const HookTarget* hookOf(const ServerEvent& event);

private:
    struct Job
    {
        const HookTarget* hook = nullptr;
        ServerEvents::EventPtr event;
    };

    void end();
    void awaitIdle();
    void onEvents();
    void work();
    void run(const Job& job) const;
    bool hasJobs() const OV_REQUIRES(mutex_);
    Job nextJob() OV_REQUIRES(mutex_);

    const HooksConfig config_;
    const HookLauncher* const launcher_;
    HookStop stop_;
    Mutex mutex_;
    ConditionVariable changed_;
    std::array<std::deque<Job>, HookTarget::kinds> jobs_ OV_GUARDED_BY(mutex_);
    std::size_t turn_ OV_GUARDED_BY(mutex_) = 0;  ///< the kind that is looked at first
    std::size_t running_ OV_GUARDED_BY(mutex_) = 0;
    bool stopping_ OV_GUARDED_BY(mutex_) = false;
    std::shared_ptr<ServerEvents::Subscription> subscription_ OV_GUARDED_BY(mutex_);
    std::vector<std::thread> threads_;
};

}  // namespace refhost
