#include "refhost/base/ServerEvents.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include "refhost/base/JsonText.h"

namespace refhost
{
namespace
{

void append(std::string& out, const std::string& text)
{
    JsonText::append(out, text);
}

void append(std::string& out, std::int64_t number)
{
    fmt::format_to(std::back_inserter(out), "{}", number);
}

void append(std::string& out, double number)
{
    fmt::format_to(std::back_inserter(out), "{:.3f}", number);
}

std::string textOf(WallTime time)
{
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
    constexpr std::int64_t thousand = 1000;
    const std::int64_t rest = (milliseconds % thousand + thousand) % thousand;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime(static_cast<std::time_t>((milliseconds - rest) / thousand)), rest);
}

}  // namespace

const ServerEvent::Value* ServerEvent::find(std::string_view field) const
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [field](const Field& own) { return own.first == field; });
    return found == fields.end() ? nullptr : &found->second;
}

ServerEvent::Value ServerEvent::dateOf(WallTime time)
{
    return textOf(time);
}

std::string ServerEvent::json() const
{
    std::string out = "{\"event\":";
    JsonText::append(out, name);
    out += ",\"time\":";
    JsonText::append(out, textOf(time));
    for (const auto& [key, value] : fields)
    {
        out += ',';
        JsonText::append(out, key);
        out += ':';
        std::visit([&out](const auto& own) { append(out, own); }, value);
    }
    out += '}';
    return out;
}

ServerEvents::Subscription::Subscription(std::size_t maxEvents, std::function<void()> wake)
    : maxEvents_(maxEvents), wake_(std::move(wake))
{
}

ServerEvents::Subscription::Taken ServerEvents::Subscription::take()
{
    Taken taken;
    const MutexLock guard(mutex_);
    taken.events.assign(events_.begin(), events_.end());
    taken.lost = std::exchange(lost_, 0);
    events_.clear();
    return taken;
}

void ServerEvents::Subscription::close()
{
    {
        const MutexLock guard(mutex_);
        closed_ = true;
        events_.clear();
    }
    const MutexLock guard(wakeMutex_);
    wake_ = nullptr;
}

void ServerEvents::Subscription::push(const EventPtr& event)
{
    {
        const MutexLock guard(mutex_);
        if (closed_)
        {
            return;
        }
        if (events_.size() >= maxEvents_)
        {
            ++lost_;
            return;
        }
        events_.push_back(event);
        if (events_.size() > 1)
        {
            return;
        }
    }
    const MutexLock guard(wakeMutex_);
    if (wake_)
    {
        wake_();
    }
}

ServerEvents& ServerEvents::instance()
{
    static ServerEvents events;
    return events;
}

std::shared_ptr<ServerEvents::Subscription> ServerEvents::subscribe(std::size_t maxEvents,
                                                                    std::function<void()> wake)
{
    auto subscription = std::make_shared<Subscription>(maxEvents, std::move(wake));
    const MutexLock guard(mutex_);
    subscriptions_.push_back(subscription);
    count_ = subscriptions_.size();
    return subscription;
}

void ServerEvents::publish(ServerEvent event)
{
    if (!hasSubscribers())
    {
        return;
    }
    const auto shared = std::make_shared<const ServerEvent>(std::move(event));
    std::vector<std::shared_ptr<Subscription>> receivers;
    {
        const MutexLock guard(mutex_);
        const auto gone = std::remove_if(subscriptions_.begin(), subscriptions_.end(),
                                         [](const auto& subscription) { return subscription.expired(); });
        subscriptions_.erase(gone, subscriptions_.end());
        count_ = subscriptions_.size();
        for (const std::weak_ptr<Subscription>& subscription : subscriptions_)
        {
            receivers.push_back(subscription.lock());
        }
    }
    for (const std::shared_ptr<Subscription>& receiver : receivers)
    {
        if (receiver)
        {
            receiver->push(shared);
        }
    }
}

}  // namespace refhost
