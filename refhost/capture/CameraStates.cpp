#include "refhost/capture/CameraStates.h"

#include "refhost/base/HostClock.h"
#include "refhost/base/ServerEvents.h"

namespace refhost
{
namespace
{

void publish(const CameraStatus& status, CameraState before)
{
    if (!ServerEvents::instance().hasSubscribers())
    {
        return;
    }
    ServerEvent event{"camera-state", status.since, {}};
    event.fields = {{"camera", std::int64_t{status.camera}},
                    {"stream", std::int64_t{status.stream}},
                    {"title", status.title},
                    {"state", std::string(nameOf(status.state))},
                    {"before", std::string(nameOf(before))}};
    if (!status.lastError.empty() && status.state != CameraState::running)
    {
        event.fields.emplace_back("error", status.lastError);
    }
    ServerEvents::instance().publish(std::move(event));
}

}  // namespace

CameraStates::Row::Row(CameraStates& states, const Key& key, std::string title)
    : states_(states), key_(key), title_(std::move(title))
{
    const MutexLock guard(states_.mutex_);
    number_ = ++states_.lastNumber_;
    Entry& entry = states_.entries_[key_];
    entry = {number_, {}};
    entry.status.camera = key_.first;
    entry.status.stream = key_.second;
    entry.status.title = title_;
    entry.status.since = HostClock::system().wallNow();
}

CameraStates::Row::~Row()
{
    const MutexLock guard(states_.mutex_);
    const auto found = states_.entries_.find(key_);
    if (found != states_.entries_.end() && found->second.number == number_)
    {
        states_.entries_.erase(found);
    }
}

void CameraStates::Row::set(CameraStatus status)
{
    status.camera = key_.first;
    status.stream = key_.second;
    status.title = title_;
    CameraState before = status.state;
    {
        const MutexLock guard(states_.mutex_);
        const auto found = states_.entries_.find(key_);
        if (found == states_.entries_.end() || found->second.number != number_)
        {
            return;
        }
        before = found->second.status.state;
        found->second.status = status;
    }
    if (before != status.state)
    {
        publish(status, before);
    }
}

CameraStates& CameraStates::instance()
{
    static CameraStates states;
    return states;
}

std::vector<CameraStatus> CameraStates::snapshot() const
{
    const MutexLock guard(mutex_);
    std::vector<CameraStatus> all;
    all.reserve(entries_.size());
    for (const auto& [key, entry] : entries_)
    {
        all.push_back(entry.status);
    }
    return all;
}

std::optional<CameraStatus> CameraStates::find(int camera, int stream) const
{
    const MutexLock guard(mutex_);
    const auto found = entries_.find({camera, stream});
    return found == entries_.end() ? std::nullopt : std::make_optional(found->second.status);
}

}  // namespace refhost
