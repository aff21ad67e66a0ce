#include "refhost/ConfigReload.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/config/ConfigChanges.h"

namespace refhost
{
namespace
{

void report(const Reloader::Outcome& outcome)
{
    for (const std::string& problem : outcome.problems)
    {
        Log::error("the configuration was not taken, and nothing changed: {}", Log::safe(problem));
    }
    for (const std::string& warning : outcome.warnings)
    {
        Log::warning("{}", Log::safe(warning));
    }
    for (const std::string& name : outcome.applied)
    {
        Log::debug("changed: {}", name);
    }
    for (const std::string& name : outcome.needRestart)
    {
        Log::warning("{} changed: it needs a restart of the server", name);
    }
    if (outcome.succeeded())
    {
        Log::info("the configuration was read again: {} changed", outcome.applied.size());
    }
}

}  // namespace

ConfigReload::ConfigReload(ConfigSource source, ServerConfig running)
    : source_(std::move(source)),
      running_(std::move(running)),
      wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeUp_)
    {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void ConfigReload::add(Apply apply)
{
    parts_.push_back(std::move(apply));
}

void ConfigReload::watch(std::function<void()> before, std::function<void()> after)
{
    before_ = std::move(before);
    after_ = std::move(after);
}

void ConfigReload::requestReload(Done done)
{
    {
        const MutexLock guard(mutex_);
        if (waiting_.size() < maxWaiting)
        {
            waiting_.push_back(std::exchange(done, nullptr));
            const std::uint64_t one = 1;
            [[maybe_unused]] const ssize_t written = ::write(wakeUp_.get(), &one, sizeof one);
            return;
        }
    }
    if (done)
    {
        Outcome outcome;
        outcome.problems.emplace_back("too many requests to read the configuration wait");
        done(outcome);
    }
}

/// Requests that came before the file is read share its outcome.
void ConfigReload::serve()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(wakeUp_.get(), &count, sizeof count);
    std::deque<Done> requests;
    {
        const MutexLock guard(mutex_);
        requests.swap(waiting_);
    }
    if (requests.empty())
    {
        return;
    }
    const Outcome outcome = reload();
    for (const Done& done : requests)
    {
        if (done)
        {
            done(outcome);
        }
    }
}

Reloader::Outcome ConfigReload::reload()
{
    if (before_)
    {
        before_();
    }
    Outcome outcome = apply();
    report(outcome);
    if (after_)
    {
        after_();
    }
    return outcome;
}

Reloader::Outcome ConfigReload::apply()
{
    Outcome outcome;
    ConfigSource::Read read = source_.read();
    outcome.problems = std::move(read.problems);
    outcome.warnings = std::move(read.warnings);
    if (!read.config)
    {
        return outcome;
    }
    const auto before = running_.get();
    const ConfigChanges changes(*before, *read.config);
    const std::string problem = applyTo(changes.effective());
    if (!problem.empty())
    {
        outcome.problems.push_back(problem);
        return outcome;
    }
    running_.replace(changes.effective());
    outcome.needRestart = changes.needRestart();
    for (const ConfigChanges::Change& change : changes.all())
    {
        if (change.effect != ReloadEffect::restart)
        {
            outcome.applied.push_back(change.name);
        }
    }
    return outcome;
}

std::string ConfigReload::applyTo(const ServerConfig& config) const
{
    const auto before = running_.get();
    for (std::size_t i = 0; i < parts_.size(); ++i)
    {
        std::string problem = parts_[i](config);
        if (problem.empty())
        {
            continue;
        }
        while (i > 0)
        {
            parts_[--i](*before);
        }
        return problem;
    }
    return {};
}

}  // namespace refhost
